// SPDX-License-Identifier: MIT
// The choice of where messages go, and the lines on standard error.
#include "log/log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "base/mutex.h"
#include "base/number.h"
#include "log/log_library.h"

namespace zedipc {

namespace {

const char* const kChannelNames[kLogChannels] = {"IPC", "NFY", "NFYCL"};
const char* const kLevelNames[] = {"emerg",   "alert", "critical", "error",
                                   "warning", "note",  "info",     "debug"};
constexpr std::size_t kPidText = 32;
constexpr std::size_t kLineText = 1024;  // longer lines take memory from the heap

// Set at the end of dbg_log_init. Whoever finds it set reads what that wrote without a lock.
std::atomic<bool> initialised{false};
Mutex log_lock;  // dbg_log_init, and each line
Mutex env_lock;  // the environment
// The levels that come out, as bits, for each channel; all where the log library decides.
std::uint32_t level_masks[kLogChannels] = {};

FILE* const log_stream = stderr;

// With this model access costs no more than to a plain variable, and cannot fail.
thread_local int thread_channel __attribute__((tls_model("initial-exec"))) = kLogNoChannel;

bool is_valid(int channel) { return static_cast<unsigned>(channel) < kLogChannels; }

bool mask_has(int channel, unsigned level) {
  return level < 32 && ((level_masks[channel] >> level) & 1U) != 0;
}

// The fast path, which nearly all messages take. Where this is false, the message may still
// not come out.
bool is_masked_out(unsigned level) {
  if (level >= 32 || !initialised.load(std::memory_order_acquire)) return false;
  return is_valid(thread_channel) && !mask_has(thread_channel, level);
}

bool read_mask(const char* variable, std::int32_t& mask) {
  std::string text;
  if (!env_lookup(variable, text)) return false;
  mask = text_to_int32(text.c_str());
  return true;
}

const char* file_name(const char* path) {
  if (path == nullptr) return "";
  const char* const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

// Writes a line whose head is the first `head` bytes of `text`. At one go, so that nothing
// that others write to standard error can come between the head and the message.
__attribute__((format(printf, 3, 0))) void write_line(char (&text)[kLineText], std::size_t head,
                                                      const char* format, va_list ap) {
  va_list first;
  va_copy(first, ap);
  const int count = std::vsnprintf(&text[head], sizeof text - head, format, first);
  va_end(first);
  const std::size_t size = head + static_cast<std::size_t>(std::max(count, 0));
  std::unique_ptr<char[]> longer;
  if (size >= sizeof text) longer.reset(new (std::nothrow) char[size + 1]);
  const MutexLock lock(log_lock);
  if (size < sizeof text) {
    std::fwrite(text, 1, size, log_stream);
  } else if (longer != nullptr) {
    std::memcpy(longer.get(), text, head);
    std::vsnprintf(&longer[head], size + 1 - head, format, ap);
    std::fwrite(longer.get(), 1, size, log_stream);
  } else {  // two writes are better than no line
    std::fwrite(text, 1, head, log_stream);
    std::vfprintf(log_stream, format, ap);
  }
}

}  // namespace

void dbg_log_init() {
  if (initialised.load(std::memory_order_acquire)) return;
  const MutexLock lock(log_lock);
  if (initialised.load(std::memory_order_relaxed)) return;
  char pid[kPidText];
  pid_text(pid);
  std::int32_t ipc_mask = 0;
  std::int32_t nfy_mask = 0;  // of both notification channels
  const bool ipc_set = read_mask("IPC_LOGMASK", ipc_mask);
  const bool nfy_set = read_mask("NFY_LOGMASK", nfy_mask);
  if (ipc_set || nfy_set) {
    std::fprintf(stderr, "DBGLOG <%s>: Use %s for logging (IPC_LOGMASK=%d, NFY_LOGMASK=%d)\n", pid,
                 "stderr", ipc_mask, nfy_mask);
  } else {
    log_library_bind(pid, kChannelNames);
  }
  for (int channel = 0; channel < kLogChannels; ++channel) {
    const std::int32_t mask = channel == kLogIpc ? ipc_mask : nfy_mask;
    level_masks[channel] = log_library_bound(channel) ? ~0U : static_cast<std::uint32_t>(mask);
  }
  initialised.store(true, std::memory_order_release);
}

bool dbg_log_enabled(unsigned level) {
  dbg_log_init();
  const int channel = dbg_log_channel();
  if (!is_valid(channel)) {
    char pid[kPidText];
    std::fprintf(stderr, "DBGLOG <%s>: Invalid log channel %d !!!\n", pid_text(pid), channel);
    return false;
  }
  if (log_library_bound(channel)) return log_library_enabled(channel, level);
  return mask_has(channel, level);
}

void dbg_log(const char* module, int line, unsigned level, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  if (!is_masked_out(level)) dbg_vlog(module, line, level, format, ap);
  va_end(ap);
}

void dbg_vlog(const char* module, int line, unsigned level, const char* format, va_list ap) {
  dbg_log_init();
  const int channel = dbg_log_channel();
  char pid[kPidText];
  if (!is_valid(channel)) {
    std::fprintf(stderr, "DBGLOG <%s>: Invalid log channel %d !!! (module=%s, line=%d)\n",
                 pid_text(pid), channel, module == nullptr ? "" : module, line);
    return;
  }
  if (log_library_bound(channel)) {
    log_library_vlog(channel, module, line, level, format, ap);
    return;
  }
  if (!mask_has(channel, level)) return;

  timespec now;
  monotonic_now(now);
  // 32 bits on purpose: readers of the log expect the stamp to wrap after 49 days.
  const auto stamp = static_cast<std::uint32_t>(now.tv_sec) * 1000U +
                     static_cast<std::uint32_t>(now.tv_nsec / 1000000);
  char text[kLineText];
  const int head =
      std::snprintf(text, sizeof text, "IPC|%s:%d|%s|%d.%03d|%s:%s|", file_name(module), line,
                    pid_text(pid), static_cast<int>(stamp / 1000U), static_cast<int>(stamp % 1000U),
                    kChannelNames[channel], kLevelNames[level & 7U]);
  write_line(text, std::min(static_cast<std::size_t>(head), sizeof text - 1), format, ap);
}

int& dbg_log_channel() { return thread_channel; }

const char* pid_text(char* buffer) {
  std::snprintf(buffer, kPidText, "PID %d", static_cast<int>(getpid()));
  return buffer;
}

void monotonic_now(timespec& t) {
  t = timespec();
  clock_gettime(CLOCK_MONOTONIC, &t);
}

bool env_lookup(const char* name, std::string& value) {
  value.clear();
  if (name == nullptr) return false;
  const MutexLock lock(env_lock);
  const char* const text = std::getenv(name);
  if (text == nullptr) return false;
  value = text;
  return true;
}

}  // namespace zedipc
