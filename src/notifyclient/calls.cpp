// SPDX-License-Identifier: MIT
// Running calls: counting them, and waking whoever waits for their end.
#include "notifyclient/calls.h"

namespace zedipc {

thread_local const CallbackRecord* own_call = nullptr;

CallHold::~CallHold() {
  if (record_ == nullptr) return;
  const MutexLock lock(table_lock);
  --record_->calls;
  if (client.waiting_for_calls > 0) client.changed.notify_all();
}

bool calls_have_ended(const CallbackRecord& record) {
  return record.calls == (own_call == &record ? 1 : 0);
}

void wait_for_calls(const CallbackRecord& record) {
  const MutexLock lock(table_lock);
  ++client.waiting_for_calls;
  while (!calls_have_ended(record)) client.changed.wait(table_lock);
  --client.waiting_for_calls;
}

}  // namespace zedipc
