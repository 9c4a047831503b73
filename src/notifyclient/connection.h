// SPDX-License-Identifier: MIT
// The client's connection to the server, and the messages that go out on it.
#pragma once

#include <cstdint>
#include <string>

#include <zedipc/ipc.h>

namespace zedipc {

// Makes sure that there is a connection, blocking as long as the system's TCP does.
// The caller does not hold table_lock.
bool ensure_connected();

struct SendResult {
  bool sent;
  const char* reason;   // "", "NO IPC", "ERROR" or "EOF", for the log
  const void* ipc;      // the connection used, for the log alone: it may be gone
  std::uint32_t epoch;  // the connection's
};

// In the place of a connection: the one that stands when the message is written.
constexpr IPC* kCurrentConnection = nullptr;

// Writes one message on `connection`. Logs nothing; a failure leaves the connection to
// its reader.
SendResult send_to_server(IPC* connection, const std::string& message);
// The same, and logs a failure as the function's.
SendResult send_or_log(const char* function, IPC* connection, const std::string& message);

// Tell the server of a group (to, notification) of this client. Log a failure.
SendResult register_client(IPC* connection, const std::string& to, const std::string& notification,
                           int priority);
SendResult unregister_client(IPC* connection, const std::string& to,
                             const std::string& notification);

// Handles what the server sends, until the connection is lost; then ends and deletes it.
// Called on the one thread that reads from the connection.
void serve_connection();

// The thread function of a connection's reader; see reader.cpp.
void* reader_thread(void*);

}  // namespace zedipc
