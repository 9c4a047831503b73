// SPDX-License-Identifier: MIT
// The processes of a run besides the sender's, and what they consume.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "harness/board.h"

namespace bench {

// Its destructor ends all its processes, and so does the end of this process.
class Crew {
 public:
  Crew() = default;
  ~Crew();
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  // Forks a process for `body`, which must not return. Call it while this process has one
  // thread.
  pid_t start(const std::string& name, const std::function<void()>& body);

  // Waits until `condition` holds. Throws if that takes too long or a process ends.
  void wait_until(const std::string& what, const std::function<bool()>& condition);

 private:
  struct Member {
    pid_t pid;
    std::string name;
  };
  void require_all_alive();

  std::vector<Member> members_;
};

// Blocks for ever: the rest of a process whose other threads do the work.
[[noreturn]] void stay();

// The processor time of all threads that the process has or had.
Nanoseconds cpu_time(pid_t pid);

// The most memory that the process has had at once, in KiB.
long peak_memory(pid_t pid);

// How often the process's threads have gone to sleep by themselves.
long sleeps(pid_t pid);

}  // namespace bench
