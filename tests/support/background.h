// SPDX-License-Identifier: MIT
// A call that blocks, on a thread of its own.
#pragma once

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <thread>

namespace zedipc::test {

// What a blocked thread sits in.
#ifdef SYS_poll
inline constexpr long kInPoll = SYS_poll;
#else
inline constexpr long kInPoll = SYS_ppoll;
#endif
inline constexpr long kInSend = SYS_sendto;
inline constexpr long kInMutex = SYS_futex;

// Whether a thread of this process is blocked in this system call.
[[nodiscard]] bool thread_blocks_in(pid_t tid, long system_call);

class Background {
 public:
  explicit Background(const std::function<void()>& call);
  // Waits for the end of the call.
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  // Waits until the thread is blocked in this system call; false after 10 seconds.
  [[nodiscard]] bool blocks_in(long system_call) const;
  // Whether the call has ended, or ends within `msec`.
  [[nodiscard]] bool ends(int msec = 10000) const;
  void join();

  // Interrupts the blocked call by a signal whose handler does not restart system
  // calls, and waits until the handler has run.
  void interrupt();

 private:
  std::atomic<pid_t> tid_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace zedipc::test
