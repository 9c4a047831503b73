// SPDX-License-Identifier: MIT
// Changes to the client's tables. A record that leaves one is kept while calls of it run: who
// unregisters a callback waits for all of its calls, whoever took it out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

#include "notifyclient/calls.h"

namespace zedipc {

// Forgets what has left the table and has no more calls, and makes room for more.
template <typename Record>
void prepare_to_leave(Table<Record>& table, std::size_t count) REQUIRES(table_lock) {
  const auto ended = [](const std::shared_ptr<Record>& record)
                         REQUIRES(table_lock) { return record->calls == 0; };
  table.left.erase(std::remove_if(table.left.begin(), table.left.end(), ended), table.left.end());
  table.left.reserve(table.left.size() + count);
}

template <typename Record>
struct Removal {
  std::size_t count;         // of records that left the table
  Records<Record> to_await;  // whose calls may still run
};

// Takes the records for which `leaves` gives true out of a table. The calls of those that had
// left it before are to be awaited too, but not by a call: that one may be awaiting this.
template <typename Record, typename Predicate>
Removal<Record> take_out(Table<Record>& table, Predicate leaves) REQUIRES(table_lock) {
  const auto goes = [&](const std::shared_ptr<Record>& record) { return leaves(*record); };
  Removal<Record> removal{};
  Records<Record>& to_await = removal.to_await;
  prepare_to_leave(table, table.records.size());
  if (!in_call()) {
    std::copy_if(table.left.begin(), table.left.end(), std::back_inserter(to_await), goes);
  }
  const std::size_t before = to_await.size();
  std::copy_if(table.records.begin(), table.records.end(), std::back_inserter(to_await), goes);
  removal.count = to_await.size() - before;
  if (removal.count == 0) return removal;
  table.left.insert(table.left.end(), to_await.end() - static_cast<std::ptrdiff_t>(removal.count),
                    to_await.end());
  table.records.erase(std::remove_if(table.records.begin(), table.records.end(), goes),
                      table.records.end());
  ++client.table_changes;
  return removal;
}

// Puts one record in the place of another; null stands for none.
template <typename Record>
void replace(Table<Record>& table, const std::shared_ptr<Record>& former,
             const std::shared_ptr<Record>& record) REQUIRES(table_lock) {
  prepare_to_leave(table, 2);  // so that the change can be taken back without memory
  const auto place = std::find(table.records.begin(), table.records.end(), former);
  if (place == table.records.end()) {
    table.records.push_back(record);
  } else {
    table.left.push_back(former);
    if (record != nullptr) {
      *place = record;
    } else {
      table.records.erase(place);
    }
  }
  ++client.table_changes;
}

}  // namespace zedipc
