// SPDX-License-Identifier: MIT
// Connecting to the server, and writing to it.
#include "notifyclient/connection.h"

#include <sys/socket.h>

#include <utility>

#include "base/thread.h"
#include "log/log.h"
#include "notifyclient/restoration.h"
#include "protocol/message.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

constexpr char kDefaultHost[] = "127.0.0.1";

bool has_connection() { return client.server_ipc.load(std::memory_order_acquire) != nullptr; }

// By the host's spelling alone: the server knows its own clients of this machine by
// the address that exactly these two names stand for.
bool is_this_machine(const std::string& host) {
  return host == kDefaultHost || host == "localhost";
}

// Ahead of anything that is sent: the server may write before it reads on.
bool start_reader(Connection& connection) {
  const ThreadStart start = start_thread(reader_thread, &connection, &connection.reader);
  connection.has_reader = start.error == 0;
  if (connection.has_reader) return true;
  ZEDIPC_CLIENT_LOG(kLogError, "init(): %s() failed with error=%d\n", start.call, start.error);
  return false;
}

// Ends a connection that did not come into use, when its reader has left it.
struct GiveUp {
  void operator()(Connection* connection) const {
    shut_down(connection->channel);
    {
      const MutexLock lock(table_lock);
      connection->stage = Connection::Stage::kGivenUp;
      client.changed.notify_all();
    }
    if (connection->has_reader) pthread_join(connection->reader, nullptr);
    delete connection;
  }
};

// Connects to the host that the environment names, which is asked anew each time, and
// restores the registrations.
bool init() REQUIRES(client.connect_lock) {
  if (has_connection()) return true;
  std::string host;
  if (!env_lookup("NOTIFY_SERVER", host)) host = kDefaultHost;
  client.remote_client.store(!is_this_machine(host), std::memory_order_relaxed);

  std::unique_ptr<Connection, GiveUp> connection(new Connection);
  const void* const address = &connection->channel;
  if (!connection->channel.connect(host.c_str(), NOTIFY_PORT, -1)) {
    connection.reset();
    ZEDIPC_CLIENT_LOG(kLogError, "init(): TCP connect() to server '%s:%u' failed\n", host.c_str(),
                      NOTIFY_PORT);
    return false;
  }
  if (!start_reader(*connection)) return false;
  const pthread_t reader = connection->reader;
  if (!restore_and_publish(*connection)) return false;
  static_cast<void>(connection.release());  // its reader frees it, and may have done so
  pthread_detach(reader);
  ReturnQueue::resume();
  ZEDIPC_CLIENT_LOG(
      kLogInfo, "init(): IPC reader thread with ipc=%p started for notification server '%s:%u'\n",
      address, host.c_str(), NOTIFY_PORT);
  return true;
}

}  // namespace

bool ensure_connected() {
  if (has_connection()) return true;
  const MutexLock lock(client.connect_lock);
  return init();
}

void shut_down(const IPC& channel) { ::shutdown(channel.getFD(), SHUT_RDWR); }

SendResult send_to_server(Connection* connection, const std::string& message) {
  const MutexLock lock(client.send_lock);
  if (connection == kCurrentConnection) {
    connection = client.server_ipc.load(std::memory_order_acquire);
  }
  if (connection == nullptr) return {false, "NO IPC", nullptr};
  return write_message(connection->channel, message);
}

SendResult write_message(IPC& channel, const std::string& message) {
  if (channel.write_msg(NOTIFY_FRAME_ID, NOTIFY_FRAME_TAG, message)) return {true, "", &channel};
  return {false, channel.eof() ? "EOF" : "ERROR", &channel};
}

void log_failure(const char* function, const SendResult& result, const std::string& message) {
  if (result.sent) return;
  ZEDIPC_CLIENT_LOG(kLogError, "%s(): write_msg() on ipc=%p failed (%s), msg=%s\n", function,
                    result.ipc, result.reason, message.c_str());
}

SendResult send_or_log(const char* function, Connection* connection, const std::string& message) {
  const SendResult result = send_to_server(connection, message);
  log_failure(function, result, message);
  return result;
}

bool tell_group(const char* function, Connection* connection, const std::string& message) {
  if (connection == kCurrentConnection && !has_connection()) {
    ZEDIPC_CLIENT_LOG(kLogError, "%s(): failed (NO IPC)\n", function);
    return false;
  }
  return send_or_log(function, connection, message).sent;
}

bool register_client(Connection* connection, const std::string& to, const std::string& notification,
                     std::int32_t priority) {
  return tell_group("register_client", connection, register_text(to, notification, priority));
}

bool unregister_client(Connection* connection, const std::string& to,
                       const std::string& notification) {
  return tell_group("unregister_client", connection, unregister_text(to, notification));
}

}  // namespace zedipc
