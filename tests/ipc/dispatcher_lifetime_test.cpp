// SPDX-License-Identifier: MIT
// The dispatcher's thread, which lives while a channel has a callback.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <zedipc/tcp.h>

#include <filesystem>
#include <iterator>

#include "ipc/callbacks.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kDefault = -5;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

int descriptor_count() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
}

std::size_t stack_size(const pthread_attr_t& attributes) {
  std::size_t size = 0;
  EXPECT_EQ(pthread_attr_getstacksize(&attributes, &size), 0);
  return size;
}

// The stack size of the dispatcher that a callback runs on.
std::size_t dispatcher_stack() {
  std::size_t size = 0;
  Callback callback([&](IPC& channel) {
    pthread_attr_t attributes;
    EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    size = stack_size(attributes);
    pthread_attr_destroy(&attributes);
    EXPECT_TRUE(remove_callback(channel));
  });
  Adopted adopted;
  adopted.peer.send("x");
  EXPECT_TRUE(callback.set_on(adopted.channel));
  EXPECT_TRUE(eventually([] { return registrations() == -1; }));
  return size;
}

std::size_t default_stack() {
  pthread_attr_t attributes;
  EXPECT_EQ(pthread_getattr_default_np(&attributes), 0);
  const std::size_t size = stack_size(attributes);
  pthread_attr_destroy(&attributes);
  return size;
}

// For sizes that a sanitizer would change.
void expect_stack(std::size_t expected) {
  const std::size_t size = dispatcher_stack();
  if (!kSanitized) {
    EXPECT_EQ(size, expected);
  }
}

int configured_stack() {
  const DispatcherPause pause;
  return dispatcher->stack_size;
}

int stack_configured_by(int size) {
  IPC::set_callback_stacksize(size);
  return configured_stack();
}

}  // namespace

TEST(DispatcherThread, DoesNotExistAtFirst) { expect_no_dispatcher(); }

TEST(DispatcherThread, ComesWithTheFirstCallback) {
  Callback callback;
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  EXPECT_EQ(thread_count(), kOwnThreads + 1);
  const DispatcherPause pause;
  EXPECT_TRUE(dispatcher->running);
  EXPECT_NE(dispatcher->wake_fd, -1);
  EXPECT_EQ(dispatcher->channels.size(), 1U);
}

TEST(DispatcherThread, RecordsTheRegistration) {
  Callback callback;
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  const DispatcherPause pause;
  const auto& entry = dispatcher->channels.at(&inner_state(channel));
  EXPECT_EQ(reinterpret_cast<void*>(entry.callback), Callback::function());
  EXPECT_EQ(entry.data, &callback);
  EXPECT_EQ(entry.ipc, &channel);
}

TEST(DispatcherThread, ServesAllChannels) {
  Callback callback;
  TCP one;
  TCP other;
  ASSERT_TRUE(callback.set_on(one));
  ASSERT_TRUE(callback.set_on(other));
  EXPECT_EQ(thread_count(), kOwnThreads + 1);
  EXPECT_EQ(registrations(), 2);
}

TEST(DispatcherThread, StaysWhileACallbackIsLeft) {
  Callback callback;
  TCP one;
  TCP other;
  ASSERT_TRUE(callback.set_on(one));
  ASSERT_TRUE(callback.set_on(other));
  EXPECT_TRUE(remove_callback(one));
  EXPECT_EQ(registrations(), 1);
}

TEST(DispatcherThread, GoesWithTheLastCallback) {
  Callback callback;
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  ASSERT_TRUE(remove_callback(channel));
  expect_no_dispatcher();
  EXPECT_TRUE(eventually([] { return thread_count() == kOwnThreads; }));
}

TEST(DispatcherThread, GoesWithTheLastCallbackThatACallbackRemoves) {
  Callback callback([](IPC& channel) { EXPECT_TRUE(remove_callback(channel)); });
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send("x");
  ASSERT_TRUE(callback.called());
  EXPECT_TRUE(eventually([] { return thread_count() == kOwnThreads; }));
  expect_no_dispatcher();
}

