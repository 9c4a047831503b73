// SPDX-License-Identifier: MIT
// Messages that the reader sends back to the server, since nobody here takes them. It never
// waits for that: the server may be waiting for the reader.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include <zedipc/tcp.h>

#include "notifyclient/client_state.h"

namespace zedipc {

struct Returned {
  std::string text;
  std::string notification;
  LogLevel level;   // of the line that says so,
  const char* why;  // and its reason
};

// Those of one connection.
class Returns {
 public:
  explicit Returns(TCP& channel) : channel_(channel) {}

  // For the reader alone. Sends the message back, which had this destination: here, where
  // nothing has to be waited for, else on another thread, in the order of the calls.
  void give_back(const std::string& to, Returned message);

  // For the reader at the connection's end, whose socket is shut down.
  void await_end() REQUIRES(table_lock);

  // Sends what the connection in use has kept for a departure, which is over now.
  static void resume();

 private:
  static void* send_all(void* returns);
  bool claim() REQUIRES(table_lock);
  void start();
  bool push(Returned& message) REQUIRES(table_lock);
  bool send_at_once(const Returned& message);
  void send(const Returned& message);

  TCP& channel_;
  std::deque<Returned> queue_ GUARDED_BY(table_lock);
  std::size_t size_ GUARDED_BY(table_lock) = 0;  // bytes of text in it
  bool sending_ GUARDED_BY(table_lock) = false;  // a thread does
};

}  // namespace zedipc
