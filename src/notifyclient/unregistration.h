// SPDX-License-Identifier: MIT
// An unregistration between the removal of its records and its message to the server.
#pragma once

#include <string>

#include "notifyclient/client_state.h"

namespace zedipc {

// The server is told when the running calls of what was removed have ended. What it sends
// for the group until then finds nobody and would go back and come again for as long as a
// callback runs; so the first such message has the server told at once.
class Unregistration {
 public:
  // Takes the group's records of this callback and data, as ipcUnregisterNotificationCB has
  // them, out of the table. The texts outlive the object.
  Unregistration(const std::string& to, const std::string& notification, NotificationCallback cb,
                 const void* data);
  // The server has been told. Sends back what has come for the group, and waits for calls
  // that still run.
  ~Unregistration();
  Unregistration(const Unregistration&) = delete;
  Unregistration& operator=(const Unregistration&) = delete;

  // Waits for the end of the calls, or for a message for the group.
  void wait();

  // Has the server told by those that a message with this destination is for. False if
  // there is none.
  static bool hurry(const std::string& to, const std::string& notification) REQUIRES(table_lock);

 private:
  const std::string& to_;
  const std::string& notification_;
  Records<NotificationRecord> to_await_;
  bool hurried_ GUARDED_BY(table_lock) = false;
};

// Whether the arguments of an unregister function name this record. A null callback names
// all of them, a null `data` any.
template <typename Record, typename Callback>
bool matches(const Record& record, Callback cb, const void* data) {
  if (cb == nullptr) return true;
  return record.cb == cb && (data == nullptr || record.data == data);
}

}  // namespace zedipc
