// SPDX-License-Identifier: MIT
// What clients tell the server about themselves: what they receive, and whether they observe.
#include <algorithm>
#include <string>

#include "notifyserver/session.h"

namespace zedipc {

namespace {

// Of all remote sessions together, so that they cannot fill the memory. Nobody is told
// when this refuses a row, not even the log.
constexpr std::int32_t kMaxRemoteRegistrations = 256;

const char* place_name(bool remote) { return remote ? "remote" : "local"; }

// Whether any rule lets the notification leave the machine, whoever sends it to whomever.
bool may_leave(const std::string& notification) REQUIRES(server.server_lock) {
  return std::any_of(server.outbound_rules.begin(), server.outbound_rules.end(),
                     [&](const ConfigRule& rule) {
                       return wildcard_match(rule.notification.c_str(), notification.c_str());
                     });
}

}  // namespace

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
  if (Registration* const existing = server.registrations.find(to, notification, session.ipc)) {
    existing->priority = priority;
    ZEDIPC_SERVER_LOG(kLogNote, "handle_client(): existing registration updated\n");
    return;
  }
  if (session.remote && server.registrations.remote_rows() >= kMaxRemoteRegistrations) return;
  server.registrations.add({to, notification, priority, session.ipc, session.remote});
  ZEDIPC_SERVER_LOG(kLogNote, "handle_client(): new registration added\n");
}

void remove_registration(const Session& session, Message& message) {
  const std::string to = message.to();
  const std::string notification = message.notification();
  ZEDIPC_SERVER_LOG(kLogInfo,
                    "handle_client(): received unregistration from %s client (ipc=%p, "
                    "notification='%s', to='%s')\n",
                    place_name(session.remote), static_cast<void*>(session.ipc),
                    notification.c_str(), to.c_str());
  Registration* const row = server.registrations.find(to, notification, session.ipc);
  if (row == nullptr) {
    ZEDIPC_SERVER_LOG(kLogNote, "handle_client(): no client found, unregistration ignored\n");
    return;
  }
  ZEDIPC_SERVER_LOG(kLogNote,
                    "handle_client(): unregistered %s client (ipc=%p, notification='%s', "
                    "to='%s', prio=%d)\n",
                    place_name(row->remote), static_cast<void*>(row->ipc),
                    row->notification.c_str(), row->to.c_str(), row->priority);
  server.registrations.remove(*row);
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

}  // namespace zedipc
