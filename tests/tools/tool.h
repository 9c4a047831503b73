// SPDX-License-Identifier: MIT
// The command, run as a process by a test.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/child.h"

namespace command::test {

using zedipc::test::Environment;
using Arguments = std::vector<std::string>;

// The exit status of a Child whose program cannot be run.
constexpr int kNotRun = 99;

inline std::string command_name(const testing::TestParamInfo<std::string>& info) {
  return info.param;
}

// Becomes the command.
[[noreturn]] inline void become(Arguments arguments) {
  arguments.insert(arguments.begin(), "zedipc");
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  // Whoever started the test may have had them ignored.
  for (const int number : {SIGINT, SIGHUP, SIGTERM, SIGPIPE}) signal(number, SIG_DFL);
  execv(ZEDIPC_COMMAND, argv.data());
  _exit(kNotRun);
}

// Makes the text what the process reads from standard input.
inline void set_input(const std::string& text) {
  const int fd = memfd_create("stdin", 0);
  [[maybe_unused]] const ssize_t count = write(fd, text.data(), text.size());
  lseek(fd, 0, SEEK_SET);
  dup2(fd, STDIN_FILENO);
}

// The command, beside the test.
class Tool : public zedipc::test::Child {
 public:
  explicit Tool(const Arguments& arguments, const std::string& input = "",
                const Environment& environment = {})
      : Child(environment, [&] {
          set_input(input);
          become(arguments);
        }) {}

  // Waits until standard output holds `text`; false after 20 seconds, which is longer
  // than it takes a client to find a new server.
  [[nodiscard]] bool prints(const std::string& text) const {
    return zedipc::test::eventually([&] { return out().find(text) != std::string::npos; }, 20000);
  }

  // Ends it as Ctrl-C does; gives the exit status.
  int interrupt() {
    kill(SIGINT);
    return wait();
  }
};

// A command that says when it begins.
class Ready : public Tool {
 public:
  explicit Ready(const Arguments& arguments, const Environment& environment = {})
      : Tool(arguments, "", environment) {
    EXPECT_TRUE(wait_for_err(arguments.front() == "listen" ? "listening as" : "observing"))
        << err();
  }
};

using Result = zedipc::test::ChildResult;

// The command, run to its end.
inline Result run(const Arguments& arguments, const std::string& input = "",
                  const Environment& environment = {}) {
  Tool tool(arguments, input, environment);
  const int status = tool.wait();
  return {status, tool.out(), tool.err()};
}

inline bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The lines of a text, each without its end.
inline std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = text.find('\n', begin);
    result.push_back(text.substr(begin, end - begin));
    if (end == std::string::npos) break;
    begin = end + 1;
  }
  return result;
}

}  // namespace command::test
