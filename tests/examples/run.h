// SPDX-License-Identifier: MIT
// The example programs, run to their end or for a while.
#pragma once

#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

#include "demo/process.h"

namespace example::test {

// The path of an example program.
inline std::string program(const std::string& name) { return EXAMPLES_DIR "/" + name; }

struct Result {
  int status;
  std::string output;
};

// What has come from a process, without what the library says of its log.
inline std::string read_text(demo::Process& process) {
  std::string text;
  for (const std::string& line : process.read_lines()) {
    if (line.rfind("DBGLOG <", 0) != 0) text += line + "\n";
  }
  return text;
}

// Lets a process run to its end.
inline Result finish(demo::Process& process) {
  Result result{-1, ""};
  while (!process.ended()) result.output += read_text(process);
  result.status = process.exit_status();
  return result;
}

inline Result run(const std::string& path, const std::vector<std::string>& arguments = {}) {
  demo::Process process(path, path, arguments);
  return finish(process);
}

// A program that runs beside the test.
class Running {
 public:
  explicit Running(const std::string& path, const std::vector<std::string>& arguments = {})
      : process_(path, path, arguments) {}

  [[nodiscard]] pid_t pid() const { return process_.pid(); }

  // Reads until a line holds `text`; false if the output ends before.
  bool prints(const std::string& text) {
    while (output_.find(text) == std::string::npos) {
      if (process_.ended()) return false;
      output_ += read_text(process_);
    }
    return true;
  }

  void send_line(const std::string& line) const { process_.send_line(line); }

  // Sends a signal and lets the process run to its end.
  Result end(int number) {
    process_.signal(number);
    Result result = finish(process_);
    result.output = output_ + result.output;
    return result;
  }

 private:
  demo::Process process_;
  std::string output_;
};

}  // namespace example::test
