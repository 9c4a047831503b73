// SPDX-License-Identifier: MIT
// The client's connection to the server, and what goes out on it.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <zedipc/tcp.h>

#include "notifyclient/client_state.h"
#include "notifyclient/return_queue.h"

namespace zedipc {

// A connection from its making to its end. Its reader frees it, unless it was given up: then
// whoever made it does.
struct Connection {
  enum class Stage { kBeingMade, kInUse, kGivenUp };

  explicit Connection(std::unique_ptr<TCP> made = std::make_unique<TCP>())
      : owned(std::move(made)) {}

  const std::unique_ptr<TCP> owned;
  TCP& channel = *owned;
  ReturnQueue returns{*this};
  Stage stage GUARDED_BY(table_lock) = Stage::kBeingMade;
  // For whoever makes it.
  bool has_reader = false;
  pthread_t reader{};
};

// Ends the socket under whoever reads or writes on it.
void shut_down(const IPC& channel);

// Makes sure that there is a connection, blocking as long as the system's TCP does. The
// caller holds none of the client's locks.
bool ensure_connected();

struct SendResult {
  bool sent;
  const char* reason;  // "", "NO IPC", "ERROR" or "EOF", for the log
  const void* ipc;     // the channel used, for the log alone: it may be gone
};

// In the place of a connection: the one in use when the message is written.
constexpr Connection* kCurrentConnection = nullptr;

// Writes one message. Logs nothing; a failure leaves the connection to its reader.
SendResult send_to_server(Connection* connection, const std::string& message);
SendResult write_message(IPC& channel, const std::string& message) REQUIRES(client.send_lock);

// Logs a failure, if it is one, as the function's.
void log_failure(const char* function, const SendResult& result, const std::string& message);
SendResult send_or_log(const char* function, Connection* connection, const std::string& message);

// Tell the server of a group (to, notification) of this client, by a text that is there
// already or by one that they make. Log a failure.
bool tell_group(const char* function, Connection* connection, const std::string& message);
bool register_client(Connection* connection, const std::string& to, const std::string& notification,
                     std::int32_t priority);
bool unregister_client(Connection* connection, const std::string& to,
                       const std::string& notification);

// Handles what the server sends, to the end of the connection. False if it was given up before
// it came into use. See reader.cpp.
bool serve_connection(Connection& connection);

// The thread function of a connection's reader.
void* reader_thread(void* connection);

}  // namespace zedipc
