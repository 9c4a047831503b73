// SPDX-License-Identifier: MIT
// The library's log lines on standard error, taken apart.
#pragma once

#include <string>
#include <vector>

namespace zedipc::test {

struct LogLine {
  std::string file;     // "ipc.cpp"
  int line;             // the source line
  std::string process;  // "PID 1234"
  std::string stamp;    // "12.345"
  std::string channel;  // "IPC", "NFY" or "NFYCL"
  std::string level;    // "error"
  std::string message;  // without the line end
};

// The lines of the log; whatever else the text holds is passed over.
std::vector<LogLine> parse_log(const std::string& text);

// The lines as "NFY:error|message", of one level or channel only if that is given, with
// each address replaced by "PTR" (a null one stays "(nil)").
std::vector<std::string> log_messages(const std::string& text, const std::string& level = "",
                                      const std::string& channel = "");

// `lines` without those of channels that removed a callback which they did not have, as
// every channel does at its end.
std::vector<std::string> without_removals(std::vector<std::string> lines);

// `text` without the line of a process that looked for the device's log library in vain.
std::string without_missing_library(const std::string& text);

// `text` with each address replaced by "PTR".
std::string without_addresses(const std::string& text);

}  // namespace zedipc::test
