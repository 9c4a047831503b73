// SPDX-License-Identifier: MIT
#include "notifyserver/session.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "notifyserver/routing.h"
#include "notifyserver/server_state.h"
#include "notifyserver/wildcard.h"
#include "protocol/idle.h"
#include "protocol/message.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

// Of all remote sessions together, so that they cannot fill the memory.
constexpr std::int32_t kMaxRemoteRegistrations = 256;

// A peer on any other address of this machine counts as remote: the rules must not
// depend on which addresses the machine happens to have.
bool is_remote(const IPC& ipc) {
  static constexpr char kLocal[] = "127.0.0.1:";
  return std::strncmp(ipc.remote_addr(), kLocal, sizeof kLocal - 1) != 0;
}

bool may_leave(const std::string& notification) {
  return std::any_of(server.outbound_rules.begin(), server.outbound_rules.end(),
                     [&](const ConfigRule& rule) {
                       return wildcard_match(rule.notification.c_str(), notification.c_str());
                     });
}

void add_registration(const Session& session, Message& message) {
  const std::string to = message.to();
  const std::string notification = message.notification();
  const std::int32_t priority = message.priority();
  ZEDIPC_SERVER_LOG(kLogInfo,
                    "handle_client(): received registration from %s client (ipc=%p, "
                    "notification='%s', to='%s', prio=%d)\n",
                    place_name(session.remote), static_cast<void*>(session.ipc),
                    notification.c_str(), to.c_str(), priority);
  if (session.remote && !may_leave(notification)) {
    ZEDIPC_SERVER_LOG(
        kLogNote,
        "handle_client(): registration for remote client blocked by outbound configuration\n");
    return;
  }
  const auto existing = std::find_if(
      server.registrations.begin(), server.registrations.end(), [&](const Registration& row) {
        return row.ipc == session.ipc && row.to == to && row.notification == notification;
      });
  if (existing != server.registrations.end()) {
    existing->priority = priority;
    ZEDIPC_SERVER_LOG(kLogNote, "handle_client(): existing registration updated\n");
    return;
  }
  if (session.remote) {
    if (server.remote_registrations >= kMaxRemoteRegistrations) return;
    ++server.remote_registrations;
  }
  server.registrations.push_back({to, notification, priority, session.ipc, session.remote});
  ZEDIPC_SERVER_LOG(kLogNote, "handle_client(): new registration added\n");
}

// Removes the rows for which `doomed` gives true, keeping the order of the others.
template <typename Predicate>
bool remove_registrations(const Session& session, Predicate doomed) {
  auto& rows = server.registrations;
  const auto end = std::remove_if(rows.begin(), rows.end(), doomed);
  const auto removed = rows.end() - end;
  rows.erase(end, rows.end());
  if (session.remote) server.remote_registrations -= static_cast<std::int32_t>(removed);
  return removed != 0;
}

void remove_registration(const Session& session, Message& message) {
  const std::string to = message.to();
  const std::string notification = message.notification();
  ZEDIPC_SERVER_LOG(kLogInfo,
                    "handle_client(): received unregistration from %s client (ipc=%p, "
                    "notification='%s', to='%s')\n",
                    place_name(session.remote), static_cast<void*>(session.ipc),
                    notification.c_str(), to.c_str());
  const bool removed = remove_registrations(session, [&](const Registration& row) {
    if (row.ipc != session.ipc || row.to != to || row.notification != notification) return false;
    ZEDIPC_SERVER_LOG(kLogNote,
                      "handle_client(): unregistered %s client (ipc=%p, notification='%s', "
                      "to='%s', prio=%d)\n",
                      place_name(row.remote), static_cast<void*>(row.ipc), row.notification.c_str(),
                      row.to.c_str(), row.priority);
    return true;
  });
  if (!removed) {
    ZEDIPC_SERVER_LOG(kLogNote, "handle_client(): no client found, unregistration ignored\n");
  }
}

void add_observer(const Session& session) {
  server.observers.insert(session.ipc);
  ZEDIPC_SERVER_LOG(kLogInfo, "handle_client(): registered local client as observer (ipc=%p)\n",
                    static_cast<void*>(session.ipc));
}

void remove_observer(const Session& session) {
  server.observers.erase(session.ipc);
  ZEDIPC_SERVER_LOG(kLogInfo, "handle_client(): unregistered local client as observer (ipc=%p)\n",
                    static_cast<void*>(session.ipc));
}

// Whatever is no known message, or is not for remote sessions, is ignored without
// a word.
void handle_message(const Session& session, Message& message) {
  switch (message.type()) {
    case MessageType::kNotify:
      return route_notification(session, message);
    case MessageType::kRegister:
      return add_registration(session, message);
    case MessageType::kUnregister:
      return remove_registration(session, message);
    case MessageType::kRegisterObserver:
      if (!session.remote) add_observer(session);
      return;
    case MessageType::kUnregisterObserver:
      if (!session.remote) remove_observer(session);
      return;
    default:
      return;
  }
}

void handle_text(const Session& session, const std::string& received_text) {
  Message message(received_text, Message::Parameter::kLeave);
  const std::lock_guard<std::mutex> lock(server.server_lock);
  handle_message(session, message);
}

// False at the end of the stream and at a read error. A frame that was refused or
// that stopped half-way does not end the session, and reads as an empty text: what a
// stopped one leaves in `text` is in part the message before it.
bool read_message(IPC* ipc, std::string& text) {
  int msg_tag = 0;
  if (ipc->read_msg(NOTIFY_FRAME_ID, msg_tag, text, NOTIFY_MAX_MSG, -1)) return true;
  const bool eof = ipc->eof();
  if (!eof && !ipc->error()) {
    text.clear();
    return true;
  }
  ZEDIPC_SERVER_LOG(kLogError, "handle_client(): read_msg() %s on ipc=%p, close session\n",
                    eof ? "EOF" : "ERROR", static_cast<void*>(ipc));
  return false;
}

void end_session(const Session& session) {
  {
    const std::lock_guard<std::mutex> lock(server.server_lock);
    remove_registrations(session, [&](const Registration& row) { return row.ipc == session.ipc; });
    server.observers.erase(session.ipc);
    server.sessions.erase(session.identity);
  }
  // No other thread can be writing to the channel now, or find it in a table. Without
  // the lock, since a channel that ends waits for a channel callback that is running,
  // if this process has such: the other clients do not have to wait for that.
  delete session.ipc;
}

}  // namespace

void* handle_client(void* accepted) {
  const LogChannelScope scope(kLogNotifyServer);
  Session session{static_cast<IPC*>(accepted), 0, false};
  {
    const std::lock_guard<std::mutex> lock(server.server_lock);
    session.identity = add_session(session.ipc);
  }
  session.remote = is_remote(*session.ipc);
  std::string received_text;
  while (read_message(session.ipc, received_text)) {
    handle_text(session, received_text);
    release_when_idle(*session.ipc, received_text);
  }
  end_session(session);
  release_large(received_text);
  return nullptr;
}

}  // namespace zedipc
