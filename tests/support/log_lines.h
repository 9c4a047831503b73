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

// `text` with each address replaced by "PTR".
std::string without_addresses(const std::string& text);

}  // namespace zedipc::test
