// SPDX-License-Identifier: MIT
#include "support/background.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "support/child.h"

namespace zedipc::test {

namespace {

std::atomic<int> handled{0};

void on_signal(int) { ++handled; }

// What the kernel calls a system call. Of an emulated thread it knows the emulator's calls,
// whose numbers the build has looked up.
long kernel_number(long system_call) {
#ifdef EMULATED
  switch (system_call) {
    case kInPoll:
      return HOST_SYS_ppoll;
    case kInSend:
      return HOST_SYS_sendto;
    case SYS_connect:
      return HOST_SYS_connect;
    case kInMutex:
      return HOST_SYS_futex;
    default:
      return -1;
  }
#else
  return system_call;
#endif
}

// The system call that a thread is blocked in; -1 if it runs.
long system_call_of(pid_t tid) {
  std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/syscall");
  long number = -1;
  in >> number;
  return in ? number : -1;
}

}  // namespace

bool thread_blocks_in(pid_t tid, long system_call) {
  return system_call_of(tid) == kernel_number(system_call);
}

Background::Background(const std::function<void()>& call)
    : thread_([this, call] {
        tid_ = static_cast<pid_t>(syscall(SYS_gettid));
        call();
        ended_ = true;
      }) {}

Background::~Background() { join(); }

void Background::join() {
  if (thread_.joinable()) thread_.join();
}

bool Background::blocks_in(long system_call) const {
  return eventually([&] { return tid_ != 0 && thread_blocks_in(tid_, system_call); });
}

bool Background::ends(int msec) const {
  return eventually([&] { return ended_.load(); }, msec);
}

void Background::interrupt() {
  struct sigaction action {};
  action.sa_handler = on_signal;
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const int before = handled;
  ASSERT_EQ(pthread_kill(thread_.native_handle(), SIGUSR1), 0);
  EXPECT_TRUE(eventually([&] { return handled > before; }));
}

}  // namespace zedipc::test
