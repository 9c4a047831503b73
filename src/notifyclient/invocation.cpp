// SPDX-License-Identifier: MIT
// Threads for callbacks: each call gets one, and what it needs goes with it.
#include "notifyclient/invocation.h"

#include <memory>
#include <utility>

#include "base/thread.h"

namespace zedipc {

namespace {

// Touches neither the log nor its channel, so that a callback starts on a thread that
// has none.
void* callback_thread(void* parameters) {
  const std::unique_ptr<CBParameters> p(static_cast<CBParameters*>(parameters));
  own_call = &p->hold.record();
  void* const data = own_call->data;
  if (p->callback != nullptr) {
    p->callback(data, p->from, p->to, p->notification, p->parameter, p->flags);
  } else if (p->observer != nullptr) {
    p->observer(data, p->from, p->to, p->notification, p->flags);
  }
  return nullptr;
}

}  // namespace

void async_cb(std::unique_ptr<CBParameters> parameters) {
  const ThreadStart start = start_thread(callback_thread, parameters.get());
  if (start.error == 0) {
    static_cast<void>(parameters.release());  // the thread frees it
    return;
  }
  ZEDIPC_CLIENT_LOG(kLogError, "async_cb(): %s() failed with error=%d\n", start.call, start.error);
}

void start_invocation(CallHold hold, NotificationCallback callback, const Headline& headline,
                      JSObject parameter) {
  async_cb(std::unique_ptr<CBParameters>(
      new CBParameters{std::move(hold), callback, nullptr, headline.from, headline.to,
                       headline.notification, std::move(parameter), headline.flags}));
}

void start_invocation(CallHold hold, ObserverCallback observer, const Headline& headline) {
  async_cb(std::unique_ptr<CBParameters>(
      new CBParameters{std::move(hold), nullptr, observer, headline.from, headline.to,
                       headline.notification, JSObject(), headline.flags}));
}

}  // namespace zedipc
