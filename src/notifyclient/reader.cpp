// SPDX-License-Identifier: MIT
// What the server sends: which callbacks are to run, and what goes back. The reader runs no
// code of the application's and waits for nobody but the server.
#include <unistd.h>

#include <limits>
#include <memory>
#include <string>
#include <utility>

#include <zedipc/jsobject.h>

#include "notifyclient/calls.h"
#include "notifyclient/client_state.h"
#include "notifyclient/connection.h"
#include "protocol/idle.h"
#include "protocol/message.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

constexpr unsigned int kReconnectPause = 10;  // seconds

void log_received(const Connection& connection, const char* what, const Headline& in,
                  Message& message) {
  if (!dbg_log_enabled(kLogInfo)) return;
  const std::string text = message.parameter().dump();
  ZEDIPC_CLIENT_LOG(kLogInfo,
                    "reader_thread(): ipc=%p received %s '%s' (from='%s', to='%s', para='%s', "
                    "flags=%u)\n",
                    static_cast<const void*>(&connection.channel), what, in.notification.c_str(),
                    in.from.c_str(), in.to.c_str(), text.c_str(), in.flags);
}

// An observer has no parameter.
template <typename Record, typename... Parameter>
void invoke(const char* kind, CallHold hold, const Record& record, const Headline& in,
            Parameter&&... parameter) {
  ZEDIPC_CLIENT_LOG(
      kLogNote,
      "reader_thread(): invoke %s callback (cb=%p, data=%p) for notification '%s' to '%s'\n", kind,
      printable(record.cb), record.data, in.notification.c_str(), in.to.c_str());
  start_call(std::move(hold), record.cb, in, std::forward<Parameter>(parameter)...);
}

using Receivers = Holds<NotificationRecord>;

// The record with the highest priority that the message is for, the latest of equal
// ones; null if there is none.
std::shared_ptr<NotificationRecord> find_best(const Headline& in) REQUIRES(table_lock) {
  const std::shared_ptr<NotificationRecord>* best = nullptr;
  std::int32_t best_priority = std::numeric_limits<std::int32_t>::min();
  for (const auto& record : client.notification_table.records) {
    if (record->notification != in.notification) continue;
    if (in.to != kToHighestPriority && in.to != record->to) continue;
    if (record->priority < best_priority) continue;
    best = &record;
    best_priority = record->priority;
  }
  return best == nullptr ? nullptr : *best;
}

Receivers find_receivers(const Headline& in) {
  if (in.to == kToAll) {
    return hold_calls(&ClientState::notification_table, [&](const NotificationRecord& record) {
      return record.notification == in.notification;
    });
  }
  Receivers receivers;
  receivers.reserve(1);
  const MutexLock lock(table_lock);
  if (const auto best = find_best(in)) receivers.emplace_back(CallHold(best), best.get());
  return receivers;
}

bool nothing_registered() {
  const MutexLock lock(table_lock);
  return client.notification_table.records.empty();
}

void handle_notification(Connection& connection, Message& message) {
  if (nothing_registered()) {
    // Written before a member is read, which would make it.
    std::string text = message.text();
    const Headline in = message.headline();
    connection.returns.give_back(in.to,
                                 {std::move(text), in.notification, kLogNote, "client registered"});
    return;
  }
  const Headline in = message.headline();
  JSObject& parameter = message.parameter();
  Receivers receivers = find_receivers(in);
  log_received(connection, "notification", in, message);
  if (receivers.empty() && in.to != kToAll) {
    connection.returns.give_back(in.to,
                                 {message.text(), in.notification, kLogWarning, "matching client"});
    return;
  }
  const auto call = [&in](auto& receiver, JSObject value) {
    invoke("notification", std::move(receiver.first), *receiver.second, in, std::move(value));
  };
  // The last one gets the parameter itself, and only those before it a copy.
  for (std::size_t i = 0; i + 1 < receivers.size(); ++i) call(receivers[i], parameter);
  if (!receivers.empty()) call(receivers.back(), std::move(parameter));
}

