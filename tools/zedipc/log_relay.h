// SPDX-License-Identifier: MIT
// The library's log, which goes to standard error, for a server that must not wait for
// whoever reads it.
#pragma once

#include <future>
#include <memory>

namespace command {

// While it exists, what is written to standard error goes into a pipe, and a thread passes
// it on at its reader's pace. Of lines that the reader leaves lying, as many are kept as
// fit into 256 KiB; of those that do not fit, their number appears in their place. If the
// process crashes, its last words may be lost.
//
// It does nothing unless a log is asked for, and standard error is something that can keep
// a writer waiting.
class LogRelay {
 public:
  // Throws Failure.
  LogRelay();
  // Passes on what is left, for a second at most, and gives standard error back. If the
  // reader leaves it lying even then, it is dropped, like all that is still written.
  ~LogRelay();
  LogRelay(const LogRelay&) = delete;
  LogRelay& operator=(const LogRelay&) = delete;

 private:
  int error_ = -1;  // what was standard error
  int end_ = -1;    // an eventfd that asks the thread to end
  std::future<void> passed_on_;
};

}  // namespace command
