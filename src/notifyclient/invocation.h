// SPDX-License-Identifier: MIT
// One call of a callback, on a thread of its own.
#pragma once

#include <string>

#include <zedipc/jsobject.h>
#include <zedipc/notify.h>

#include "notifyclient/client_state.h"
#include "protocol/message.h"

namespace zedipc {

// All that an invocation uses, from the thread that decides on it to the thread that
// runs it. The shared hold on the record comes first and so goes last: whoever gets
// the record's lock exclusively then knows that the invocation has wholly ended.
struct CBParameters {
  ReadWriteGuard guard;
  NotificationCallback callback;  // null for an observer
  ObserverCallback observer;      // null otherwise
  void* data;
  std::string from;
  std::string to;
  std::string notification;
  JSObject parameter;
  unsigned int flags;
};

// Starts the thread, and hands the block over to it. If there can be no thread the
// block stays, and so does its hold on the record.
void async_cb(CBParameters* parameters);

// What a callback is told, apart from its data and the parameter.
using Call = Headline;

// Starts one invocation of the record with copies of everything but the parameter, which
// it takes: whoever has no more use for it gives it away, since it can be large. The
// caller holds table_lock, which keeps exclusive holders of the record away.
void start_invocation(NotificationRecord& record, const Call& call, JSObject parameter);
void start_invocation(UnicastErrorRecord& record, const Call& call, JSObject parameter);
void start_invocation(ObserverRecord& record, const Call& call);

}  // namespace zedipc
