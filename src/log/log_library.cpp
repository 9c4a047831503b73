// SPDX-License-Identifier: MIT
// Finding the device's log library, and handing messages to it.
#include "log/log_library.h"

#include <dlfcn.h>

#include <cstdio>

namespace zedipc {

namespace {

const char kPath[] = "/home/svclog/lib/liblog.so.2";

using GetVersion = const char* (*)();
using Init = void* (*)(const char* channel);
using LevelEnough = int (*)(void* handle, int level);
using Print = void (*)(void* handle, int level, const char* module, int line, const char* format,
                       va_list ap);

// All null unless the library is bound. Written by log_library_bind alone.
void* handles[kLogChannels];
LevelEnough level_enough = nullptr;
Print print = nullptr;

template <typename Function>
Function look_up(void* library, const char* symbol) {
  return reinterpret_cast<Function>(::dlsym(library, symbol));
}

// The log library counts its levels from 1.
int library_level(unsigned level) { return level > kLogDebug ? 0 : static_cast<int>(level) + 1; }

bool too_old(unsigned major, unsigned minor, unsigned patch) {
  if (major != 2) return major < 2;
  if (minor != 16) return minor < 16;
  return patch < 8;
}

bool check_version(void* library, const char* pid) {
  const auto get_version = look_up<GetVersion>(library, "log_getVersion");
  if (get_version == nullptr) {
    std::fprintf(stderr,
                 "DBGLOG <%s>: liblog missing symbol '_log_getVersion', logging disabled.\n", pid);
    return false;
  }
  const char* const version = get_version();
  std::fprintf(stderr, "DBGLOG <%s>: Found liblog (%s), version: %s.\n", pid, kPath,
               version == nullptr ? "none" : version);
  unsigned major = 0;
  unsigned minor = 0;
  unsigned patch = 0;
  if (version == nullptr || std::sscanf(version, "%u.%u.%u", &major, &minor, &patch) != 3) {
    std::fprintf(stderr,
                 "DBGLOG <%s>: liblog wrong version format '%s' returned, logging disabled.\n", pid,
                 version == nullptr ? "null" : version);
    return false;
  }
  if (too_old(major, minor, patch)) {
    std::fprintf(stderr, "DBGLOG <%s>: liblog '%s' too old (<2.16.8), logging disabled.\n", pid,
                 version);
    return false;
  }
  return true;
}

// Whether at least one channel has its handle.
bool open_channels(Init init, const char* pid, const char* const (&channel_names)[kLogChannels]) {
  bool any = false;
  for (int channel = 0; channel < kLogChannels; ++channel) {
    const char* const name = channel_names[channel];
    handles[channel] = init(name);
    const bool opened = handles[channel] != nullptr;
    std::fprintf(
        stderr, "DBGLOG <%s>: LogAPI_Init2(\"%s\") returned %p, liblog initialization for %s %s.\n",
        pid, name, handles[channel], name, opened ? "successful" : "failed");
    any = any || opened;
  }
  return any;
}

bool bind_functions(void* library, const char* pid,
                    const char* const (&channel_names)[kLogChannels]) {
  if (!check_version(library, pid)) return false;
  const auto init = look_up<Init>(library, "LogAPI_Init2");
  const auto level_function = look_up<LevelEnough>(library, "LogAPI_LevelEnough2");
  const auto print_function = look_up<Print>(library, "LogAPI_vprintf2");
  if (init == nullptr || level_function == nullptr || print_function == nullptr) {
    std::fprintf(stderr, "DBGLOG <%s>: liblog missing symbol (%p,%p,%p), logging disabled.\n", pid,
                 reinterpret_cast<void*>(init), reinterpret_cast<void*>(level_function),
                 reinterpret_cast<void*>(print_function));
    return false;
  }
  if (!open_channels(init, pid, channel_names)) return false;
  level_enough = level_function;
  print = print_function;
  return true;
}

}  // namespace

void log_library_bind(const char* pid, const char* const (&channel_names)[kLogChannels]) {
  void* const library = ::dlopen(kPath, RTLD_NOW);
  if (library == nullptr) {
    std::fprintf(stderr, "DBGLOG <%s>: dlopen(%s) returned 0, logging disabled.\n", pid, kPath);
    return;
  }
  // Once bound it is never closed: any thread may be inside it.
  if (!bind_functions(library, pid, channel_names)) ::dlclose(library);
}

bool log_library_bound(int channel) { return handles[channel] != nullptr; }

bool log_library_enabled(int channel, unsigned level) {
  return level_enough(handles[channel], library_level(level)) != 0;
}

void log_library_vlog(int channel, const char* module, int line, unsigned level, const char* format,
                      va_list ap) {
  print(handles[channel], library_level(level), module, line, format, ap);
}

}  // namespace zedipc
