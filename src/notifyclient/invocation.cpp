// SPDX-License-Identifier: MIT
#include "notifyclient/invocation.h"

#include <pthread.h>

#include <memory>
#include <utility>

namespace zedipc {

namespace {

// Touches neither the log nor its channel, so that a callback starts on a thread that
// has none.
void* callback_thread(void* parameters) {
  const std::unique_ptr<CBParameters> p(static_cast<CBParameters*>(parameters));
  if (p->callback != nullptr) {
    p->callback(p->data, p->from, p->to, p->notification, p->parameter, p->flags);
  } else if (p->observer != nullptr) {
    p->observer(p->data, p->from, p->to, p->notification, p->flags);
  }
  return nullptr;
}

void start(ReadWriteLock& lock, NotificationCallback callback, ObserverCallback observer,
           void* data, const Call& call, JSObject parameter) {
  async_cb(new CBParameters{{&lock, ReadWriteGuard::kShared},
                            callback,
                            observer,
                            data,
                            call.from,
                            call.to,
                            call.notification,
                            std::move(parameter),
                            call.flags});
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the thread frees it

}  // namespace

void async_cb(CBParameters* parameters) {
  if (parameters == nullptr) {
    ZEDIPC_CLIENT_LOG(kLogError, "async_cb(): error, no CBParameters\n");
    return;
  }
  pthread_attr_t attributes;
  if (const int problem = pthread_attr_init(&attributes)) {
    ZEDIPC_CLIENT_LOG(kLogError, "async_cb(): pthread_attr_init() failed with error=%d\n", problem);
    return;
  }
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  if (const int problem = pthread_create(&thread, &attributes, callback_thread, parameters)) {
    ZEDIPC_CLIENT_LOG(kLogError, "async_cb(): pthread_create() failed with error=%d\n", problem);
  }
  pthread_attr_destroy(&attributes);
}

void start_invocation(NotificationRecord& record, const Call& call, JSObject parameter) {
  start(record.lock, record.cb, nullptr, record.data, call, std::move(parameter));
}

void start_invocation(UnicastErrorRecord& record, const Call& call, JSObject parameter) {
  start(record.lock, record.cb, nullptr, record.data, call, std::move(parameter));
}

void start_invocation(ObserverRecord& record, const Call& call) {
  start(record.lock, nullptr, record.cb, record.data, call, JSObject());
}

}  // namespace zedipc
