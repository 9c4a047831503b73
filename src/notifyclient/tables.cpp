// SPDX-License-Identifier: MIT
#include "notifyclient/tables.h"

#include <type_traits>

#include "protocol/protocol.h"

namespace zedipc {

static_assert(std::is_trivially_destructible<ClientState>::value,
              "threads of the client use it until the process has gone");
ClientState client;

namespace {

// change_lock is held. Whether a connection newer than `sent` is in use already.
bool newer_stands(std::uint32_t sent) {
  return client.epoch != sent && client.server_ipc.load(std::memory_order_relaxed) != nullptr;
}

}  // namespace

bool current_app_id(std::string& id) {
  const std::lock_guard<std::mutex> lock(client.change_lock);
  if (client.app_id == nullptr) return false;
  id = *client.app_id;
  return !id.empty();
}

bool add_record(NotificationRecord* record, std::uint32_t sent) {
  auto& table = lazy_table(client.notification_table);
  const std::lock_guard<std::mutex> changing(client.change_lock);
  record->told = client.epoch == sent;
  table.push_back(record);
  return newer_stands(sent);
}

bool add_record(ObserverRecord* record, std::uint32_t sent) {
  auto& table = lazy_table(client.observer_table);
  const std::lock_guard<std::mutex> changing(client.change_lock);
  table.push_back(record);
  return newer_stands(sent);
}

bool change_priority(NotificationRecord& record, int priority, std::uint32_t sent) {
  const std::lock_guard<std::mutex> changing(client.change_lock);
  record.priority = priority;
  record.told = client.epoch == sent;
  return newer_stands(sent);
}

void note_removal(const std::string& to, const std::string& notification) {
  auto& table = lazy_table(client.notification_table);
  const std::lock_guard<std::mutex> changing(client.change_lock);
  if (client.restoration == nullptr) return;
  bool any_left = false;
  for (NotificationRecord* const record : table) {
    if (record->to != to || record->notification != notification) continue;
    record->told = false;
    any_left = true;
  }
  if (!any_left) client.restoration->removed.emplace_back(to, notification);
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
    news.observer_message = observer_told_ ? kTypeRegisterObserver : kTypeUnregisterObserver;
  }
  if (!news.removed.empty() || !news.registered.empty() || news.observer_message != nullptr) {
    return false;
  }
  client.connection_epoch.store(client.epoch, std::memory_order_relaxed);
  client.server_ipc.store(connection, std::memory_order_release);
  client.restoration = nullptr;
  return true;
}

}  // namespace zedipc
