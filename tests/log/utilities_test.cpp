// SPDX-License-Identifier: MIT
// The environment, the process's text and the clock.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "log/fake_clock.h"
#include "log/log.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(EnvLookup, GivesTheTextOfAVariable) {
  setenv("ZEDIPC_TEST", "some text", 1);
  std::string value;
  EXPECT_TRUE(env_lookup("ZEDIPC_TEST", value));
  EXPECT_EQ(value, "some text");
}

TEST(EnvLookup, FindsAVariableThatIsEmpty) {
  setenv("ZEDIPC_TEST", "", 1);
  std::string value = "old";
  EXPECT_TRUE(env_lookup("ZEDIPC_TEST", value));
  EXPECT_EQ(value, "");
}

TEST(EnvLookup, EmptiesTheValueForAVariableThatIsNotSet) {
  unsetenv("ZEDIPC_TEST");
  std::string value = "old";
  EXPECT_FALSE(env_lookup("ZEDIPC_TEST", value));
  EXPECT_EQ(value, "");
}

TEST(EnvLookup, EmptiesTheValueForNoName) {
  std::string value = "old";
  EXPECT_FALSE(env_lookup(nullptr, value));
  EXPECT_EQ(value, "");
}

TEST(EnvLookup, SeesEachChange) {
  std::string value;
  setenv("ZEDIPC_TEST", "1", 1);
  EXPECT_TRUE(env_lookup("ZEDIPC_TEST", value));
  setenv("ZEDIPC_TEST", "2", 1);
  EXPECT_TRUE(env_lookup("ZEDIPC_TEST", value));
  EXPECT_EQ(value, "2");
}

TEST(EnvLookup, ServesManyThreads) {
  setenv("ZEDIPC_TEST", "some text", 1);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      std::string value;
      for (int n = 0; n < 500; ++n) {
        if (!env_lookup("ZEDIPC_TEST", value) || value != "some text") ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(PidText, NamesThisProcess) {
  char buffer[32];
  EXPECT_EQ(pid_text(buffer), buffer);
  EXPECT_EQ(std::string(buffer), "PID " + std::to_string(getpid()));
}

TEST(PidText, NamesAForkedProcessByItsOwnNumber) {
  char buffer[32];
  pid_text(buffer);
  const pid_t child = fork();
  if (child == 0) {
    char own[32];
    _exit("PID " + std::to_string(getpid()) == pid_text(own) && std::strcmp(own, buffer) != 0 ? 0
                                                                                              : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(MonotonicNow, GivesTheMonotonicClock) {
  timespec before;
  clock_gettime(CLOCK_MONOTONIC, &before);
  timespec now;
  monotonic_now(now);
  timespec after;
  clock_gettime(CLOCK_MONOTONIC, &after);
  const auto nsec = [](const timespec& t) { return t.tv_sec * 1000000000LL + t.tv_nsec; };
  EXPECT_GE(nsec(now), nsec(before));
  EXPECT_LE(nsec(now), nsec(after));
}

TEST(MonotonicNow, IsZeroWhereTheClockFails) {
  const FakeClock clock(5, 5);
  FakeClock::fail();
  timespec now{17, 18};
  monotonic_now(now);
  EXPECT_EQ(now.tv_sec, 0);
  EXPECT_EQ(now.tv_nsec, 0);
}