void handle_unicast_error(Connection& connection, Message& message) {
  auto receivers = hold_all_calls(&ClientState::unicast_error_table);
  if (receivers.empty()) {
    ZEDIPC_CLIENT_LOG(kLogWarning,
                      "reader_thread(): ipc=%p received unicast error for notification '%s', but "
                      "no client registered\n",
                      static_cast<void*>(&connection.channel), message.notification().c_str());
    return;
  }
  const Headline in = message.headline();
  log_received(connection, "unicast error for notification", in, message);
  for (auto& [hold, record] : receivers) {
    invoke("unicast error", std::move(hold), *record, in, message.parameter());
  }
}

void handle_observation(Message& message) {
  auto observers = hold_all_calls(&ClientState::observer_table);
  if (observers.empty()) return;  // the last one went while this was on its way
  const Headline in = message.headline();
  for (auto& [hold, record] : observers) invoke("observer", std::move(hold), *record, in);
}

void handle_text(Connection& connection, const std::string& text) {
  Message message(text, Message::Parameter::kRead);
  if (message.type() == kTypeNotify) {
    handle_notification(connection, message);
  } else if (message.type() == kTypeUnicastError) {
    handle_unicast_error(connection, message);
  } else if (message.type() == kTypeNotifyObserver) {
    handle_observation(message);
  }
}

// A refused frame leaves the server in a write, and a thread of ours perhaps in one too. A
// server that has ended its stream may still read, and gets what is being written.
void end_writes(Connection& connection) {
  if (!connection.channel.eof()) shut_down(connection.channel);
}

// False if the connection was given up before it came into use.
bool came_into_use(Connection& connection) {
  const MutexLock lock(table_lock);
  if (connection.stage == Connection::Stage::kBeingMade) end_writes(connection);
  while (connection.stage == Connection::Stage::kBeingMade) client.changed.wait(table_lock);
  return connection.stage == Connection::Stage::kInUse;
}

// The socket is closed before anybody can write on another connection: the server never has
// two of one client in use, nor is it left in a write to one that nobody reads.
void tear_down(Connection& connection) {
  if (!client.send_lock.try_lock()) {
    end_writes(connection);
    client.send_lock.lock();
  }
  ZEDIPC_CLIENT_LOG(kLogError, "reader_thread(): read_msg() on ipc=%p failed (%s), terminate.\n",
                    static_cast<void*>(&connection.channel),
                    connection.channel.eof() ? "EOF" : "ERROR");
  {
    const MutexLock lock(table_lock);
    client.server_ipc.store(nullptr, std::memory_order_release);
  }
  connection.channel.close();
  client.send_lock.unlock();
}

// Whether this thread is the one that tries to connect again.
bool become_reconnector() {
  const MutexLock lock(table_lock);
  return !std::exchange(client.reconnecting, true);
}

// Ceases if there is a connection. A reader that loses it now either becomes the reconnector,
// or its loss is seen here.
bool cease_to_reconnect() {
  const MutexLock lock(table_lock);
  if (client.server_ipc.load(std::memory_order_relaxed) == nullptr) return false;
  client.reconnecting = false;
  return true;
}

void reconnect() {
  do {
    sleep(kReconnectPause);
  } while (!ensure_connected() || !cease_to_reconnect());
}

}  // namespace

bool serve_connection(Connection& connection) {
  std::string text;
  int msg_tag = 0;
  while (connection.channel.read_msg(NOTIFY_FRAME_ID, msg_tag, text, NOTIFY_MAX_MSG, -1)) {
    handle_text(connection, text);
    release_when_idle(connection.channel, text);
  }
  release_large(text);
  const bool was_used = came_into_use(connection);
  if (was_used) tear_down(connection);
  const MutexLock lock(table_lock);
  connection.returns.end();
  return was_used;
}

// Every reader has a connection of its own. One of those that lost theirs stays until a new
// one stands.
void* reader_thread(void* argument) {
  const LogChannelScope scope(kLogNotifyClient);
  auto* const connection = static_cast<Connection*>(argument);
  if (!serve_connection(*connection)) return nullptr;
  delete connection;
  if (become_reconnector()) reconnect();
  return nullptr;
}

}  // namespace zedipc
