// SPDX-License-Identifier: MIT
#include "notifyserver/routing.h"

#include <limits>
#include <set>
#include <utility>

#include "protocol/protocol.h"

namespace zedipc {

namespace {

bool send(IPC* ipc, const std::string& text) {
  return ipc->write_msg(NOTIFY_FRAME_ID, NOTIFY_FRAME_TAG, text);
}

// Room for the member that a message gets on its way.
constexpr std::size_t kReferenceText = 32;

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

// Logs the notification, whose members have been read, and asks the rules. `parameter_text`
// gives the text of its parameter.
template <typename Function>
void receive(const Session& session, Notification& n, Function parameter_text) {
  n.name_hash = Registration::hash_of(n.name);
  if (dbg_log_enabled(kLogInfo)) {
    const std::string parameter = parameter_text();
    ZEDIPC_SERVER_LOG(kLogInfo,
                      "handle_client(): ipc=%p received notification '%s' (from='%s', to='%s', "
                      "para='%s', flags=%u)\n",
                      static_cast<void*>(session.ipc), n.name.c_str(), n.from.c_str(), n.to.c_str(),
                      parameter.c_str(), static_cast<unsigned>(n.flags));
  }
  n.inbound_blocked = session.remote && !rule_match(n.from, n.to, n.name, server.inbound_rules);
  n.outbound_blocked = !rule_match(n.from, n.to, n.name, server.outbound_rules);
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
void report_unicast_error(const Notification& n, const std::string& text, std::int32_t reference) {
  const auto sender = server.sessions.find(reference);
  if (sender == server.sessions.end()) return;
  send(sender->second, text);
  ZEDIPC_SERVER_LOG(kLogNote,
                    "handle_client(): sent unicast error to '%s' (ipc=%p) for notification '%s'\n",
                    n.from.c_str(), static_cast<void*>(sender->second), n.name.c_str());
}

// False if nobody took it: the sender has to be told.
bool unicast(const Notification& n, const std::string& text) {
  if (!n.inbound_blocked) return deliver(n, text);
  ZEDIPC_SERVER_LOG(kLogNote,
                    "handle_client(): unicast notification '%s' blocked by inbound configuration\n",
                    n.name.c_str());
  return false;
}

// What is written of a message once it has its reference.
std::string with_reference(const Envelope& envelope, const std::string& text,
                           std::int32_t reference) {
  if (envelope.has_reference) return text;
  std::string result;
  result.reserve(text.size() + kReferenceText);
  const auto ahead = static_cast<std::size_t>(envelope.parameter_end + 1 - text.data());
  result.append(text, 0, ahead).append("\"").append(kKeyReference).append("\":");
  return result.append(std::to_string(reference)).append(",").append(text, ahead);
}

// What is written of it once it has become an error: "type" is its last member.
std::string as_unicast_error(std::string text) {
  constexpr std::size_t kType = sizeof kTypeNotify - 1;
  constexpr std::size_t kBehind = 2;  // a quote and a brace
  return text.replace(text.size() - kType - kBehind, kType, kTypeUnicastError);
}

}  // namespace

void route_notification(const Session& session, JSObject& message,
                        const std::string& received_text) {
  // Reading a key creates it, so that these four stand in whatever is written from the
  // message later.
  Notification n;
  n.from = message(kKeyFrom).getString();
  n.to = message(kKeyTo).getString();
  n.name = message(kKeyNotification).getString();
  n.flags = message(kKeyFlags).getInt();
  receive(session, n, [&] { return message(kKeyParameter).dump(); });
  if (n.to == kToAll) {
    broadcast(n, received_text);
    return;
  }
  // A message that a client could not take and sent back has its reference already.
  if (!message.exists(kKeyReference)) message(kKeyReference) = session.identity;
  if (unicast(n, message.dump())) return;
  message(kKeyType) = kTypeUnicastError;
  report_unicast_error(n, message.dump(), message(kKeyReference).getInt());
}

void route_notification(const Session& session, Envelope& envelope,
                        const std::string& received_text) {
  Notification n;
  n.from = std::move(envelope.from);
  n.to = std::move(envelope.to);
  n.name = std::move(envelope.notification);
  n.flags = envelope.flags;
  receive(session, n, [&] { return std::string(envelope.parameter, envelope.parameter_end); });
  if (n.to == kToAll) {
    broadcast(n, received_text);
    return;
  }
  const std::int32_t reference = envelope.has_reference ? envelope.reference : session.identity;
  const std::string text = with_reference(envelope, received_text, reference);
  if (!unicast(n, text)) report_unicast_error(n, as_unicast_error(text), reference);
}

}  // namespace zedipc
