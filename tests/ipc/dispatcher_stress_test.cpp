// SPDX-License-Identifier: MIT
// Threads that meet at the dispatcher's start, at its end and in its passes.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <zedipc/tcp.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ipc/callbacks.h"
#include "ipc/stopwatch.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kThreads = 4;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 500;
#else
constexpr int kRounds = 3000;
#endif

// A change that waits for a pass has to find its moment between the passes of others.
constexpr int kSlowRounds = kRounds / 10;

// Where threads wait for each other.
class Barrier {
 public:
  void wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    const int round = round_;
    if (++arrived_ == kThreads) {
      arrived_ = 0;
      ++round_;
      all_here_.notify_all();
    }
    all_here_.wait(lock, [&] { return round_ != round; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable all_here_;
  int arrived_ = 0;
  int round_ = 0;
};

// Runs this on some threads, and waits for their end.
void on_threads(const std::function<void(int number)>& body) {
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) threads.emplace_back(body, number);
  for (std::thread& thread : threads) thread.join();
}

// As Callback::called, but without a sleep, so that the next round comes at once.
bool called(const Callback& callback, int times = 1) {
  const Stopwatch time;
  while (callback.calls() < times && time.msec() < 10000) std::this_thread::yield();
  return callback.calls() >= times;
}

// A channel that keeps the dispatcher in passes.
class Traffic {
 public:
  Traffic() { EXPECT_TRUE(callback_.set_on(adopted_.channel)); }

 private:
  Callback callback_{[](IPC& channel) { take(channel, 64); }};
  Adopted adopted_;
  Repeat sender_{[this] { adopted_.peer.send("x"); }};
};

// A channel that gets one connection after another.
struct Reconnected {
  // Closes what it had.
  void connect() {
    int ends[2] = {-1, -1};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    channel.setFD(ends[0]);
    peer = RawPeer(ends[1]);
  }

  Callback callback;
  TCP channel;
  RawPeer peer;
};

}  // namespace

TEST(FirstRegistrations, OfManyThreadsAtTheSameMomentAllSucceed) {
  Callback callback;
  std::array<TCP, kThreads> channels;
  Barrier barrier;
  on_threads([&](int number) {
    TCP& channel = channels[static_cast<std::size_t>(number)];
    for (int round = 0; round < kRounds; ++round) {
      barrier.wait();
      EXPECT_TRUE(callback.set_on(channel));
      barrier.wait();
      EXPECT_TRUE(remove_callback(channel));
    }
  });
  expect_no_dispatcher();
}

TEST(FirstRegistrations, MeetLastRemovals) {
  Callback callback;
  std::array<TCP, kThreads> channels;
  Barrier barrier;
  on_threads([&](int number) {
    TCP& channel = channels[static_cast<std::size_t>(number)];
    if (number % 2 == 0) {
      EXPECT_TRUE(callback.set_on(channel));
    }
    for (int round = 0; round < kRounds; ++round) {
      barrier.wait();
      const bool sets = (round + number) % 2 != 0;
      EXPECT_TRUE(sets ? callback.set_on(channel) : remove_callback(channel));
    }
    remove_callback(channel);
  });
  expect_no_dispatcher();
}

TEST(FirstRegistrations, AndRemovalsInAnyOrderSucceed) {
  Callback callback;
  on_threads([&](int) {
    TCP channel;
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_TRUE(callback.set_on(channel));
      EXPECT_TRUE(remove_callback(channel));
    }
  });
  expect_no_dispatcher();
}

TEST(FirstRegistrations, MeetConnections) {
  const Traffic traffic;
  for (int round = 0; round < kSlowRounds; ++round) {
    Reconnected reconnected;
    {
      const Task connecting([&] {
        reconnected.connect();
        return 0;
      });
      EXPECT_TRUE(reconnected.callback.set_on(reconnected.channel));
    }
    reconnected.peer.send("x");
    ASSERT_TRUE(called(reconnected.callback)) << round;
  }
}

TEST(WakeUps, AtTheEndOfTheDispatcherReachNoOtherDescriptor) {
  Callback callback;
  TCP channel;
  Adopted plain;
  const Repeat waking([&] { rearm(plain.channel); });
  const Repeat more_waking(settle);
  std::atomic<bool> stray{false};
  const Repeat opening([&] {
    int ends[2] = {-1, -1};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    std::this_thread::yield();
    for (const int end : ends) {
      char byte;
      if (recv(end, &byte, 1, MSG_DONTWAIT) != -1) stray = true;
    }
    for (const int end : ends) close(end);
  });
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_TRUE(callback.set_on(channel));
    ASSERT_TRUE(remove_callback(channel));
  }
  EXPECT_FALSE(stray);
}

TEST(ChannelUnderPasses, IsWatchedAfterEachNewConnection) {
  const Traffic traffic;
  Reconnected reconnected;
  ASSERT_TRUE(reconnected.callback.set_on(reconnected.channel));
  for (int round = 0; round < kSlowRounds; ++round) {
    reconnected.connect();
    // The end of the connection before may have been told.
    rearm(reconnected.channel);
    ASSERT_FALSE(reconnected.channel.error()) << round;
    ASSERT_FALSE(reconnected.channel.eof()) << round;
    const int before = reconnected.callback.calls();
    reconnected.peer.send("x");
    ASSERT_TRUE(called(reconnected.callback, before + 1)) << round;
  }
}

TEST(ChannelUnderPasses, CanBeClosedWhileItsInputIsSeen) {
  const Traffic traffic;
  Reconnected reconnected;
  ASSERT_TRUE(reconnected.callback.set_on(reconnected.channel));
  for (int round = 0; round < kRounds; ++round) {
    reconnected.connect();
    rearm(reconnected.channel);
    reconnected.peer.send("x");
    reconnected.channel.close();
    ASSERT_FALSE(reconnected.channel.error()) << round;
    ASSERT_FALSE(reconnected.channel.eof()) << round;
  }
  settle();
  EXPECT_FALSE(reconnected.channel.error());
}

TEST(ChannelUnderPasses, CanBeDeletedWhileItsInputIsSeen) {
  const Traffic traffic;
  for (int round = 0; round < kRounds; ++round) {
    Callback callback;
    Adopted adopted;
    ASSERT_TRUE(callback.set_on(adopted.channel));
    adopted.peer.send("x");
  }
}

TEST(ChannelUnderPasses, CanBeReadByManyThreads) {
  const Traffic traffic;
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  std::atomic<int> received{0};
  const Task sending([&] {
    for (int i = 0; i < kRounds; ++i) adopted.peer.send("x");
    return 0;
  });
  on_threads([&](int) {
    while (received < kRounds) received += static_cast<int>(take(adopted.channel, 1).size());
  });
  EXPECT_EQ(received, kRounds);
  EXPECT_FALSE(adopted.channel.error());
  adopted.peer.send("x");
  EXPECT_TRUE(callback.called());
}
