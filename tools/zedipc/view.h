// SPDX-License-Identifier: MIT
// Notifications as lines.
#pragma once

#include <functional>
#include <string>

#include "zedipc/commands.h"
#include "zedipc/inbox.h"
#include "zedipc/output.h"

namespace command {

// One notification in a format: "text" for people, "json" for programs (one valid object),
// or "raw", the parameter alone: a string without its quotes, and the notification's name
// where the parameter is not known.
std::string shown(const Message& message, const std::string& format, const Output& output);

// Passes on what arrives until the options' count or time, Ctrl-C, or the end of the
// reader. Returns the exit status: kFailed if time ran out before the count. The inbox must
// catch signals already.
int watch(Inbox& inbox, const ViewOptions& options,
          const std::function<void(const Message&)>& take);

// The time of day with milliseconds, as in "14:03:07.250".
std::string time_of_day(std::chrono::system_clock::time_point time);

}  // namespace command
