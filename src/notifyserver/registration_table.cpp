// SPDX-License-Identifier: MIT
// The table of registrations, and its index.
#include "notifyserver/registration_table.h"

#include <utility>

namespace zedipc {

namespace {

std::size_t hash_of_row(const std::string& to, const std::string& notification, const IPC* ipc) {
  constexpr std::size_t kFactor = 31;  // keeps the order of the three
  const std::size_t names =
      Registration::hash_of(to) * kFactor + Registration::hash_of(notification);
  return names * kFactor + std::hash<const IPC*>()(ipc);
}

}  // namespace

Registration* RegistrationTable::find(const std::string& to, const std::string& notification,
                                      const IPC* ipc) {
  auto [at, end] = index_.equal_range(hash_of_row(to, notification, ipc));
  for (; at != end; ++at) {
    Registration& row = rows_[at->second];
    if (row.ipc == ipc && row.to == to && row.notification == notification) return &row;
  }
  return nullptr;
}

void RegistrationTable::add(Registration row) {
  index_.emplace(hash_of_row(row.to, row.notification, row.ipc), rows_.size());
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
  const auto place = static_cast<std::size_t>(&row - rows_.data());
  auto at = index_.equal_range(hash_of_row(row.to, row.notification, row.ipc)).first;
  while (at->second != place) ++at;
  index_.erase(at);
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
