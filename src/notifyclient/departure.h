// SPDX-License-Identifier: MIT
// An unregistration between the removal of its records and its message to the server.
#pragma once

#include <string>

#include "notifyclient/calls.h"
#include "notifyclient/tables.h"

namespace zedipc {

// The server is told when the running calls of what was removed have ended. What it sends
// for the group until then finds nobody and would go back and come again for as long as a
// callback runs; so the first such message has the server told at once.
class Departure {
 public:
  // Takes the group's records for which `leaves` gives true out of the client's table.
  template <typename Predicate>
  Departure(const std::string& to, const std::string& notification, Predicate leaves)
      : to_(to), notification_(notification) {
    const MutexLock changing(client.registration_lock);
    const MutexLock lock(table_lock);
    client.departures.push_back(this);
    try {
      records_ = take_out(client.notification_table, leaves);
    } catch (...) {
      client.departures.pop_back();
      throw;
    }
  }
  // The server has been told. Sends back what has come for the group, and waits for calls
  // that still run.
  ~Departure();
  Departure(const Departure&) = delete;
  Departure& operator=(const Departure&) = delete;

  // Waits for the end of the calls, or for a message for the group.
  void wait();

  // Has the server told of the departure that a message with this destination is for.
  // False if there is none.
  static bool call(const std::string& to, const std::string& notification) REQUIRES(table_lock);

 private:
  const std::string& to_;
  const std::string& notification_;
  Table<NotificationRecord> records_;
  bool called_ GUARDED_BY(table_lock) = false;
};

}  // namespace zedipc
