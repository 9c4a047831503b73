// SPDX-License-Identifier: MIT
// Keeps a server from waiting for whoever reads its log.
#pragma once

#include <future>
#include <memory>

namespace command {

// While it exists, standard error is a pipe, and a thread passes on what is written there
// as fast as its reader takes it. It keeps up to 256 KiB of lines that nobody has read,
// drops further ones, and says in their place how many. A crash may lose the last lines.
//
// It does nothing if no log is asked for, or if writing to standard error cannot block.
class LogRelay {
 public:
  // Throws Failure.
  LogRelay();
  // Passes on the rest, for a second at most, and restores standard error. What the reader
  // has not taken by then is dropped, and so is all that follows.
  ~LogRelay();
  LogRelay(const LogRelay&) = delete;
  LogRelay& operator=(const LogRelay&) = delete;

 private:
  int error_ = -1;  // what was standard error
  int end_ = -1;    // an eventfd that asks the thread to end
  std::future<void> passed_on_;
};

}  // namespace command
