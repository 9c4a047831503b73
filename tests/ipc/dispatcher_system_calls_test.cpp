// SPDX-License-Identifier: MIT
// What the dispatcher does when the system does not give what it needs.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <zedipc/tcp.h>

#include <array>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "ipc/callbacks.h"
#include "ipc/endpoints.h"
#include "ipc/wake_up_calls.h"
#include "support/failing_threads.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Expects that no callback can be set while something fails once, that this leaves
// nothing behind, and that the next call works.
void expect_failed_start(const std::function<void()>& fail) {
  Callback callback;
  Adopted adopted;
  const int descriptor = next_descriptor();
  fail();
  EXPECT_FALSE(callback.set_on(adopted.channel));
  expect_no_dispatcher();
  EXPECT_EQ(callback_state(adopted.channel), 0);
  EXPECT_FALSE(remove_callback(adopted.channel));
  EXPECT_EQ(next_descriptor(), descriptor);
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send("x");
  EXPECT_TRUE(callback.called());
}

}  // namespace

TEST(FailedStart, WithoutAttributesForAThread) {
  expect_failed_start([] { fail_attributes(1); });
}

TEST(FailedStart, WithoutADetachedThread) {
  expect_failed_start([] { fail_detached(1); });
}

TEST(FailedStart, WithoutTheStackSize) {
  IPC::set_callback_stacksize(1 << 20);
  expect_failed_start([] { fail_stack_sizes(1); });
}

TEST(FailedStart, WithoutAThread) {
  expect_failed_start([] { fail_threads(1); });
}

TEST(FailedStart, WithoutAPipe) {
  const int before = pipe_calls();
  expect_failed_start([] { fail_pipes(1, EMFILE); });
  EXPECT_EQ(pipe_calls(), before + 2);
}

TEST(FailedStart, WithoutDescriptors) {
  Callback callback;
  TCP channel;
  // A sanitizer that sees an object for the first time needs a descriptor to look at it.
  ASSERT_TRUE(callback.set_on(channel));
  ASSERT_TRUE(remove_callback(channel));
  {
    const NoDescriptors limit;
    EXPECT_FALSE(callback.set_on(channel));
  }
  expect_no_dispatcher();
  EXPECT_TRUE(callback.set_on(channel));
}

TEST(FailedStart, DestroysTheAttributesThatItHad) {
  using Fail = void (*)(int count);
  IPC::set_callback_stacksize(1 << 20);
  Callback callback;
  TCP channel;
  for (const Fail fail : {fail_detached, fail_stack_sizes, fail_threads}) {
    const int before = destroyed_attributes();
    fail(1);
    EXPECT_FALSE(callback.set_on(channel));
    EXPECT_EQ(destroyed_attributes(), before + 1);
  }
}

TEST(FailedStart, DestroysNoAttributesThatItDidNotGet) {
  Callback callback;
  TCP channel;
  const int before = destroyed_attributes();
  fail_attributes(1);
  EXPECT_FALSE(callback.set_on(channel));
  EXPECT_EQ(destroyed_attributes(), before);
}

TEST(FailedStart, AsksForNoStackSizeWhereItIsTheDefault) {
  IPC::set_callback_stacksize(-5);
  Callback callback;
  TCP channel;
  fail_stack_sizes(1);
  EXPECT_TRUE(callback.set_on(channel));
  fail_stack_sizes(0);
}

TEST(FailedStart, IsToldToAllThatWaitForIt) {
  constexpr int kThreads = 8;
  Callback callback;
  std::array<TCP, kThreads> channels;
  for (int round = 0; round < 100; ++round) {
    const int before = pipe_calls();
    fail_pipes(1000000, EMFILE);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (TCP& channel : channels) {
      threads.emplace_back([&] { failures += callback.set_on(channel) ? 0 : 1; });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, kThreads);
    EXPECT_LE(pipe_calls() - before, kThreads) << "nobody tries twice";
  }
  fail_pipes(0, 0);
  expect_no_dispatcher();
  EXPECT_TRUE(callback.set_on(channels[0]));
}

// ---- A stack that is smaller than the system makes any

namespace {

// The system takes the place for these from the thread's stack.
thread_local char threads_own[40000];

}  // namespace

