// SPDX-License-Identifier: MIT
// A log message that is masked out. The floor tests a channel and a mask in the cheapest
// way, in a function that is not inlined.
#include "log/log.h"

#include <cstdio>
#include <cstdlib>

#include "inside.h"

namespace {

volatile unsigned mask = 0;
thread_local volatile int channel = 0;

[[gnu::noinline]] void bare_log(unsigned level, const char* format, int value) {
  if (channel < 0 || ((mask >> level) & 1U) == 0) return;
  std::printf(format, value);
}

void library(benchmark::State& state) {
  const zedipc::LogChannelScope scope(zedipc::kLogIpc);
  require(!zedipc::dbg_log_enabled(zedipc::kLogDebug), "a message that is masked out");
  measure(state, [] {
    zedipc::dbg_log("src/ipc.cpp", __LINE__, zedipc::kLogDebug, "masked out: %d\n", 1);
  });
}

void floor(benchmark::State& state) {
  measure(state, [] { bare_log(zedipc::kLogDebug, "masked out: %d\n", 1); });
}

}  // namespace

void register_benchmarks() {
  setenv("IPC_LOGMASK", "0", 1);
  add_benchmark("log_masked", "zedipc", library);
  add_benchmark("log_masked", "floor", floor);
}
