// SPDX-License-Identifier: MIT
// The device's own log library. Where it is installed, it gets the messages of every
// process that sets no mask. It is loaded at run time, so that nothing depends on it.
#pragma once

#include <cstdarg>

#include "log/log.h"

namespace zedipc {

// Finds and binds the library, or says on standard error why it cannot. Called once, by
// dbg_log_init; after that any thread may call the functions below. `pid` is how the
// lines name the process.
void log_library_bind(const char* pid, const char* const (&channel_names)[kLogChannels]);

// Whether messages of this channel go to the log library.
bool log_library_bound(int channel);

// For a bound channel. The log library does its own filtering.
bool log_library_enabled(int channel, unsigned level);
void log_library_vlog(int channel, const char* module, int line, unsigned level, const char* format,
                      va_list ap) __attribute__((format(printf, 5, 0)));

}  // namespace zedipc
