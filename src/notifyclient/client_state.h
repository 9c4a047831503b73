// SPDX-License-Identifier: MIT
// The notification client's state. A process has one client, which begins with its
// first call and never ends.
//
// Locks: connect_lock or table_lock first, never both; then a record's lock, which the
// record's running callbacks hold shared; then send_lock; and innermost, for a moment,
// table_create_lock or change_lock.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <zedipc/ipc.h>
#include <zedipc/notify.h>

#include "log/log.h"
#include "notifyclient/record_lock.h"

namespace zedipc {

// Readers of the log know the whole subsystem by this module.
inline constexpr char kClientModule[] = "src/notifyclient.cpp";

#define ZEDIPC_CLIENT_LOG(level, ...) dbg_log(kClientModule, __LINE__, level, __VA_ARGS__)

struct NotificationRecord {
  ReadWriteLock lock;
  const std::string to;
  const std::string notification;
  const NotificationCallback cb;
  void* const data;
  std::int32_t priority;  // written under table_lock and change_lock
  bool told;              // change_lock: the newest connection has been told
};

struct ObserverRecord {
  ReadWriteLock lock;
  const ObserverCallback cb;
  void* const data;
};

struct UnicastErrorRecord {
  ReadWriteLock lock;
  const UnicastErrorCallback cb;
  void* const data;
};

// The server knows a client's records by their group, (to, notification).
inline bool in_group(const NotificationRecord& record, const std::string& to,
                     const std::string& notification) {
  return record.to == to && record.notification == notification;
}

// In order of registration. Records belong to their table.
using NotificationTable = std::vector<NotificationRecord*>;
using ObserverTable = std::vector<ObserverRecord*>;
using UnicastErrorTable = std::vector<UnicastErrorRecord*>;

// The results of the public calls.
constexpr int kDone = 0;
constexpr int kNotTold = -1;  // no connection, or a message could not be written
constexpr int kNoName = -2;
constexpr int kRemoteObserver = -3;

class Restoration;

struct ClientState {
  // One write at a time, and no teardown of the connection during a write.
  std::mutex send_lock;
  pthread_cond_t reconnect_cond = PTHREAD_COND_INITIALIZER;  // signalled at each teardown

  std::mutex connect_lock;  // one attempt to connect at a time

  // The connection; null while there is none. Published under change_lock, cleared
  // and deleted under send_lock, which whoever uses the connection therefore holds;
  // only the reader thread, which alone deletes it, may go without.
  std::atomic<IPC*> server_ipc{nullptr};
  std::atomic<std::uint32_t> connection_epoch{0};  // the epoch that server_ipc belongs to
  std::atomic<bool> remote_client{false};          // the server's host is not this machine

  // Held by every call and every message that works on the tables, from first to
  // last: over what the server is told, and over the wait for running callbacks.
  std::mutex table_lock;
  std::mutex table_create_lock;  // the creation of a table, nothing else
  std::atomic<NotificationTable*> notification_table{nullptr};
  std::atomic<ObserverTable*> observer_table{nullptr};
  std::atomic<UnicastErrorTable*> unicast_error_table{nullptr};

  // For the moment of a change, so that a thread without table_lock can look at the
  // tables and at app_id. Never held over I/O or over a wait.
  std::mutex change_lock;
  std::string* app_id = nullptr;       // null until the first ipcSetAppID
  std::uint32_t epoch = 0;             // change_lock: counts the restorations
  Restoration* restoration = nullptr;  // change_lock: the one that is going on
};

// Made at load without a constructor and never destroyed: threads of the client run
// until the process has gone.
extern ClientState client;

// The table behind a pointer of the state, made at its first use.
template <typename Table>
Table& lazy_table(std::atomic<Table*>& pointer) {
  Table* table = pointer.load(std::memory_order_acquire);
  if (table == nullptr) {
    const std::lock_guard<std::mutex> lock(client.table_create_lock);
    table = pointer.load(std::memory_order_relaxed);
    if (table == nullptr) {
      table = new Table;
      pointer.store(table, std::memory_order_release);
    }
  }
  return *table;
}

// The application id; false if there is none, or an empty one. Takes change_lock.
bool current_app_id(std::string& id);

// A function pointer for a log line.
template <typename Function>
void* printable(Function* function) {
  return reinterpret_cast<void*>(function);
}

}  // namespace zedipc
