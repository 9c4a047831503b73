// SPDX-License-Identifier: MIT
// Stands in for the device's log library. It writes to standard error what it is asked
// for; its answers are in the environment:
//   LIBLOG_VERSION    its version; null if that is not set
//   LIBLOG_<CHANNEL>  the number that is the channel's handle; null if that is not set
//   LIBLOG_ENOUGH     the answer to LogAPI_LevelEnough2
//   LIBLOG_MEETING    if that is set, two threads have to be in it at once to get on
#include <pthread.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

pthread_barrier_t meeting;

void meet() {
  if (getenv("LIBLOG_MEETING") != nullptr) pthread_barrier_wait(&meeting);
}

__attribute__((constructor)) void open_library() {
  pthread_barrier_init(&meeting, nullptr, 2);
  dprintf(STDERR_FILENO, "liblog opened\n");
}

// The variable is set in a process that ends by exit (see support/child.h, which is not
// included since a library with such symbols in it cannot be unloaded).
__attribute__((destructor)) void close_library() {
  if (getenv("ENDS_BY_EXIT") == nullptr) dprintf(STDERR_FILENO, "liblog closed\n");
}

}  // namespace

extern "C" {

const char* log_getVersion() { return getenv("LIBLOG_VERSION"); }

void* LogAPI_Init2(const char* channel) {
  const char* const handle = getenv((std::string("LIBLOG_") + channel).c_str());
  return handle == nullptr ? nullptr : reinterpret_cast<void*>(std::strtoul(handle, nullptr, 16));
}

int LogAPI_LevelEnough2(void* handle, int level) {
  dprintf(STDERR_FILENO, "liblog asked of level %d on %p\n", level, handle);
  meet();
  return std::atoi(getenv("LIBLOG_ENOUGH"));
}

__attribute__((format(printf, 5, 0))) void LogAPI_vprintf2(void* handle, int level,
                                                           const char* module, int line,
                                                           const char* format, va_list ap) {
  char* text = nullptr;
  if (vasprintf(&text, format, ap) < 0) std::abort();
  dprintf(STDERR_FILENO, "liblog got level %d on %p from %s:%d: %s", level, handle,
          module == nullptr ? "null" : module, line, text);
  std::free(text);
  meet();
}

}  // extern "C"