TEST(SmallStack, IsRaisedToTheLeastOneOfTheSystem) {
  constexpr std::size_t kLeast = 131072;
  refuse_stacks_below(kLeast);
  IPC::set_callback_stacksize(100);
  std::atomic<std::size_t> size{0};
  Callback callback([&](IPC&) {
    pthread_attr_t attributes;
    std::size_t found = 0;
    EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    EXPECT_EQ(pthread_attr_getstacksize(&attributes, &found), 0);
    pthread_attr_destroy(&attributes);
    size = found;
  });
  Adopted adopted;
  adopted.peer.send("x");
  ASSERT_TRUE(callback.set_on(adopted.channel));
  EXPECT_TRUE(eventually([&] { return size >= kLeast; })) << size;
}

TEST(SmallStack, IsRaisedByWhatThreadLocalVariablesTake) {
  threads_own[0] = 1;
  IPC::set_callback_stacksize(16384);
  Callback callback;
  Adopted adopted;
  adopted.peer.send("x");
  ASSERT_TRUE(callback.set_on(adopted.channel));
  EXPECT_TRUE(callback.called());
}

TEST(SmallStack, DoesNotKeepAThreadFromFailing) {
  IPC::set_callback_stacksize(16384);
  expect_failed_start([] { fail_threads(1); });
}

// ---- The wake-up pipe

TEST(WakeUp, IsReadAgainAfterASignal) {
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  interrupt_reads(wake_up_end(), 3);
  settle();
  EXPECT_EQ(interruptions_left(), 0);
}

TEST(WakeUp, IsWrittenAgainAfterASignal) {
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  interrupt_writes(dispatcher->wake_fd, 3);
  settle();
  EXPECT_EQ(interruptions_left(), 0);
}

TEST(WakeUp, DoesNotBlockAReadWhenThePipeIsFull) {
  constexpr int kMoreThanAPipeHolds = 70000;
  Gate gate;
  Callback callback([&](IPC&) { gate.pass(); });
  Adopted busy;
  ASSERT_TRUE(callback.set_on(busy.channel));
  busy.peer.send("x");
  ASSERT_TRUE(gate.reached());
  Adopted plain;
  for (int i = 0; i < kMoreThanAPipeHolds; ++i) rearm(plain.channel);
  EXPECT_FALSE(gate.open());
  gate.let_pass();
  settle();
  EXPECT_EQ(callback.calls(), 1);
  take(busy.channel, 1);
  busy.peer.send("y");
  EXPECT_TRUE(callback.called(2)) << "the dispatcher works on";
}

// ---- Select

TEST(Select, InterruptedByASignalIsCalledAgain) {
  pthread_t thread{};
  Callback callback([&](IPC& channel) {
    thread = pthread_self();
    take(channel, 1);
  });
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send("x");
  ASSERT_TRUE(callback.called());
  settle();
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const std::uint64_t before = passes();
  // A signal that comes before the dispatcher is in select does not count.
  EXPECT_TRUE(eventually([&] {
    EXPECT_EQ(pthread_kill(thread, SIGUSR1), 0);
    return passes() > before;
  })) << "a pass";
  EXPECT_EQ(callback.calls(), 1);
  adopted.peer.send("x");
  EXPECT_TRUE(callback.called(2));
}

TEST(Select, ThatFailsForADescriptorClosedElsewhereServesNobody) {
  RawPeer spare;
  Callback lost_callback([&](IPC& channel) {
    take(channel, 1);  // so that it is watched on
    spare = RawPeer(dup(channel.getFD()));
    EXPECT_EQ(close(channel.getFD()), 0);
  });
  Callback other_callback;
  Adopted lost;
  Adopted other;
  ASSERT_TRUE(lost_callback.set_on(lost.channel));
  ASSERT_TRUE(other_callback.set_on(other.channel));
  lost.peer.send("x");
  ASSERT_TRUE(lost_callback.called());
  settle();
  other.peer.send("x");
  settle();
  EXPECT_EQ(other_callback.calls(), 0);
  // Changes are taken in all the same.
  EXPECT_TRUE(remove_callback(lost.channel));
  EXPECT_TRUE(other_callback.called());
  EXPECT_EQ(lost_callback.calls(), 1);
  ASSERT_EQ(dup2(spare.fd(), lost.channel.getFD()), lost.channel.getFD());
}
