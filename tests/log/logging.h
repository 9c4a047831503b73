// SPDX-License-Identifier: MIT
// Log calls as the library's own code makes them, in a process of their own.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "log/log.h"
#include "support/child.h"
#include "support/log_lines.h"

namespace zedipc::test {

inline constexpr char kModule[] = "src/ipc.cpp";

// Logs `text` with this level on this channel.
inline void log_on(int channel, unsigned level, const char* text = "text") {
  dbg_log_channel() = channel;
  dbg_log(kModule, 1, level, "%s\n", text);
}

// Logs one line of each of the levels 0 to 7 on each channel.
inline void log_everything() {
  for (int channel = 0; channel < kLogChannels; ++channel) {
    for (unsigned level = 0; level < 8; ++level) log_on(channel, level);
  }
}

// What is written to standard error by a process with these variables, but for the line
// of one that has neither mask: that there is no log library.
inline std::string log_of(const Environment& environment, const std::function<void()>& body) {
  const ChildResult result = run_in_child(environment, body);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  return without_missing_library(result.err);
}

// The names "IPC:error" of the lines, in their order.
inline std::vector<std::string> names(const std::string& text) {
  std::vector<std::string> result;
  for (const LogLine& line : parse_log(text)) result.push_back(line.channel + ":" + line.level);
  return result;
}

}  // namespace zedipc::test
