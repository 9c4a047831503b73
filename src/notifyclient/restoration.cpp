// SPDX-License-Identifier: MIT
// What a new connection has been told, compared with the tables until they agree.
#include "notifyclient/restoration.h"

#include <map>
#include <string_view>
#include <utility>

#include "protocol/message.h"

namespace zedipc {

namespace {

// By group, (to, notification), its last record: the server keeps what it is told last.
using Groups = std::map<std::pair<std::string_view, std::string_view>, const NotificationRecord*>;

// The tables at one moment.
struct Snapshot {
  std::uint64_t changes = 0;
  Records<NotificationRecord> records;  // in which those of `last` live
  Groups last;
  bool observing = false;
};

void take(Snapshot& now) {
  {
    const MutexLock lock(table_lock);
    now.changes = client.table_changes;
    now.records = client.notification_table.records;
    now.observing = !client.observer_table.records.empty();
  }
  for (const auto& record : now.records) {
    now.last[{record->to, record->notification}] = record.get();
  }
}

bool tell(Connection& connection, const NotificationRecord& record) {
  if (register_client(&connection, record.to, record.notification, record.priority)) return true;
  ZEDIPC_CLIENT_LOG(kLogError,
                    "init(): error while transmitting old registration (to='%s', "
                    "notification='%s', cb=%p, data=%p, prio=%d)\n",
                    record.to.c_str(), record.notification.c_str(), printable(record.cb),
                    record.data, record.priority);
  return false;
}

bool is_news(const Snapshot& told, const Snapshot& now, const NotificationRecord& record) {
  const Groups::key_type group(record.to, record.notification);
  if (now.last.at(group) != &record) return false;
  const auto old = told.last.find(group);
  return old == told.last.end() || old->second->priority != record.priority;
}

// The first time all records are told, each with its own priority, then what has changed.
bool tell_difference(Connection& connection, const Snapshot& told, const Snapshot& now,
                     bool first) {
  for (const auto& [group, record] : told.last) {
    if (now.last.count(group) != 0) continue;
    if (!unregister_client(&connection, record->to, record->notification)) return false;
  }
  for (const auto& record : now.records) {
    if (first || is_news(told, now, *record)) {
      if (!tell(connection, *record)) return false;
    }
  }
  if (now.observing == told.observing) return true;
  const std::string text = now.observing ? register_observer_text() : unregister_observer_text();
  return send_or_log("init", &connection, text).sent;
}

// Whether the tables are still as told, and the connection in use from now on.
bool publish(Connection& connection, const Snapshot& told) {
  const MutexLock lock(table_lock);
  if (client.table_changes != told.changes) return false;
  connection.stage = Connection::Stage::kInUse;
  ++client.generation;
  client.server_ipc.store(&connection, std::memory_order_release);
  client.changed.notify_all();
  return true;
}

}  // namespace

bool restore_and_publish(Connection& connection) {
  Snapshot told;
  for (bool first = true;; first = false) {
    Snapshot now;
    take(now);
    if (!tell_difference(connection, told, now, first)) return false;
    told = std::move(now);
    if (publish(connection, told)) return true;
  }
}

}  // namespace zedipc
