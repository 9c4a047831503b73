// SPDX-License-Identifier: MIT
// Messages that the reader sends back to the server, since nobody here takes them. It never
// waits for that: the server may be waiting for the reader.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "notifyclient/client_state.h"

namespace zedipc {

struct Returned {
  std::string text;
  std::string notification;
  LogLevel level;   // of the line that says so,
  const char* why;  // and its reason
};

// Those of one connection.
class ReturnQueue {
 public:
  explicit ReturnQueue(Connection& connection) : connection_(connection) {}

  // For the reader alone. Sends the message back, which had this destination: here, where
  // nothing has to be waited for, else on another thread, in the order of the calls.
  void give_back(const std::string& to, Returned message);

  // For the reader at the connection's end: forgets what is left, and waits for that thread,
  // whose writes fail.
  void end() REQUIRES(table_lock);

  // Sends what the connection in use has kept while it was being made, or for an
  // unregistration that is over now.
  static void resume();

 private:
  static void* send_all(void* queue);
  bool take_turn() REQUIRES(table_lock);
  void start_sending();
  bool push(Returned& message) REQUIRES(table_lock);
  bool send_at_once(const Returned& message);

  Connection& connection_;
  std::deque<Returned> queue_ GUARDED_BY(table_lock);
  std::size_t size_ GUARDED_BY(table_lock) = 0;  // bytes of memory in it
  bool sending_ GUARDED_BY(table_lock) = false;  // a thread does
};

}  // namespace zedipc
