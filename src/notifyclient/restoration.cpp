// SPDX-License-Identifier: MIT
// What a new connection has been told, compared with the tables until they agree.
#include "notifyclient/restoration.h"

#include <map>
#include <string_view>
#include <utility>

#include "protocol/message.h"

namespace zedipc {

namespace {

using Group = std::pair<std::string_view, std::string_view>;  // to, notification
using Records = Table<NotificationRecord>;

// The tables at one moment.
struct Snapshot {
  std::uint64_t changes;
  Records records;
  bool observing;
};

class Restoration {
 public:
  explicit Restoration(Connection& connection) : connection_(connection) {}

  bool run() {
    Snapshot now;
    if (!tell_first(now)) return false;
    while (!publish(now)) {
      if (!tell_difference(now)) return false;
    }
    return true;
  }

 private:
  // Each record with its own priority, of which the server keeps a group's last one.
  bool tell_first(Snapshot& now) {
    take(now);
    for (const auto& record : now.records) {
      if (!tell(*record)) return false;
    }
    if (now.observing && !tell_observer(true)) return false;
    learn(now);
    return true;
  }

  // What a connection would have been told last, had it been told of these tables.
  bool tell_difference(const Snapshot& now) {
    const std::map<Group, const NotificationRecord*> wanted = last_of_groups(now.records);
    for (const auto& [group, record] : told_) {
      if (wanted.count(group) != 0) continue;
      if (!unregister_client(&connection_, record->to, record->notification)) return false;
    }
    for (const auto& [group, record] : wanted) {
      const auto old = told_.find(group);
      if (old != told_.end() && old->second->priority == record->priority) continue;
      if (!tell(*record)) return false;
    }
    if (now.observing != observing_ && !tell_observer(now.observing)) return false;
    learn(now);
    return true;
  }

  // Whether the tables are still as told, and the connection in use now. If not, `now` is
  // what they have become.
  bool publish(Snapshot& now) {
    const MutexLock lock(table_lock);
    if (client.table_changes != now.changes) {
      take_locked(now);
      return false;
    }
    connection_.stage = Connection::Stage::kInUse;
    client.connections.fetch_add(1, std::memory_order_relaxed);
    client.server_ipc.store(&connection_, std::memory_order_release);
    client.changed.notify_all();
    return true;
  }

  static void take(Snapshot& now) {
    const MutexLock lock(table_lock);
    take_locked(now);
  }

  static void take_locked(Snapshot& now) REQUIRES(table_lock) {
    now = {client.table_changes, client.notification_table, !client.observer_table.empty()};
  }

  static std::map<Group, const NotificationRecord*> last_of_groups(const Records& records) {
    std::map<Group, const NotificationRecord*> last;
    for (const auto& record : records) last[{record->to, record->notification}] = record.get();
    return last;
  }

  void learn(const Snapshot& now) {
    told_ = last_of_groups(now.records);
    told_records_ = now.records;
    observing_ = now.observing;
  }

  bool tell(const NotificationRecord& record) {
    if (register_client(&connection_, record.to, record.notification, record.priority)) return true;
    ZEDIPC_CLIENT_LOG(kLogError,
                      "init(): error while transmitting old registration (to='%s', "
                      "notification='%s', cb=%p, data=%p, prio=%d)\n",
                      record.to.c_str(), record.notification.c_str(), printable(record.cb),
                      record.data, record.priority);
    return false;
  }

  bool tell_observer(bool observing) {
    const std::string text = observing ? register_observer_text() : unregister_observer_text();
    return send_or_log("init", &connection_, text).sent;
  }

  Connection& connection_;
  // By group the record whose priority the server has been told last, which lives here.
  std::map<Group, const NotificationRecord*> told_;
  Records told_records_;
  bool observing_ = false;
};

}  // namespace

bool restore_and_publish(Connection& connection) { return Restoration(connection).run(); }

}  // namespace zedipc
