// SPDX-License-Identifier: MIT
// Registering and unregistering callbacks. All work on a table, what the server is
// told of it included, runs under table_lock: the reader needs that lock to look at a
// message, so what the server sends right after a "register" finds the record there.
#include <algorithm>
#include <cstdio>
#include <limits>
#include <mutex>
#include <string>

#include <zedipc/notify.h>

#include "notifyclient/client_state.h"
#include "notifyclient/connection.h"
#include "notifyclient/tables.h"
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
  if (!to.empty() || current_app_id(to)) return true;
  ZEDIPC_CLIENT_LOG(kLogError, "%s(): no parameter 'to' passed and no appID set\n", function);
  return false;
}

// People find the first line whatever the log's settings.
void warn_of_deprecated_use(const char* function) {
  std::fprintf(stderr, "Using %s() for unregistering is deprecated\n", function);
  ZEDIPC_CLIENT_LOG(kLogWarning, "%s(): usage for unregistering is deprecated\n", function);
}

// Whether the arguments of an unregister function name this record. A null callback
// names all of them, a null `data` any.
template <typename Record, typename Callback>
bool names(Callback cb, const void* data, const Record& record) {
  if (cb == nullptr) return true;
  return record.cb == cb && (data == nullptr || record.data == data);
}

template <typename Record, typename Callback>
Record* find_record(const std::vector<Record*>& table, Callback cb, const void* data) {
  const auto found = std::find_if(table.begin(), table.end(), [&](const Record* record) {
    return record->cb == cb && record->data == data;
  });
  return found == table.end() ? nullptr : *found;
}

// Removes the records for which `doomed` gives true; `after` is called after each.
template <typename Record, typename Predicate, typename After>
void remove_records(std::vector<Record*>& table, Predicate doomed, After after) {
  for (std::size_t i = 0; i < table.size();) {
    if (doomed(*table[i])) {
      remove_record(table, i);
      after();
    } else {
      ++i;
    }
  }
}

// A registration as the caller of ipcRegisterNotificationCB gave it.
struct Wanted {
  const std::string& to;
  const std::string& notification;
  NotificationCallback cb;
  void* data;
  int priority;
};

void log_registration(const char* what, const Wanted& wanted) {
  ZEDIPC_CLIENT_LOG(kLogInfo,
                    "ipcRegisterNotificationCB(): %s (to='%s', notification='%s', cb=%p, data=%p, "
                    "prio=%d)\n",
                    what, wanted.to.c_str(), wanted.notification.c_str(), printable(wanted.cb),
                    wanted.data, wanted.priority);
}

// table_lock is held.
int register_notification(const Wanted& wanted) {
  NotificationRecord* own = nullptr;
  int highest = wanted.priority;
  for (NotificationRecord* const record : lazy_table(client.notification_table)) {
    if (!in_group(*record, wanted.to, wanted.notification)) continue;
    if (record->cb == wanted.cb && record->data == wanted.data) {
      own = record;
    } else {
      highest = std::max(highest, record->priority);
    }
  }
  const SendResult told =
      register_client(kCurrentConnection, wanted.to, wanted.notification, highest);
  if (!told.sent) {
    ZEDIPC_CLIENT_LOG(kLogError,
                      "ipcRegisterNotificationCB(): server registration failed (to='%s', "
                      "notification='%s', prio=%d)\n",
                      wanted.to.c_str(), wanted.notification.c_str(), highest);
    return kNotTold;
  }
  bool tell_again = false;
  if (own == nullptr) {
    tell_again = add_record(
        new NotificationRecord{
            {}, wanted.to, wanted.notification, wanted.cb, wanted.data, wanted.priority, false},
        told.epoch);
    log_registration("registration successful", wanted);
  } else {
    const ReadWriteGuard guard(&own->lock, ReadWriteGuard::kExclusive);
    tell_again = change_priority(*own, wanted.priority, told.epoch);
    log_registration("registration updated with new priority", wanted);
  }
  if (tell_again) register_client(kCurrentConnection, wanted.to, wanted.notification, highest);
  return kDone;
}

// Tells the server what is left of a group; table_lock is held.
int tell_of_removal(const std::string& to, const std::string& notification) {
  bool any_left = false;
  int highest = std::numeric_limits<std::int32_t>::min();
  for (const NotificationRecord* const record : lazy_table(client.notification_table)) {
    if (!in_group(*record, to, notification)) continue;
    any_left = true;
    highest = std::max(highest, record->priority);
  }
  if (any_left) {
    const bool sent = register_client(kCurrentConnection, to, notification, highest).sent;
    ZEDIPC_CLIENT_LOG(sent ? kLogInfo : kLogError,
                      "ipcUnregisterNotificationCB(): server registration priority update %s "
                      "(to='%s', notification='%s', prio=%d)\n",
                      sent ? "successfull" : "failed", to.c_str(), notification.c_str(), highest);
    return sent ? kDone : kNotTold;
  }
  const bool sent = unregister_client(kCurrentConnection, to, notification).sent;
  ZEDIPC_CLIENT_LOG(sent ? kLogInfo : kLogError,
                    "ipcUnregisterNotificationCB(): server unregistration %s (to='%s', "
                    "notification='%s')\n",
                    sent ? "successfull" : "failed", to.c_str(), notification.c_str());
  return sent ? kDone : kNotTold;
}

}  // namespace

void ipcSetAppID(const std::string& id) {
  const std::lock_guard<std::mutex> lock(client.table_lock);
  const std::lock_guard<std::mutex> changing(client.change_lock);
  if (client.app_id == nullptr) client.app_id = new std::string;
  *client.app_id = id;
}

