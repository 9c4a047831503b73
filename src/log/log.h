// SPDX-License-Identifier: MIT
// The library's diagnostics. A message goes to the channel of the thread that
// logs it; the environment variables IPC_LOGMASK and NFY_LOGMASK, read at the
// first call, choose which levels of which channels are written to stderr. Where
// neither is set, messages go to the device's log library, or nowhere.
#pragma once

#include <time.h>

#include <cstdarg>
#include <string>

namespace zedipc {

enum LogLevel : unsigned {
  kLogEmerg = 0,
  kLogAlert = 1,
  kLogCritical = 2,
  kLogError = 3,
  kLogWarning = 4,
  kLogNote = 5,
  kLogInfo = 6,
  kLogDebug = 7
};

enum LogChannel : int {
  kLogIpc = 0,           // IPC: the message channels
  kLogNotifyServer = 1,  // NFY: the notification server
  kLogNotifyClient = 2,  // NFYCL: the notification client
  kLogChannels = 3,
  kLogNoChannel = -1  // a thread that has not entered the library
};

// Logs one message on the thread's channel. `module` is the path by which readers
// of the log know the subsystem; `format` is printf's and ends with its own "\n".
// Never reports a failure. A line goes to stderr as one write.
void dbg_log(const char* module, int line, unsigned level, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void dbg_vlog(const char* module, int line, unsigned level, const char* format, va_list ap)
    __attribute__((format(printf, 4, 0)));

// Whether a message of this level would come out on the thread's channel. Ask before
// building text that only the log needs.
bool dbg_log_enabled(unsigned level);

// The thread's channel.
int& dbg_log_channel();

// Chooses where messages go, once per process. The log calls do it themselves.
void dbg_log_init();

// Writes "PID " and this process's id to a buffer of 32 bytes, and returns it.
const char* pid_text(char* buffer);

void monotonic_now(timespec& t);

// Copies an environment variable to `value`. If the variable is not set this gives false
// and an empty `value`; one that is set to nothing counts as set. Safe on several threads,
// as long as none changes the environment meanwhile.
bool env_lookup(const char* name, std::string& value);

// Sets the thread's channel for a scope. Every public entry point of the library
// that can log has one, so that what runs below it logs as its layer.
class LogChannelScope {
 public:
  explicit LogChannelScope(LogChannel channel) : slot_(dbg_log_channel()), saved_(slot_) {
    slot_ = channel;
  }
  ~LogChannelScope() { slot_ = saved_; }
  LogChannelScope(const LogChannelScope&) = delete;
  LogChannelScope& operator=(const LogChannelScope&) = delete;

 private:
  int& slot_;
  const int saved_;
};

}  // namespace zedipc
