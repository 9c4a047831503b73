// SPDX-License-Identifier: MIT
// What the server sends: which callbacks are to run, and what goes back.
#include <unistd.h>

#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <zedipc/jsobject.h>

#include "notifyclient/client_state.h"
#include "notifyclient/connection.h"
#include "notifyclient/invocation.h"
#include "protocol/message.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

constexpr unsigned int kReconnectPause = 10;  // seconds

// The reader's own connection, which nobody else deletes.
IPC* connection() { return client.server_ipc.load(std::memory_order_acquire); }

void log_received(const char* what, const Headline& in, const JSObject& parameter) {
  if (!dbg_log_enabled(kLogInfo)) return;
  const std::string text = parameter.dump();
  ZEDIPC_CLIENT_LOG(kLogInfo,
                    "reader_thread(): ipc=%p received %s '%s' (from='%s', to='%s', para='%s', "
                    "flags=%u)\n",
                    static_cast<void*>(connection()), what, in.notification.c_str(),
                    in.from.c_str(), in.to.c_str(), text.c_str(), in.flags);
}

// An observer has no parameter.
template <typename Record, typename... Parameter>
void invoke(const char* kind, Record& record, const Call& call, Parameter&&... parameter) {
  ZEDIPC_CLIENT_LOG(
      kLogNote,
      "reader_thread(): invoke %s callback (cb=%p, data=%p) for notification '%s' to '%s'\n", kind,
      printable(record.cb), record.data, call.notification.c_str(), call.to.c_str());
  start_invocation(record, call, std::forward<Parameter>(parameter)...);
}

// The server looks for somebody else, or tells the sender that there is nobody.
void send_back(Message& message, LogLevel level, const char* why) {
  send_or_log("reader_thread", kCurrentConnection, message.text());
  ZEDIPC_CLIENT_LOG(level,
                    "reader_thread(): returned notification '%s' back to server, since no %s\n",
                    message.notification().c_str(), why);
}

// The record with the highest priority that the message is for, the latest of equal
// ones; null if there is none.
NotificationRecord* find_best(const NotificationTable& table, const Headline& in) {
  NotificationRecord* best = nullptr;
  std::int32_t best_priority = std::numeric_limits<std::int32_t>::min();
  for (NotificationRecord* const record : table) {
    if (record->notification != in.notification) continue;
    if (in.to != kToHighestPriority && in.to != record->to) continue;
    if (record->priority < best_priority) continue;
    best = record;
    best_priority = record->priority;
  }
  return best;
}

// The last one gets the parameter itself, and only those before it a copy.
void invoke_all(const NotificationTable& table, const Headline& in, JSObject& parameter) {
  NotificationRecord* last = nullptr;
  for (NotificationRecord* const record : table) {
    if (record->notification != in.notification) continue;
    if (last != nullptr) invoke("notification", *last, in, parameter);
    last = record;
  }
  if (last != nullptr) invoke("notification", *last, in, std::move(parameter));
}

bool is_for_nobody(const NotificationTable& table, const Headline& in) {
  return in.to != kToAll && find_best(table, in) == nullptr;
}

void invoke_receivers(const NotificationTable& table, const Headline& in, JSObject& parameter) {
  if (in.to == kToAll) {
    invoke_all(table, in, parameter);
  } else {
    invoke("notification", *find_best(table, in), in, std::move(parameter));
  }
}

void handle_notification(Message& message) {
  const std::lock_guard<std::mutex> lock(client.table_lock);
  const auto& table = lazy_table(client.notification_table);
  if (table.empty()) {
    send_back(message, kLogNote, "client registered");
    return;
  }
  const Headline in = message.headline();
  JSObject& parameter = message.parameter();
  log_received("notification", in, parameter);
  if (is_for_nobody(table, in)) {
    send_back(message, kLogWarning, "matching client");
  } else {
    invoke_receivers(table, in, parameter);
  }
}

void handle_unicast_error(Message& message) {
  const std::lock_guard<std::mutex> lock(client.table_lock);
  const auto& table = lazy_table(client.unicast_error_table);
  if (table.empty()) {
    ZEDIPC_CLIENT_LOG(kLogWarning,
                      "reader_thread(): ipc=%p received unicast error for notification '%s', but "
                      "no client registered\n",
                      static_cast<void*>(connection()), message.notification().c_str());
    return;
  }
  const Headline in = message.headline();
  const JSObject& parameter = message.parameter();
  log_received("unicast error for notification", in, parameter);
  for (UnicastErrorRecord* const record : table) invoke("unicast error", *record, in, parameter);
}

void handle_observation(Message& message) {
  const std::lock_guard<std::mutex> lock(client.table_lock);
  const auto& table = lazy_table(client.observer_table);
  if (table.empty()) return;  // the last one went while this was on its way
  const Headline in = message.headline();
  for (ObserverRecord* const record : table) invoke("observer", *record, in);
}

void handle_message(Message& message) {
  switch (message.type()) {
    case MessageType::kNotify:
      return handle_notification(message);
    case MessageType::kUnicastError:
      return handle_unicast_error(message);
    case MessageType::kNotifyObserver:
      return handle_observation(message);
    default:
      return;
  }
}

void tear_down() {
  // Deleted without the lock: a channel that ends waits for a channel callback that is
  // running, and that one may want to send.
  std::unique_ptr<IPC> lost(connection());
  const std::lock_guard<std::mutex> lock(client.send_lock);
  ZEDIPC_CLIENT_LOG(kLogError, "reader_thread(): read_msg() on ipc=%p failed (%s), terminate.\n",
                    static_cast<void*>(lost.get()), lost->eof() ? "EOF" : "ERROR");
  client.server_ipc.store(nullptr, std::memory_order_release);
  pthread_cond_signal(&client.reconnect_cond);
}

}  // namespace

// Runs no code of the application's.
void serve_connection() {
  std::string text;
  int msg_tag = 0;
  while (connection()->read_msg(NOTIFY_FRAME_ID, msg_tag, text, NOTIFY_MAX_MSG, -1)) {
    Message message(text, Message::Parameter::kRead);
    handle_message(message);
  }
  tear_down();
}

// Every reader has a connection of its own; when that is lost it stays until a new one
// stands, which then has a reader of its own.
void* reader_thread(void* /*unused*/) {
  const LogChannelScope scope(kLogNotifyClient);
  serve_connection();
  do {
    sleep(kReconnectPause);
  } while (!ensure_connected());
  return nullptr;
}

}  // namespace zedipc
