// SPDX-License-Identifier: MIT
// Threads for calls, and the counting of those that run.
#include "notifyclient/calls.h"

#include "base/thread.h"

namespace zedipc {

namespace {

// The record that this thread calls; null if it calls none.
thread_local const CallbackRecord* called = nullptr;

// Touches neither the log nor its channel, so that a callback starts on a thread that
// has none.
void* callback_thread(void* parameters) {
  const std::unique_ptr<CBParameters> p(static_cast<CBParameters*>(parameters));
  called = &p->hold.record();
  if (p->callback != nullptr) {
    p->callback(called->data, p->from, p->to, p->notification, p->parameter, p->flags);
  } else {
    p->observer(called->data, p->from, p->to, p->notification, p->flags);
  }
  called = nullptr;  // the thread may have code of the application's to run at its end
  return nullptr;
}

}  // namespace

CallHold::~CallHold() {
  if (record_ == nullptr) return;
  const MutexLock lock(table_lock);
  --record_->calls;
  if (client.waiting_for_calls > 0) client.changed.notify_all();
}

void async_cb(std::unique_ptr<CBParameters> parameters) {
  const ThreadStart start = start_thread(callback_thread, parameters.get());
  if (start.error == 0) {
    static_cast<void>(parameters.release());  // the thread frees it
    return;
  }
  ZEDIPC_CLIENT_LOG(kLogError, "async_cb(): %s() failed with error=%d\n", start.call, start.error);
}

void start_call(CallHold hold, NotificationCallback callback, const Headline& headline,
                JSObject parameter) {
  async_cb(std::unique_ptr<CBParameters>(
      new CBParameters{std::move(hold), callback, nullptr, headline.from, headline.to,
                       headline.notification, std::move(parameter), headline.flags}));
}

void start_call(CallHold hold, ObserverCallback observer, const Headline& headline) {
  async_cb(std::unique_ptr<CBParameters>(
      new CBParameters{std::move(hold), nullptr, observer, headline.from, headline.to,
                       headline.notification, JSObject(), headline.flags}));
}

bool in_call() { return called != nullptr; }

bool calls_have_ended(const CallbackRecord& record) {
  return record.calls <= (called == &record ? 1 : 0);
}

void wait_for_calls(const CallbackRecord& record) {
  const MutexLock lock(table_lock);
  ++client.waiting_for_calls;
  while (!calls_have_ended(record)) client.changed.wait(table_lock);
  --client.waiting_for_calls;
}

}  // namespace zedipc
