// SPDX-License-Identifier: MIT
#include "notifyclient/connection.h"

#include <pthread.h>

#include <memory>

#include <zedipc/tcp.h>

#include "log/env.h"
#include "notifyclient/client_state.h"
#include "notifyclient/tables.h"
#include "protocol/message.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

constexpr char kDefaultHost[] = "127.0.0.1";
constexpr SendResult kNoIpc = {false, "NO IPC", nullptr, 0};

bool has_connection() { return client.server_ipc.load(std::memory_order_acquire) != nullptr; }

// By the host's spelling alone: the server knows its own clients of this machine by
// the address that exactly these two names stand for.
bool is_this_machine(const std::string& host) {
  return host == kDefaultHost || host == "localhost";
}

bool tell_registration(IPC* channel, const Restoration::Registered& record) {
  if (register_client(channel, record.to, record.notification, record.priority).sent) return true;
  ZEDIPC_CLIENT_LOG(kLogError,
                    "init(): error while transmitting old registration (to='%s', "
                    "notification='%s', cb=%p, data=%p, prio=%d)\n",
                    record.to.c_str(), record.notification.c_str(), printable(record.cb),
                    record.data, record.priority);
  return false;
}

bool tell(IPC* channel, const Restoration::News& news) {
  for (const auto& group : news.removed) {
    if (!unregister_client(channel, group.first, group.second).sent) return false;
  }
  for (const auto& record : news.registered) {
    if (!tell_registration(channel, record)) return false;
  }
  return news.observer_message.empty() || send_or_log("init", channel, news.observer_message).sent;
}

// Tells the server of all registrations, and only then lets other threads use the
// channel.
bool restore_and_publish(IPC* channel) {
  Restoration restoration;
  Restoration::News news;
  while (!restoration.publish(channel, news)) {
    if (!tell(channel, news)) return false;
  }
  return true;
}

// A connection without a reader stays one: there is nobody to tell of the failure.
void start_reader() {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  pthread_create(&thread, &attributes, reader_thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// A connection that may come to nothing.
struct Attempt {
  std::string host;
  std::unique_ptr<TCP> channel;
  bool connected = false;
};

// Connects to the host that the environment names, which is asked anew each time, and
// restores. The caller holds connect_lock.
bool init(Attempt& attempt) {
  if (has_connection()) return true;
  std::string& name = attempt.host;
  if (!env_lookup("NOTIFY_SERVER", name)) name = kDefaultHost;
  client.remote_client.store(!is_this_machine(name), std::memory_order_relaxed);

  attempt.channel = std::make_unique<TCP>();
  attempt.connected = attempt.channel->connect(name.c_str(), NOTIFY_PORT, -1);
  if (!attempt.connected || !restore_and_publish(attempt.channel.get())) return false;
  const void* const address = attempt.channel.release();  // its reader thread deletes it
  start_reader();
  ZEDIPC_CLIENT_LOG(
      kLogInfo, "init(): IPC reader thread with ipc=%p started for notification server '%s:%u'\n",
      address, name.c_str(), NOTIFY_PORT);
  return true;
}

// Sends one message about a group; without a connection the failure has words of its
// own.
SendResult tell_group(const char* function, IPC* connection, const std::string& message) {
  if (connection == kCurrentConnection && !has_connection()) {
    ZEDIPC_CLIENT_LOG(kLogError, "%s(): failed (NO IPC)\n", function);
    return kNoIpc;
  }
  return send_or_log(function, connection, message);
}

}  // namespace

bool ensure_connected() {
  if (has_connection()) return true;
  Attempt attempt;
  {
    const std::lock_guard<std::mutex> lock(client.connect_lock);
    if (init(attempt)) return true;
  }
  // Without the lock: a channel that ends waits for a channel callback that is running,
  // and that one may want to connect too.
  attempt.channel.reset();
  if (!attempt.connected) {
    ZEDIPC_CLIENT_LOG(kLogError, "init(): TCP connect() to server '%s:%u' failed\n",
                      attempt.host.c_str(), NOTIFY_PORT);
  }
  return false;
}

SendResult send_to_server(IPC* connection, const std::string& message) {
  const std::lock_guard<std::mutex> lock(client.send_lock);
  IPC* const ipc = connection != kCurrentConnection
                       ? connection
                       : client.server_ipc.load(std::memory_order_acquire);
  if (ipc == nullptr) return kNoIpc;
  const std::uint32_t epoch = client.connection_epoch.load(std::memory_order_relaxed);
  if (ipc->write_msg(NOTIFY_FRAME_ID, NOTIFY_FRAME_TAG, message)) return {true, "", ipc, epoch};
  return {false, ipc->eof() ? "EOF" : "ERROR", ipc, epoch};
}

SendResult send_or_log(const char* function, IPC* connection, const std::string& message) {
  const SendResult result = send_to_server(connection, message);
  if (!result.sent) {
    ZEDIPC_CLIENT_LOG(kLogError, "%s(): write_msg() on ipc=%p failed (%s), msg=%s\n", function,
                      result.ipc, result.reason, message.c_str());
  }
  return result;
}

SendResult register_client(IPC* connection, const std::string& to, const std::string& notification,
                           int priority) {
  return tell_group("register_client", connection, register_text(to, notification, priority));
}

SendResult unregister_client(IPC* connection, const std::string& to,
                             const std::string& notification) {
  return tell_group("unregister_client", connection, unregister_text(to, notification));
}

}  // namespace zedipc
