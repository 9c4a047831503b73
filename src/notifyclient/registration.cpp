// SPDX-License-Identifier: MIT
// Registering and unregistering callbacks. A table changes ahead of the message to the
// server: what the server sends right after a "register" finds the record there, and a
// connection that is being made either knows of the change or is not in use yet when the
// message goes out.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include <zedipc/notify.h>

#include "notifyclient/calls.h"
#include "notifyclient/client_state.h"
#include "notifyclient/connection.h"
#include "notifyclient/tables.h"
#include "notifyclient/unregistration.h"
#include "protocol/message.h"

namespace zedipc {

namespace {

bool connected_for(const char* function) {
  if (ensure_connected()) return true;
  ZEDIPC_CLIENT_LOG(kLogError, "%s(): notification server is not running (connect failed)\n",
                    function);
  return false;
}

// The name to receive under: an empty one stands for the application id.
bool resolve_name(const char* function, std::string& to) {
  if (to.empty()) to = current_app_id();
  if (!to.empty()) return true;
  ZEDIPC_CLIENT_LOG(kLogError, "%s(): no parameter 'to' passed and no appID set\n", function);
  return false;
}

// People find the first line whatever the log's settings.
void warn_of_deprecated_use(const char* function) {
  std::fprintf(stderr, "Using %s() for unregistering is deprecated\n", function);
  ZEDIPC_CLIENT_LOG(kLogWarning, "%s(): usage for unregistering is deprecated\n", function);
}

template <typename Record, typename Callback>
bool is_registered(const Table<Record>& table, Callback cb, const void* data) REQUIRES(table_lock) {
  return std::any_of(table.records.begin(), table.records.end(),
                     [&](const std::shared_ptr<Record>& record) {
                       return record->cb == cb && record->data == data;
                     });
}

// A registration as the caller of ipcRegisterNotificationCB gave it.
struct Wanted {
  const std::string& to;
  const std::string& notification;
  NotificationCallback cb;
  void* data;
  int priority;
};

using NotificationRecordPtr = std::shared_ptr<NotificationRecord>;

// A group in which a record is to take its place.
struct Group {
  NotificationRecordPtr former;  // whose place that is; null if it is a new one
  int highest;                   // the highest priority, once it has it
};

Group look_at_group(const Wanted& wanted) REQUIRES(client.registration_lock) {
  const MutexLock lock(table_lock);
  Group group{nullptr, wanted.priority};
  for (const NotificationRecordPtr& record : client.notification_table.records) {
    if (!record->in_group(wanted.to, wanted.notification)) continue;
    if (record->cb == wanted.cb && record->data == wanted.data) {
      group.former = record;
    } else {
      group.highest = std::max(group.highest, record->priority);
    }
  }
  return group;
}

// The highest priority of a group; none if it has no record.
std::optional<int> highest_of(const std::string& to, const std::string& notification) {
  const MutexLock lock(table_lock);
  std::optional<int> highest;
  for (const NotificationRecordPtr& record : client.notification_table.records) {
    if (!record->in_group(to, notification)) continue;
    highest = std::max(highest.value_or(record->priority), record->priority);
  }
  return highest;
}

// Puts `record` in the place of `former` and tells the server by `tell`. False if the server
// could not be told: the table is as it was then. A connection that came into use meanwhile
// was told of what is in the table, so its server knows.
template <typename Record, typename Function>
bool register_record(Table<Record> ClientState::*table, const std::shared_ptr<Record>& former,
                     const std::shared_ptr<Record>& record, Function tell)
    REQUIRES(client.registration_lock) {
  std::uint32_t generation = 0;
  {
    const MutexLock lock(table_lock);
    replace(client.*table, former, record);
    generation = client.generation;
  }
  if (tell()) return true;
  const MutexLock lock(table_lock);
  if (client.generation != generation) return true;
  replace(client.*table, record, former);
  return false;
}

int register_notification(const Wanted& wanted) {
  const NotificationRecordPtr record(new NotificationRecord{
      {wanted.data}, wanted.to, wanted.notification, wanted.cb, wanted.priority});
  bool told = false;
  Group group;
  {
    const MutexLock changing(client.registration_lock);
    group = look_at_group(wanted);
    const std::string message = register_text(wanted.to, wanted.notification, group.highest);
    told = register_record(&ClientState::notification_table, group.former, record, [&message] {
      return tell_group("register_client", kCurrentConnection, message);
    });
  }
  if (!told) {
    // Who keeps a registration keeps its data: only that of a new one may be freed.
    if (group.former == nullptr) wait_for_calls(*record);
    ZEDIPC_CLIENT_LOG(kLogError,
                      "ipcRegisterNotificationCB(): server registration failed (to='%s', "
                      "notification='%s', prio=%d)\n",
                      wanted.to.c_str(), wanted.notification.c_str(), group.highest);
    return kNotifyNotConnected;
  }
  if (group.former != nullptr) wait_for_calls(*group.former);
  ZEDIPC_CLIENT_LOG(kLogInfo,
                    "ipcRegisterNotificationCB(): registration %s (to='%s', notification='%s', "
                    "cb=%p, data=%p, prio=%d)\n",
                    group.former == nullptr ? "successful" : "updated with new priority",
                    wanted.to.c_str(), wanted.notification.c_str(), printable(wanted.cb),
                    wanted.data, wanted.priority);
  return kNotifyDone;
}

// Tells the server what is left of a group.
int tell_of_removal(const std::string& to, const std::string& notification) {
  std::optional<int> highest;
  bool sent = false;
  {
    const MutexLock changing(client.registration_lock);
    highest = highest_of(to, notification);
    sent = highest ? register_client(kCurrentConnection, to, notification, *highest)
                   : unregister_client(kCurrentConnection, to, notification);
  }
  const LogLevel level = sent ? kLogInfo : kLogError;
  const char* const outcome = sent ? "successfull" : "failed";  // known so to readers of the log
  if (highest) {
    ZEDIPC_CLIENT_LOG(level,
                      "ipcUnregisterNotificationCB(): server registration priority update %s "
                      "(to='%s', notification='%s', prio=%d)\n",
                      outcome, to.c_str(), notification.c_str(), *highest);
  } else {
    ZEDIPC_CLIENT_LOG(level,
                      "ipcUnregisterNotificationCB(): server unregistration %s (to='%s', "
                      "notification='%s')\n",
                      outcome, to.c_str(), notification.c_str());
  }
  return sent ? kNotifyDone : kNotifyNotConnected;
}

bool observes(ObserverCallback cb, const void* data) {
  const MutexLock lock(table_lock);
  return is_registered(client.observer_table, cb, data);
}

bool has_observers() {
  const MutexLock lock(table_lock);
  return !client.observer_table.records.empty();
}

}  // namespace

void ipcSetAppID(const std::string& id) {
  const MutexLock lock(table_lock);
  client.app_id = id;
}

std::string ipcGetAppID() { return current_app_id(); }

int ipcRegisterNotificationCB(const std::string& notification, NotificationCallback cb, void* data,
                              int priority, const std::string& to) {
  static constexpr char kName[] = "ipcRegisterNotificationCB";
  const LogChannelScope scope(kLogNotifyClient);
  if (cb == nullptr) {
    warn_of_deprecated_use(kName);
    return ipcUnregisterNotificationCB(notification, nullptr, nullptr, to);
  }
  std::string name = to;
  if (!resolve_name(kName, name)) return kNotifyNoName;
  if (!connected_for(kName)) return kNotifyNotConnected;
  return register_notification({name, notification, cb, data, priority});
}

int ipcUnregisterNotificationCB(const std::string& notification, NotificationCallback cb,
                                void* data, const std::string& to) {
  static constexpr char kName[] = "ipcUnregisterNotificationCB";
  const LogChannelScope scope(kLogNotifyClient);
  std::string name = to;
  if (!resolve_name(kName, name)) return kNotifyNoName;
  if (!connected_for(kName)) return kNotifyNotConnected;
  Unregistration unregistration(name, notification, cb, data);
  unregistration.wait();
  return tell_of_removal(name, notification);
}

int ipcRegisterObserver(ObserverCallback cb, void* data) {
  static constexpr char kName[] = "ipcRegisterObserver";
  const LogChannelScope scope(kLogNotifyClient);
  if (cb == nullptr) {
    warn_of_deprecated_use(kName);
    return ipcUnregisterObserver(nullptr, data);
  }
  if (!connected_for(kName)) return kNotifyNotConnected;
  if (client.remote_client.load(std::memory_order_relaxed)) {
    ZEDIPC_CLIENT_LOG(
        kLogError,
        "ipcRegisterObserver(): not permitted to register an observer as remote client\n");
    return kNotifyRemoteObserver;
  }
  const std::shared_ptr<ObserverRecord> record(new ObserverRecord{{data}, cb});
  const std::string message = register_observer_text();
  bool told = false;
  {
    const MutexLock changing(client.registration_lock);
    if (observes(cb, data)) {
      ZEDIPC_CLIENT_LOG(
          kLogNote, "ipcRegisterObserver(): observer callback already registered (cb=%p, data%p)\n",
          printable(cb), data);
      return kNotifyDone;
    }
    told = register_record(&ClientState::observer_table, {}, record, [&message] {
      return send_or_log(kName, kCurrentConnection, message).sent;
    });
  }
  if (!told) {
    wait_for_calls(*record);
    return kNotifyNotConnected;
  }
  ZEDIPC_CLIENT_LOG(kLogInfo,
                    "ipcRegisterObserver(): observer callback registered (cb=%p, data%p)\n",
                    printable(cb), data);
  return kNotifyDone;
}

int ipcUnregisterObserver(ObserverCallback cb, void* data) {
  const LogChannelScope scope(kLogNotifyClient);
  Removal<ObserverRecord> removed;
  {
    const MutexLock changing(client.registration_lock);
    const MutexLock lock(table_lock);
    removed = take_out(client.observer_table,
                       [&](const ObserverRecord& record) { return matches(record, cb, data); });
  }
  for (const auto& record : removed.to_await) wait_for_calls(*record);
  for (std::size_t i = 0; i < removed.count; ++i) {
    ZEDIPC_CLIENT_LOG(kLogInfo,
                      "ipcUnregisterObserver(): observer callback unregistered (cb=%p, data%p)\n",
                      printable(cb), data);
  }
  {
    const MutexLock changing(client.registration_lock);
    if (has_observers()) return kNotifyDone;
    if (!send_or_log("ipcUnregisterObserver", kCurrentConnection, unregister_observer_text()).sent)
      return kNotifyNotConnected;
  }
  // The other function's name is what readers of the log look for.
  ZEDIPC_CLIENT_LOG(kLogInfo, "ipcRegisterObserver(): client unregistered in server\n");
  return kNotifyDone;
}

int ipcRegisterUnicastError(UnicastErrorCallback cb, void* data) {
  static constexpr char kName[] = "ipcRegisterUnicastError";
  const LogChannelScope scope(kLogNotifyClient);
  if (cb == nullptr) {
    warn_of_deprecated_use(kName);
    return ipcUnregisterUnicastError(nullptr, nullptr);
  }
  bool there = false;
  {
    const MutexLock lock(table_lock);
    there = is_registered(client.unicast_error_table, cb, data);
    if (!there) {
      client.unicast_error_table.records.push_back(
          std::shared_ptr<UnicastErrorRecord>(new UnicastErrorRecord{{data}, cb}));
    }
  }
  ZEDIPC_CLIENT_LOG(there ? kLogNote : kLogInfo,
                    "ipcRegisterUnicastError(): unicast error callback %sregistered (cb=%p, "
                    "data%p)\n",
                    there ? "already " : "", printable(cb), data);
  return kNotifyDone;
}

int ipcUnregisterUnicastError(UnicastErrorCallback cb, void* data) {
  const LogChannelScope scope(kLogNotifyClient);
  Removal<UnicastErrorRecord> removed;
  {
    const MutexLock lock(table_lock);
    removed = take_out(client.unicast_error_table,
                       [&](const UnicastErrorRecord& record) { return matches(record, cb, data); });
  }
  for (const auto& record : removed.to_await) wait_for_calls(*record);
  for (std::size_t i = 0; i < removed.count; ++i) {
    ZEDIPC_CLIENT_LOG(kLogInfo,
                      "ipcUnregisterUnicastError(): unregistered unicast error callback "
                      "(cb=%p, data%p)\n",
                      printable(cb), data);
  }
  return kNotifyDone;
}

}  // namespace zedipc
