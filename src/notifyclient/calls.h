// SPDX-License-Identifier: MIT
// Calls of callbacks, each on a thread of its own, and waiting for their end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <zedipc/jsobject.h>

#include "notifyclient/client_state.h"
#include "protocol/message.h"

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
  const Records<Record>& records = (client.*table).records;
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

// All that a call uses, from the thread that decides on it to the thread that makes it. The
// hold comes first and so goes last: whoever waits for the record's calls then knows that
// this one has wholly ended.
struct CBParameters {
  CallHold hold;
  NotificationCallback callback;  // null for an observer
  ObserverCallback observer;      // null otherwise
  std::string from;
  std::string to;
  std::string notification;
  JSObject parameter;
  unsigned int flags;
};

// Starts the thread, and hands the block over to it. If there can be no thread the call is
// lost, and the block freed.
void async_cb(std::unique_ptr<CBParameters> parameters);

// Starts the call that `hold` stands for, of a record with this callback, with copies of
// everything but the parameter, which it takes: whoever has no more use for it gives it
// away, since it can be large.
void start_call(CallHold hold, NotificationCallback callback, const Headline& headline,
                JSObject parameter);
void start_call(CallHold hold, ObserverCallback observer, const Headline& headline);

// Whether this thread is making a call, which cannot wait for its own end.
bool in_call();

// Whether no call of the record runs but the one that this thread may be in.
bool calls_have_ended(const CallbackRecord& record) REQUIRES(table_lock);

// Waits for that. The record has left its table.
void wait_for_calls(const CallbackRecord& record);

}  // namespace zedipc
