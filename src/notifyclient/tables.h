// SPDX-License-Identifier: MIT
// Changes to the client's tables.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>

#include "notifyclient/client_state.h"

namespace zedipc {

// Takes the records for which `leaves` gives true out of a table.
template <typename Record, typename Predicate>
Table<Record> take_out(Table<Record>& table, Predicate leaves) REQUIRES(table_lock) {
  const auto goes = [&](const std::shared_ptr<Record>& record) { return leaves(*record); };
  Table<Record> taken;
  std::copy_if(table.begin(), table.end(), std::back_inserter(taken), goes);
  if (taken.empty()) return taken;
  table.erase(std::remove_if(table.begin(), table.end(), goes), table.end());
  ++client.table_changes;
  return taken;
}

// Puts one record in the place of another; null stands for none. Gives the number of
// connections so far: one that comes later knows of the change.
template <typename Record>
std::uint32_t replace(Table<Record>& table, const std::shared_ptr<Record>& former,
                      const std::shared_ptr<Record>& record) REQUIRES(table_lock) {
  const auto place = std::find(table.begin(), table.end(), former);
  if (place == table.end()) {
    table.push_back(record);
  } else if (record != nullptr) {
    *place = record;
  } else {
    table.erase(place);
  }
  ++client.table_changes;
  return client.connections.load(std::memory_order_relaxed);
}

}  // namespace zedipc
