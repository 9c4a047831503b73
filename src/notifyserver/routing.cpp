// SPDX-License-Identifier: MIT
// Whom a notification goes to: rules, receivers, observers, and the sender if nobody takes it.
#include <limits>
#include <set>
#include <string>

#include "notifyserver/session.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

bool send(IPC* ipc, const std::string& text) {
  return ipc->write_msg(NOTIFY_FRAME_ID, NOTIFY_FRAME_TAG, text);
}

// A notification on its way through the server.
struct Notification : Headline {
  std::size_t name_hash;
  bool inbound_blocked;   // the sender may not send it here
  bool outbound_blocked;  // it may not leave for another machine
};

// Reads and logs the notification, and asks the rules. Reading the parameter for the log
// creates one that is absent, so that a unicast has it only while this level comes out.
Notification receive(const Session& session, Message& message) REQUIRES(server.server_lock) {
  const Headline n = message.headline();
  if (dbg_log_enabled(kLogInfo)) {
    const std::string parameter = message.parameter_text();
    ZEDIPC_SERVER_LOG(kLogInfo,
                      "handle_client(): ipc=%p received notification '%s' (from='%s', to='%s', "
                      "para='%s', flags=%u)\n",
                      static_cast<void*>(session.ipc), n.notification.c_str(), n.from.c_str(),
                      n.to.c_str(), parameter.c_str(), n.flags);
  }
  const auto forbidden = [&n](const RuleSet& rules) {
    return !rule_match(n.from, n.to, n.notification, rules);
  };
  return {n, Registration::hash_of(n.notification),
          session.remote && forbidden(server.inbound_rules), forbidden(server.outbound_rules)};
}

// Tells the observers that `row` has been served, under the name it registered.
void notify_observers(const Notification& n, const Registration& row) REQUIRES(server.server_lock) {
  if (server.observers.empty()) return;
  const std::string text = notify_observer_text({n.from, row.to, n.notification, n.flags});
  for (IPC* const observer : server.observers) send(observer, text);
}

// Compares the hashes first, which tell nearly all rows apart. A removed row has no session.
bool is_called(const Registration& row, const Notification& n) {
  return row.name_hash == n.name_hash && row.ipc != nullptr && row.notification == n.notification;
}

// What became of the notification for one row.
void log_row(unsigned level, const char* what, const Notification& n, const Registration& row,
             const char* outcome) {
  ZEDIPC_SERVER_LOG(level, "handle_client(): %s notification '%s' to '%s' (ipc=%p) %s\n", what,
                    n.notification.c_str(), row.to.c_str(), static_cast<void*>(row.ipc), outcome);
}

const char* failure(const Registration& row) {
  return row.ipc->eof() ? "failed (EOF)" : "failed (ERROR)";
}

// Each session gets the text once, and only one attempt is made: its further rows count as
// served even if that failed. Observers hear of each row. The rules come before the name, so
// that the log has a line for every remote row.
void broadcast(const Notification& n, const std::string& received_text)
    REQUIRES(server.server_lock) {
  if (n.inbound_blocked) {
    ZEDIPC_SERVER_LOG(
        kLogNote, "handle_client(): broadcast notification '%s' blocked by inbound configuration\n",
        n.notification.c_str());
    return;
  }
  std::set<IPC*> served;
  for (const Registration& row : server.registrations.rows()) {
    if (row.remote && n.outbound_blocked) {
      log_row(kLogNote, "broadcast", n, row, "blocked by outbound configuration");
      continue;
    }
    if (!is_called(row, n)) continue;
    if (served.insert(row.ipc).second) {
      if (!send(row.ipc, received_text)) {
        log_row(kLogError, "broadcast", n, row, failure(row));
        continue;
      }
      log_row(kLogInfo, "broadcast", n, row, "successful");
    }
    notify_observers(n, row);
  }
}

// The row with the highest priority that can take it, the latest among equals; null if
// there is none. The rules come before the name here too.
const Registration* find_best(const Notification& n) REQUIRES(server.server_lock) {
  const bool any_receiver = n.to == kToHighestPriority;
  const Registration* best = nullptr;
  std::int32_t best_priority = std::numeric_limits<std::int32_t>::min();
  for (const Registration& row : server.registrations.rows()) {
    if (row.remote && n.outbound_blocked) {
      log_row(kLogNote, "unicast", n, row, "blocked by outbound configuration");
      continue;
    }
    if (!is_called(row, n) || (!any_receiver && row.to != n.to)) continue;
    if (row.priority < best_priority || row.ipc->error()) continue;
    if (best != nullptr) {
      // Both numbers are the new row's: readers of the log know this line so.
      ZEDIPC_SERVER_LOG(kLogNote,
                        "handle_client(): unicast notification '%s' to '%s' (ipc=%p) blocked due "
                        "to higher priority %d (>=%d) of '%s' (ipc=%p)\n",
                        n.notification.c_str(), best->to.c_str(), static_cast<void*>(best->ipc),
                        row.priority, row.priority, row.to.c_str(), static_cast<void*>(row.ipc));
    }
    best = &row;
    best_priority = row.priority;
  }
  return best;
}

// Writes to the best row, and to the next best where that fails: a failed write
// leaves the session's error state set, by which the next search passes over it.
// False if nobody took it: the sender has to be told.
bool unicast(const Notification& n, const std::string& text) REQUIRES(server.server_lock) {
  if (n.inbound_blocked) {
    ZEDIPC_SERVER_LOG(
        kLogNote, "handle_client(): unicast notification '%s' blocked by inbound configuration\n",
        n.notification.c_str());
    return false;
  }
  while (const Registration* const best = find_best(n)) {
    if (send(best->ipc, text)) {
      notify_observers(n, *best);
      log_row(kLogInfo, "delivery of unicast", n, *best, "successful");
      return true;
    }
    log_row(kLogError, "delivery of unicast", n, *best, failure(*best));
  }
  return false;
}

// Sends the error to the session that the message first came from, if that still lives.
// The reference comes from the network, so it is looked up and never trusted.
void report_unicast_error(const Notification& n, const std::string& text, std::int32_t reference)
    REQUIRES(server.server_lock) {
  const auto sender = server.sessions.find(reference);
  if (sender == server.sessions.end()) return;
  send(sender->second, text);
  ZEDIPC_SERVER_LOG(kLogNote,
                    "handle_client(): sent unicast error to '%s' (ipc=%p) for notification '%s'\n",
                    n.from.c_str(), static_cast<void*>(sender->second), n.notification.c_str());
}

}  // namespace

void route_notification(const Session& session, Message& message) {
  const Notification n = receive(session, message);
  if (n.to == kToAll) {
    broadcast(n, message.received_text());
    return;
  }
  if (unicast(n, message.forward_text(kTypeNotify, session.identity))) return;
  const std::string error = message.forward_text(kTypeUnicastError, session.identity);
  report_unicast_error(n, error, message.reference());
}

}  // namespace zedipc
