// SPDX-License-Identifier: MIT
// Changes to the client's tables, kept in step with a connection that is being made.
//
// A new connection is told of all registrations before anybody else may use it. That
// happens without table_lock, so a call on another thread can meanwhile change a
// table whose old state has been told already, or change it after its own message
// went out on a connection that has died. Each connection therefore has an epoch,
// and each record says whether the newest connection has been told of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "notifyclient/client_state.h"

namespace zedipc {

// Adds a record, which it takes: where there is no memory for that it is freed. The caller
// holds table_lock.
template <typename Record>
void append(std::vector<Record*>& table, Record* record) {
  std::unique_ptr<Record> owner(record);
  table.push_back(record);
  static_cast<void>(owner.release());
}

// The changes. The caller holds table_lock and has told the server on the connection
// of epoch `sent`. True: a newer connection stands, which knows nothing of the
// change, and the caller has to tell the server once more. Of a newer connection
// that is still being made the restoration takes care.
[[nodiscard]] bool add_record(NotificationRecord* record, std::uint32_t sent);
[[nodiscard]] bool add_record(ObserverRecord* record, std::uint32_t sent);
[[nodiscard]] bool change_priority(NotificationRecord& record, int priority, std::uint32_t sent);

// At least one record of the group was removed. The caller holds table_lock.
void note_removal(const std::string& to, const std::string& notification);

// Waits for the record's running callbacks to end, and removes and frees it. The
// caller holds table_lock.
template <typename Record>
void remove_record(std::vector<Record*>& table, std::size_t index) {
  Record* const record = table[index];
  {
    const ReadWriteGuard guard(&record->lock, ReadWriteGuard::kExclusive);
    const std::lock_guard<std::mutex> changing(client.change_lock);
    table.erase(table.begin() + static_cast<std::ptrdiff_t>(index));
  }
  delete record;
}

// The telling of a new connection, for the life of the object. The caller holds
// connect_lock.
class Restoration {
 public:
  struct Registered {
    std::string to;
    std::string notification;
    NotificationCallback cb;
    void* data;
    int priority;
  };
  using Group = std::pair<std::string, std::string>;  // to, notification

  // What the connection has still to be told, in this order.
  struct News {
    std::vector<Group> removed;
    std::vector<Registered> registered;
    std::string observer_message;  // empty if there is none
  };

  Restoration();
  ~Restoration();
  Restoration(const Restoration&) = delete;
  Restoration& operator=(const Restoration&) = delete;

  // Gives the connection to all threads if it knows everything. Otherwise gives, in
  // `news`, what it does not know yet, and from then on counts that as told: a
  // connection on which it cannot be sent has to be given up.
  bool publish(IPC* connection, News& news);

  std::vector<Group> removed;  // change_lock: groups that went since they were told

 private:
  bool observer_told_ = false;
};

}  // namespace zedipc
