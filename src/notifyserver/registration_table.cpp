// SPDX-License-Identifier: MIT
// The table of registrations, and its index.
#include "notifyserver/registration_table.h"

#include <utility>

namespace zedipc {

Registration* RegistrationTable::find(const std::string& to, const std::string& notification,
                                      IPC* ipc) {
  const auto found = index_.find({ipc, to, notification});
  return found == index_.end() ? nullptr : &rows_[found->second];
}

void RegistrationTable::add(Registration row) {
  index_.emplace(Key(row.ipc, row.to, row.notification), rows_.size());
  if (row.remote) ++remote_rows_;
  rows_.push_back(std::move(row));
}

void RegistrationTable::remove(Registration& row) {
  bury(row);
  compact();
}

void RegistrationTable::remove_session(const IPC* ipc) {
  for (Registration& row : rows_) {
    if (row.ipc == ipc) bury(row);
  }
  compact();
}

void RegistrationTable::bury(Registration& row) {
  index_.erase({row.ipc, row.to, row.notification});
  if (row.remote) --remote_rows_;
  row = Registration();
  ++removed_;
}

// Into new memory, so that a table that was large once does not stay so.
void RegistrationTable::compact() {
  if (removed_ <= rows_.size() / 2) return;
  RegistrationTable live;
  live.rows_.reserve(rows_.size() - removed_);
  for (Registration& row : rows_) {
    if (row.ipc != nullptr) live.add(std::move(row));
  }
  *this = std::move(live);
}

}  // namespace zedipc
