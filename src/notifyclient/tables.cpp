// SPDX-License-Identifier: MIT
#include "notifyclient/tables.h"

#include "protocol/message.h"

namespace zedipc {

namespace {

// change_lock is held. Whether a connection newer than `sent` is in use already.
bool newer_stands(std::uint32_t sent) {
  return client.epoch != sent && client.server_ipc.load(std::memory_order_relaxed) != nullptr;
}

// change_lock is held. The server keeps what it was told last, so that a change to one
// record of a group has all of them told once more, in their order. False if the group
// has none.
bool tell_group_anew(const std::string& to, const std::string& notification) {
  bool any = false;
  for (NotificationRecord* const record : lazy_table(client.notification_table)) {
    if (!in_group(*record, to, notification)) continue;
    record->told = false;
    any = true;
  }
  return any;
}

}  // namespace

bool add_record(NotificationRecord* record, std::uint32_t sent) {
  auto& table = lazy_table(client.notification_table);
  const std::lock_guard<std::mutex> changing(client.change_lock);
  record->told = client.epoch == sent;
  append(table, record);
  return newer_stands(sent);
}

bool add_record(ObserverRecord* record, std::uint32_t sent) {
  auto& table = lazy_table(client.observer_table);
  const std::lock_guard<std::mutex> changing(client.change_lock);
  append(table, record);
  return newer_stands(sent);
}

bool change_priority(NotificationRecord& record, int priority, std::uint32_t sent) {
  const std::lock_guard<std::mutex> changing(client.change_lock);
  record.priority = priority;
  if (client.epoch != sent) tell_group_anew(record.to, record.notification);
  return newer_stands(sent);
}

void note_removal(const std::string& to, const std::string& notification) {
  const std::lock_guard<std::mutex> changing(client.change_lock);
  if (client.restoration == nullptr) return;
  if (!tell_group_anew(to, notification))
    client.restoration->removed.emplace_back(to, notification);
}

Restoration::Restoration() {
  auto& table = lazy_table(client.notification_table);
  const std::lock_guard<std::mutex> changing(client.change_lock);
  ++client.epoch;
  client.restoration = this;
  for (NotificationRecord* const record : table) record->told = false;
}

Restoration::~Restoration() {
  const std::lock_guard<std::mutex> changing(client.change_lock);
  client.restoration = nullptr;
}

bool Restoration::publish(IPC* connection, News& news) {
  auto& notifications = lazy_table(client.notification_table);
  auto& observers = lazy_table(client.observer_table);
  news = News();
  const std::lock_guard<std::mutex> changing(client.change_lock);
  news.removed.swap(removed);
  for (NotificationRecord* const record : notifications) {
    if (record->told) continue;
    record->told = true;
    news.registered.push_back(
        {record->to, record->notification, record->cb, record->data, record->priority});
  }
  if (observers.empty() == observer_told_) {
    observer_told_ = !observer_told_;
    news.observer_message = observer_told_ ? register_observer_text() : unregister_observer_text();
  }
  if (!news.removed.empty() || !news.registered.empty() || !news.observer_message.empty()) {
    return false;
  }
  client.connection_epoch.store(client.epoch, std::memory_order_relaxed);
  client.server_ipc.store(connection, std::memory_order_release);
  client.restoration = nullptr;
  return true;
}

}  // namespace zedipc
