// SPDX-License-Identifier: MIT
// Which calls of a record are running, and waiting for their end. An unregister function
// returns only when the calls of what it removed have ended, so that their data may be freed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "notifyclient/client_state.h"

namespace zedipc {

// Counts as a call of its record, from the decision to make it until it has wholly ended.
class CallHold {
 public:
  explicit CallHold(std::shared_ptr<CallbackRecord> record) REQUIRES(table_lock)
      : record_(std::move(record)) {
    ++record_->calls;
  }
  CallHold(CallHold&& other) noexcept = default;
  CallHold& operator=(CallHold&&) = delete;
  ~CallHold();

  [[nodiscard]] const CallbackRecord& record() const { return *record_; }

 private:
  std::shared_ptr<CallbackRecord> record_;  // null once it has been moved away
};

// Holds, each with its record.
template <typename Record>
using Holds = std::vector<std::pair<CallHold, const Record*>>;

// One hold for each record of a table that `wanted` gives true for, in their order.
template <typename Record, typename Predicate>
Holds<Record> hold_calls(const Table<Record> ClientState::*table, Predicate wanted) {
  const auto is_wanted = [&](const std::shared_ptr<Record>& record) { return wanted(*record); };
  Holds<Record> holds;
  const MutexLock lock(table_lock);
  const Table<Record>& records = client.*table;
  // No hold may end under the lock, as it would if there were no memory for the next.
  holds.reserve(static_cast<std::size_t>(std::count_if(records.begin(), records.end(), is_wanted)));
  for (const std::shared_ptr<Record>& record : records) {
    if (is_wanted(record)) holds.emplace_back(CallHold(record), record.get());
  }
  return holds;
}

template <typename Record>
Holds<Record> hold_all_calls(const Table<Record> ClientState::*table) {
  return hold_calls(table, [](const Record&) { return true; });
}

// The record that this thread is a call of; null if it is none.
extern thread_local const CallbackRecord* own_call;

// Whether no call of the record runs but the one that this thread may be in, which cannot
// wait for its own end.
bool calls_have_ended(const CallbackRecord& record) REQUIRES(table_lock);

// Waits for that. The record has left its table.
void wait_for_calls(const CallbackRecord& record);

}  // namespace zedipc
