// SPDX-License-Identifier: MIT
// One call of a callback, on a thread of its own.
#pragma once

#include <memory>
#include <string>

#include <zedipc/jsobject.h>
#include <zedipc/notify.h>

#include "notifyclient/calls.h"
#include "protocol/message.h"

namespace zedipc {

// All that an invocation uses, from the thread that decides on it to the thread that runs
// it. The hold comes first and so goes last: whoever waits for the record's calls then
// knows that this one has wholly ended.
struct CBParameters {
  CallHold hold;
  NotificationCallback callback;  // null for an observer
  ObserverCallback observer;      // null otherwise
  std::string from;
  std::string to;
  std::string notification;
  JSObject parameter;
  unsigned int flags;
};

// Starts the thread, and hands the block over to it. If there can be no thread the call is
// lost, and the block freed.
void async_cb(std::unique_ptr<CBParameters> parameters);

// Starts the call that `hold` stands for, of a record with this callback, with copies of
// everything but the parameter, which it takes: whoever has no more use for it gives it
// away, since it can be large.
void start_invocation(CallHold hold, NotificationCallback callback, const Headline& headline,
                      JSObject parameter);
void start_invocation(CallHold hold, ObserverCallback observer, const Headline& headline);

}  // namespace zedipc
