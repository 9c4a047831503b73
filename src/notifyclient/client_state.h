// SPDX-License-Identifier: MIT
// The notification client's state. A process has one client, which begins with its first
// call and never ends.
//
// The server does not read from a client while it writes to it, so the thread that reads
// must never wait for one that writes, nor for one that waits for a callback: it takes
// table_lock alone, which nobody holds for longer than a moment.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <zedipc/notify.h>

#include "base/mutex.h"
#include "log/log.h"

namespace zedipc {

// Readers of the log know the whole subsystem by this module.
inline constexpr char kClientModule[] = "src/notifyclient.cpp";

#define ZEDIPC_CLIENT_LOG(level, ...) dbg_log(kClientModule, __LINE__, level, __VA_ARGS__)

// Guards the tables, what is known of running calls, and the application id. The innermost
// of the client's locks: never held over I/O or a wait. It stands by itself for the records,
// which name it ahead of the state.
extern Mutex table_lock;

// A callback as the application registered it. Records are never changed, but for the
// count: another priority makes another record.
struct CallbackRecord {
  void* const data;
  int calls GUARDED_BY(table_lock) = 0;  // decided on, and not wholly ended
};

struct NotificationRecord : CallbackRecord {
  // The server knows a client's records by their group, (to, notification).
  [[nodiscard]] bool in_group(const std::string& name, const std::string& what) const {
    return to == name && notification == what;
  }

  const std::string to;
  const std::string notification;
  const NotificationCallback cb;
  const std::int32_t priority;
};

struct ObserverRecord : CallbackRecord {
  const ObserverCallback cb;
};

struct UnicastErrorRecord : CallbackRecord {
  const UnicastErrorCallback cb;
};

template <typename Record>
using Records = std::vector<std::shared_ptr<Record>>;

template <typename Record>
struct Table {
  Records<Record> records;  // in the order of registration
  Records<Record> left;     // that are no longer registered, with calls that may still run
};

struct Connection;
class Unregistration;

struct ClientState {
  // In the order in which they are taken; table_lock comes last.
  Mutex connect_lock;       // one attempt to connect at a time, with all that it sends
  Mutex registration_lock;  // one change of what the server knows at a time, with its message
  Mutex send_lock;          // one write at a time, and no teardown of the connection during it

  // The connection in use; null while there is none. Set under table_lock, cleared under
  // send_lock, which whoever writes on it therefore holds.
  std::atomic<Connection*> server_ipc{nullptr};
  std::atomic<bool> remote_client{false};  // the server's host is not this machine

  std::string app_id GUARDED_BY(table_lock);
  Table<NotificationRecord> notification_table GUARDED_BY(table_lock);
  Table<ObserverRecord> observer_table GUARDED_BY(table_lock);
  Table<UnicastErrorRecord> unicast_error_table GUARDED_BY(table_lock);
  std::uint64_t table_changes GUARDED_BY(table_lock) = 0;  // in the first two tables
  std::uint32_t generation GUARDED_BY(table_lock) = 0;     // of the connection in use last
  std::vector<Unregistration*> unregistrations GUARDED_BY(table_lock);  // that wait for calls
  int waiting_for_calls GUARDED_BY(table_lock) = 0;                     // threads
  bool reconnecting GUARDED_BY(table_lock) = false;                     // a thread is retrying

  Condition changed;  // with table_lock: something of the above, or of a connection
};

// Made at load and never destroyed: threads of the client run until the process has gone.
extern ClientState& client;

// The application id; "" if there is none.
std::string current_app_id();

// A function pointer for a log line.
template <typename Function>
void* printable(Function* function) {
  return reinterpret_cast<void*>(function);
}

}  // namespace zedipc