std::string ipcGetAppID() {
  const std::lock_guard<std::mutex> lock(client.table_lock);
  std::string id;
  current_app_id(id);
  return id;
}

int ipcRegisterNotificationCB(const std::string& notification, NotificationCallback cb, void* data,
                              int priority, const std::string& to) {
  static constexpr char kName[] = "ipcRegisterNotificationCB";
  const LogChannelScope scope(kLogNotifyClient);
  if (cb == nullptr) {
    warn_of_deprecated_use(kName);
    return ipcUnregisterNotificationCB(notification, nullptr, nullptr, to);
  }
  std::string name = to;
  if (!resolve_name(kName, name)) return kNoName;
  if (!connected_for(kName)) return kNotTold;
  const std::lock_guard<std::mutex> lock(client.table_lock);
  return register_notification({name, notification, cb, data, priority});
}

int ipcUnregisterNotificationCB(const std::string& notification, NotificationCallback cb,
                                void* data, const std::string& to) {
  static constexpr char kName[] = "ipcUnregisterNotificationCB";
  const LogChannelScope scope(kLogNotifyClient);
  std::string name = to;
  if (!resolve_name(kName, name)) return kNoName;
  if (!connected_for(kName)) return kNotTold;
  const std::lock_guard<std::mutex> lock(client.table_lock);
  bool removed = false;
  remove_records(
      lazy_table(client.notification_table),
      [&](const NotificationRecord& record) {
        return in_group(record, name, notification) && names(cb, data, record);
      },
      [&] { removed = true; });
  if (removed) note_removal(name, notification);
  return tell_of_removal(name, notification);
}

int ipcRegisterObserver(ObserverCallback cb, void* data) {
  static constexpr char kName[] = "ipcRegisterObserver";
  const LogChannelScope scope(kLogNotifyClient);
  if (cb == nullptr) {
    warn_of_deprecated_use(kName);
    return ipcUnregisterObserver(nullptr, data);
  }
  if (!connected_for(kName)) return kNotTold;
  if (client.remote_client.load(std::memory_order_relaxed)) {
    ZEDIPC_CLIENT_LOG(
        kLogError,
        "ipcRegisterObserver(): not permitted to register an observer as remote client\n");
    return kRemoteObserver;
  }
  const std::lock_guard<std::mutex> lock(client.table_lock);
  if (find_record(lazy_table(client.observer_table), cb, data) != nullptr) {
    ZEDIPC_CLIENT_LOG(
        kLogNote, "ipcRegisterObserver(): observer callback already registered (cb=%p, data%p)\n",
        printable(cb), data);
    return kDone;
  }
  const std::string message = register_observer_text();
  const SendResult told = send_or_log(kName, kCurrentConnection, message);
  if (!told.sent) return kNotTold;
  if (add_record(new ObserverRecord{{}, cb, data}, told.epoch))
    send_to_server(kCurrentConnection, message);
  ZEDIPC_CLIENT_LOG(kLogInfo,
                    "ipcRegisterObserver(): observer callback registered (cb=%p, data%p)\n",
                    printable(cb), data);
  return kDone;
}

int ipcUnregisterObserver(ObserverCallback cb, void* data) {
  const LogChannelScope scope(kLogNotifyClient);
  const std::lock_guard<std::mutex> lock(client.table_lock);
  auto& table = lazy_table(client.observer_table);
  remove_records(
      table, [&](const ObserverRecord& record) { return names(cb, data, record); },
      [&] {
        ZEDIPC_CLIENT_LOG(
            kLogInfo, "ipcUnregisterObserver(): observer callback unregistered (cb=%p, data%p)\n",
            printable(cb), data);
      });
  if (!table.empty()) return kDone;
  const std::string message = unregister_observer_text();
  if (!send_or_log("ipcUnregisterObserver", kCurrentConnection, message).sent) return kNotTold;
  // The other function's name is what readers of the log look for.
  ZEDIPC_CLIENT_LOG(kLogInfo, "ipcRegisterObserver(): client unregistered in server\n");
  return kDone;
}

int ipcRegisterUnicastError(UnicastErrorCallback cb, void* data) {
  static constexpr char kName[] = "ipcRegisterUnicastError";
  const LogChannelScope scope(kLogNotifyClient);
  if (cb == nullptr) {
    warn_of_deprecated_use(kName);
    return ipcUnregisterUnicastError(nullptr, nullptr);
  }
  const std::lock_guard<std::mutex> lock(client.table_lock);
  auto& table = lazy_table(client.unicast_error_table);
  if (find_record(table, cb, data) != nullptr) {
    ZEDIPC_CLIENT_LOG(
        kLogNote,
        "ipcRegisterUnicastError(): unicast error callback already registered (cb=%p, data%p)\n",
        printable(cb), data);
    return kDone;
  }
  append(table, new UnicastErrorRecord{{}, cb, data});
  ZEDIPC_CLIENT_LOG(
      kLogInfo, "ipcRegisterUnicastError(): unicast error callback registered (cb=%p, data%p)\n",
      printable(cb), data);
  return kDone;
}

int ipcUnregisterUnicastError(UnicastErrorCallback cb, void* data) {
  const LogChannelScope scope(kLogNotifyClient);
  const std::lock_guard<std::mutex> lock(client.table_lock);
  remove_records(
      lazy_table(client.unicast_error_table),
      [&](const UnicastErrorRecord& record) { return names(cb, data, record); },
      [&] {
        ZEDIPC_CLIENT_LOG(kLogInfo,
                          "ipcUnregisterUnicastError(): unregistered unicast error callback "
                          "(cb=%p, data%p)\n",
                          printable(cb), data);
      });
  return kDone;
}

}  // namespace zedipc
