// SPDX-License-Identifier: MIT
// The device's own log library: where it is installed, it takes the messages of a
// process that does not choose the masks. It is found at run time, so that nothing
// depends on it.
#pragma once

#include <cstdarg>

#include "log/log.h"

namespace zedipc {

// Finds the library and binds it, or says on standard error why not. Called once, by
// dbg_log_init; the functions below may be called by any thread from then on.
// `pid` is the text by which the lines name the process.
void log_library_bind(const char* pid, const char* const (&channel_names)[kLogChannels]);

// Whether messages of this channel go to the log library.
bool log_library_bound(int channel);

// For a bound channel. The log library does its own filtering.
bool log_library_enabled(int channel, unsigned level);
void log_library_vlog(int channel, const char* module, int line, unsigned level, const char* format,
                      va_list ap) __attribute__((format(printf, 5, 0)));

}  // namespace zedipc
