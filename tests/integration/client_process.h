// SPDX-License-Identifier: MIT
// Clients as processes that do what the test tells them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zedipc/notify.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/server_process.h"

namespace zedipc::test {

using Lines = std::vector<std::string>;
using Action = std::function<int()>;

// In a client's process: writes a line that the test will find.
inline void print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// A client's process, which does what it is told of what it was made with.
class ClientProcess {
 public:
  ClientProcess(const std::string& name, const std::vector<Action>& actions)
      : pipe_(make_pipe()), child_({}, [&] { serve(name, actions); }) {
    ::close(pipe_.input);
  }
  ~ClientProcess() { ::close(pipe_.output); }

  // Starts the action of this number.
  void start(unsigned char action) {
    EXPECT_EQ(::write(pipe_.output, &action, 1), 1);
    ++started_;
  }
  // The result of the action, all earlier ones having ended.
  int run(unsigned char action) {
    start(action);
    EXPECT_TRUE(eventually([&] { return lines("result").size() == started_; }, 25000));
    return std::stoi(lines("result").back().substr(7));
  }

  // The lines that begin so, of which there are `count` in the end.
  [[nodiscard]] Lines lines(const std::string& begin, std::size_t count = 0,
                            int msec = 10000) const {
    Lines result;
    eventually(
        [&] {
          result.clear();
          std::istringstream in(child_.out());
          for (std::string line; std::getline(in, line);) {
            if (line.compare(0, begin.size(), begin) == 0) result.push_back(line);
          }
          return result.size() >= count;
        },
        msec);
    std::stable_sort(result.begin(), result.end(), [&](const auto& a, const auto& b) {
      return begin != "result" && a < b;  // callbacks have no order
    });
    return result;
  }

  Child& process() { return child_; }

 private:
  struct Pipe {
    int input;
    int output;
  };

  static Pipe make_pipe() {
    int fds[2];
    EXPECT_EQ(pipe2(fds, O_CLOEXEC), 0);
    return {fds[0], fds[1]};
  }

  void serve(const std::string& name, const std::vector<Action>& actions) const {
    ipcSetAppID(name);
    unsigned char action;
    while (::read(pipe_.input, &action, 1) == 1) {
      print("result " + std::to_string(actions[action]()));
    }
  }

  Pipe pipe_;
  std::size_t started_ = 0;
  Child child_;
};

// Waits until the server has logged this so many times.
inline bool logged(const ServerProcess& server, const std::string& text, int count,
                   int msec = 10000) {
  return eventually(
      [&] {
        const std::string err = server.err();
        int found = 0;
        for (std::size_t at = err.find(text); at != std::string::npos;
             at = err.find(text, at + 1)) {
          ++found;
        }
        return found >= count;
      },
      msec);
}

}  // namespace zedipc::test