TEST(DispatcherThread, ClosesItsPipe) {
  Callback callback;
  TCP channel;
  // A sanitizer that sees an object for the first time needs a descriptor to look at it.
  ASSERT_TRUE(callback.set_on(channel));
  ASSERT_TRUE(remove_callback(channel));
  const int before = descriptor_count();
  ASSERT_TRUE(callback.set_on(channel));
  EXPECT_EQ(descriptor_count(), before + 2);
  ASSERT_TRUE(remove_callback(channel));
  EXPECT_EQ(descriptor_count(), before);
}

TEST(DispatcherThread, HasAPipeThatClosesOnExecAndDoesNotBlock) {
  Callback callback;
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  for (const int fd : {wake_up_end(), dispatcher->wake_fd.load()}) {
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  }
}

TEST(DispatcherThread, IsDetached) {
  bool detached = false;
  Callback callback([&](IPC&) {
    pthread_attr_t attributes;
    int state = -1;
    EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    EXPECT_EQ(pthread_attr_getdetachstate(&attributes, &state), 0);
    pthread_attr_destroy(&attributes);
    detached = state == PTHREAD_CREATE_DETACHED;
  });
  Adopted adopted;
  adopted.peer.send("x");
  ASSERT_TRUE(callback.set_on(adopted.channel));
  ASSERT_TRUE(callback.called());
  settle();
  const DispatcherPause pause;
  EXPECT_TRUE(detached);
}

TEST(DispatcherThread, HasASecondLife) {
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  ASSERT_TRUE(remove_callback(adopted.channel));
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send("x");
  EXPECT_TRUE(callback.called());
  EXPECT_EQ(registrations(), 1);
}

TEST(DispatcherThread, DoesNotMakeItsStarterWaitForTheNext) {
  Callback callback;
  TCP channel;
  for (int life = 0; life < 200; ++life) {
    ASSERT_TRUE(callback.set_on(channel));
    ASSERT_TRUE(remove_callback(channel));
  }
  expect_no_dispatcher();
}

TEST(DispatcherThread, DoesNotKeepTheProcess) {
  const ChildResult result = run_in_child({}, [] {
    static Callback callback;
    static auto& channel = *new Adopted;
    ASSERT_TRUE(callback.set_on(channel.channel));
    std::exit(7);
  });
  EXPECT_EQ(result.status, 7) << result.err;
}

// ---- The size of its stack

TEST(StackSize, IsTheDefaultAtFirst) {
  EXPECT_EQ(configured_stack(), -1);
  expect_stack(default_stack());
}

TEST(StackSize, IsTheDefaultForANegativeNumber) {
  EXPECT_EQ(stack_configured_by(kDefault), kDefault);
  expect_stack(default_stack());
}

TEST(StackSize, IsAtLeast16384) {
  EXPECT_EQ(stack_configured_by(100), 16384);
  EXPECT_EQ(stack_configured_by(0), 16384);
  EXPECT_EQ(stack_configured_by(16383), 16384);
  EXPECT_EQ(stack_configured_by(16384), 16384);
  EXPECT_EQ(stack_configured_by(16385), 16385);
}

TEST(StackSize, OfTheSmallestStackIsThatOfTheThread) {
  IPC::set_callback_stacksize(100);
  expect_stack(16384);
}

TEST(StackSize, OfALargerStackIsThatOfTheThread) {
  IPC::set_callback_stacksize(1 << 20);
  EXPECT_EQ(dispatcher_stack(), 1U << 20);
}

TEST(StackSize, CannotBeChangedWhileTheDispatcherLives) {
  Callback callback;
  TCP channel;
  IPC::set_callback_stacksize(1 << 20);
  ASSERT_TRUE(callback.set_on(channel));
  EXPECT_EQ(stack_configured_by(1 << 21), 1 << 20);
  EXPECT_EQ(stack_configured_by(kDefault), 1 << 20);
  ASSERT_TRUE(remove_callback(channel));
  EXPECT_EQ(dispatcher_stack(), 1U << 20);
}

TEST(StackSize, CanBeChangedBetweenTwoLives) {
  IPC::set_callback_stacksize(1 << 20);
  EXPECT_EQ(dispatcher_stack(), 1U << 20);
  IPC::set_callback_stacksize(1 << 21);
  EXPECT_EQ(dispatcher_stack(), 1U << 21);
}
