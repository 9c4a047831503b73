// SPDX-License-Identifier: MIT
// Unregistrations: who waits for whom.
#include "notifyclient/unregistration.h"

#include <algorithm>

#include "notifyclient/return_queue.h"
#include "notifyclient/tables.h"
#include "protocol/protocol.h"

namespace zedipc {

Unregistration::Unregistration(const std::string& to, const std::string& notification,
                               NotificationCallback cb, const void* data)
    : to_(to), notification_(notification) {
  const MutexLock changing(client.registration_lock);
  const MutexLock lock(table_lock);
  client.unregistrations.reserve(client.unregistrations.size() + 1);
  to_await_ = take_out(client.notification_table, [&](const NotificationRecord& record) {
                return record.in_group(to, notification) && matches(record, cb, data);
              }).to_await;
  client.unregistrations.push_back(this);
}

Unregistration::~Unregistration() {
  {
    const MutexLock lock(table_lock);
    auto& all = client.unregistrations;
    all.erase(std::find(all.begin(), all.end(), this));
  }
  ReturnQueue::resume();
  for (const auto& record : to_await_) wait_for_calls(*record);
}

void Unregistration::wait() {
  const auto has_ended = [](const auto& record)
                             REQUIRES(table_lock) { return calls_have_ended(*record); };
  const MutexLock lock(table_lock);
  ++client.waiting_for_calls;
  while (!hurried_ && !std::all_of(to_await_.begin(), to_await_.end(), has_ended)) {
    client.changed.wait(table_lock);
  }
  --client.waiting_for_calls;
}

bool Unregistration::hurry(const std::string& to, const std::string& notification) {
  bool found = false;
  for (Unregistration* const waiting : client.unregistrations) {
    if (waiting->notification_ != notification) continue;
    if (to != kToAll && to != kToHighestPriority && to != waiting->to_) continue;
    waiting->hurried_ = true;
    found = true;
  }
  if (found) client.changed.notify_all();
  return found;
}

}  // namespace zedipc
