// SPDX-License-Identifier: MIT
#include "notifyserver/routing.h"

#include <limits>
#include <set>

#include "protocol/protocol.h"

namespace zedipc {

namespace {

bool send(IPC* ipc, const std::string& text) {
  return ipc->write_msg(NOTIFY_FRAME_ID, NOTIFY_FRAME_TAG, text);
}

// A notification on its way through the server.
struct Notification {
  std::string from;
  std::string to;
  std::string name;
  std::size_t name_hash;
  int flags;
  bool inbound_blocked;   // the sender may not send it here
  bool outbound_blocked;  // it may not leave for another machine
};

// Reading a key creates it, so that these four stand in whatever is written from
// the message later.
Notification read_notification(const Session& session, JSObject& message) {
  Notification n;
  n.from = message(kKeyFrom).getString();
  n.to = message(kKeyTo).getString();
  n.name = message(kKeyNotification).getString();
  n.name_hash = Registration::hash_of(n.name);
  n.flags = message(kKeyFlags).getInt();
  if (dbg_log_enabled(kLogInfo)) {
    const std::string parameter = message(kKeyParameter).dump();
    ZEDIPC_SERVER_LOG(kLogInfo,
                      "handle_client(): ipc=%p received notification '%s' (from='%s', to='%s', "
                      "para='%s', flags=%u)\n",
                      static_cast<void*>(session.ipc), n.name.c_str(), n.from.c_str(), n.to.c_str(),
                      parameter.c_str(), static_cast<unsigned>(n.flags));
  }
  n.inbound_blocked = session.remote && !rule_match(n.from, n.to, n.name, server.inbound_rules);
  n.outbound_blocked = !rule_match(n.from, n.to, n.name, server.outbound_rules);
  return n;
}

// Tells the observers that `row` has been served, under the name it registered.
void notify_observers(const std::string& from, const Registration& row,
                      const std::string& notification, int flags) {
  if (server.observers.empty()) return;
  JSObject message;
  message(kKeyType) = kTypeNotifyObserver;
  message(kKeyFrom) = from;
  message(kKeyTo) = row.to;
  message(kKeyNotification) = notification;
  message(kKeyFlags) = flags;
  const std::string text = message.dump();
  for (IPC* const observer : server.observers) send(observer, text);
}

bool is_called(const Registration& row, const Notification& n) {
  return row.name_hash == n.name_hash && row.notification == n.name;
}

// Each session gets the text once; observers hear of each row.
void broadcast(const Notification& n, const std::string& received_text) {
  if (n.inbound_blocked) {
    ZEDIPC_SERVER_LOG(
        kLogNote, "handle_client(): broadcast notification '%s' blocked by inbound configuration\n",
        n.name.c_str());
    return;
  }
  std::set<IPC*> served;
  for (const Registration& row : server.registrations) {
    void* const address = row.ipc;
    if (row.remote && n.outbound_blocked) {
      ZEDIPC_SERVER_LOG(kLogNote,
                        "handle_client(): broadcast notification '%s' to '%s' (ipc=%p) blocked by "
                        "outbound configuration\n",
                        n.name.c_str(), row.to.c_str(), address);
      continue;
    }
    if (!is_called(row, n)) continue;
    if (served.insert(row.ipc).second) {
      if (!send(row.ipc, received_text)) {
        ZEDIPC_SERVER_LOG(
            kLogError,
            "handle_client(): broadcast notification '%s' to '%s' (ipc=%p) failed (%s)\n",
            n.name.c_str(), row.to.c_str(), address, failure_name(row.ipc));
        continue;
      }
      ZEDIPC_SERVER_LOG(
          kLogInfo, "handle_client(): broadcast notification '%s' to '%s' (ipc=%p) successful\n",
          n.name.c_str(), row.to.c_str(), address);
    }
    notify_observers(n.from, row, n.name, n.flags);
  }
}

// The row with the highest priority that can take it, the latest of equal ones;
// null if there is none.
const Registration* find_best(const Notification& n) {
  const bool any_receiver = n.to == kToHighestPriority;
  const Registration* best = nullptr;
  std::int32_t best_priority = std::numeric_limits<std::int32_t>::min();
  for (const Registration& row : server.registrations) {
    if (row.remote && n.outbound_blocked) {
      ZEDIPC_SERVER_LOG(kLogNote,
                        "handle_client(): unicast notification '%s' to '%s' (ipc=%p) blocked by "
                        "outbound configuration\n",
                        n.name.c_str(), row.to.c_str(), static_cast<void*>(row.ipc));
      continue;
    }
    if (!is_called(row, n) || (!any_receiver && row.to != n.to)) continue;
    if (row.priority < best_priority || row.ipc->error()) continue;
    if (best != nullptr) {
      // Both numbers are the winner's, as readers of this line know it.
      ZEDIPC_SERVER_LOG(kLogNote,
                        "handle_client(): unicast notification '%s' to '%s' (ipc=%p) blocked due "
                        "to higher priority %d (>=%d) of '%s' (ipc=%p)\n",
                        n.name.c_str(), best->to.c_str(), static_cast<void*>(best->ipc),
                        row.priority, row.priority, row.to.c_str(), static_cast<void*>(row.ipc));
    }
    best = &row;
    best_priority = row.priority;
  }
  return best;
}

// Writes to the best row, and to the next best where that fails: a failed write
// leaves the session's error state set, by which the next search passes over it.
bool deliver(const Notification& n, const std::string& text) {
  while (const Registration* const best = find_best(n)) {
    void* const address = best->ipc;
    if (send(best->ipc, text)) {
      notify_observers(n.from, *best, n.name, n.flags);
      ZEDIPC_SERVER_LOG(
          kLogInfo,
          "handle_client(): delivery of unicast notification '%s' to '%s' (ipc=%p) successful\n",
          n.name.c_str(), best->to.c_str(), address);
      return true;
    }
    ZEDIPC_SERVER_LOG(
        kLogError,
        "handle_client(): delivery of unicast notification '%s' to '%s' (ipc=%p) failed (%s)\n",
        n.name.c_str(), best->to.c_str(), address, failure_name(best->ipc));
  }
  return false;
}

// Sends the message back, as an error, to the session that it first came from, if
// that still lives. The reference comes from the network, and so is only looked up.
void report_unicast_error(const Notification& n, JSObject& message) {
  message(kKeyType) = kTypeUnicastError;
  const std::string text = message.dump();
  const auto sender = server.sessions.find(message(kKeyReference).getInt());
  if (sender == server.sessions.end()) return;
  send(sender->second, text);
  ZEDIPC_SERVER_LOG(kLogNote,
                    "handle_client(): sent unicast error to '%s' (ipc=%p) for notification '%s'\n",
                    n.from.c_str(), static_cast<void*>(sender->second), n.name.c_str());
}

void unicast(const Session& session, const Notification& n, JSObject& message) {
  // A message that a client could not take and sent back has its reference already.
  if (!message.exists(kKeyReference)) message(kKeyReference) = session.identity;
  const std::string forward_text = message.dump();
  if (n.inbound_blocked) {
    ZEDIPC_SERVER_LOG(
        kLogNote, "handle_client(): unicast notification '%s' blocked by inbound configuration\n",
        n.name.c_str());
  } else if (deliver(n, forward_text)) {
    return;
  }
  report_unicast_error(n, message);
}

}  // namespace

void route_notification(const Session& session, JSObject& message,
                        const std::string& received_text) {
  const Notification n = read_notification(session, message);
  if (n.to == kToAll) {
    broadcast(n, received_text);
  } else {
    unicast(session, n, message);
  }
}

}  // namespace zedipc
