// SPDX-License-Identifier: MIT
// Callbacks of channels, and the dispatcher that calls them. For tests that are linked to
// the library's parts.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zedipc/ipc.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "ipc/channels.h"
#include "ipc/dispatcher.h"
#include "ipc/inner_state.h"
#include "support/background.h"
#include "support/child.h"
#include "support/task.h"

namespace zedipc::test {

inline constexpr int kWatched = CB_REGISTERED | CB_ARMED;

// The threads of a process that has made no other than the dispatcher.
#if defined(__SANITIZE_THREAD__)
inline constexpr int kOwnThreads = 2;
#else
inline constexpr int kOwnThreads = 1;
#endif

// While it lives the dispatcher sleeps in select, or does not exist.
class DispatcherPause {
 public:
  DispatcherPause() { dispatcher->mutex.lock(); }
  ~DispatcherPause() { dispatcher->mutex.unlock(); }
  DispatcherPause(const DispatcherPause&) = delete;
  DispatcherPause& operator=(const DispatcherPause&) = delete;
};

// A callback that counts its calls. It has to live longer than its registration.
class Callback {
 public:
  using Body = std::function<void(IPC& channel)>;

  explicit Callback(Body body = {}) : body_(std::move(body)) {}
  Callback(const Callback&) = delete;
  Callback& operator=(const Callback&) = delete;

  bool set_on(IPC& channel) { return channel.set_callback(call, this); }

  // Waits until there were that many calls, the last of which may still run.
  [[nodiscard]] bool called(int times = 1) const {
    return eventually([&] { return calls_ >= times; });
  }
  [[nodiscard]] int calls() const { return calls_; }

  // What a log line says of it.
  static void* function() { return reinterpret_cast<void*>(&call); }

 private:
  static void call(void* data, IPC* channel) {
    auto* const self = static_cast<Callback*>(data);
    const Body body = self->body_;  // which may end the object
    ++self->calls_;
    if (body) body(*channel);
  }

  const Body body_;
  std::atomic<int> calls_{0};
};

inline bool remove_callback(IPC& channel) { return channel.set_callback(nullptr, nullptr); }

// What is read from a channel without waiting.
inline std::string take(IPC& channel, int size) {
  std::string data(static_cast<std::size_t>(size), '\0');
  data.resize(static_cast<std::size_t>(channel.read(&data[0], size, 0)));
  return data;
}

// Has the channel watched again, and reads nothing.
inline void rearm(IPC& channel) {
  char nothing;
  EXPECT_EQ(channel.read(&nothing, 0, 0), 0);
}

// Returns when all that has happened so far has had its effect: the first pass takes a
// change of a channel in, the second serves the channel.
inline void settle() {
  const LogChannelScope scope(kLogIpc);
  notify_cb_thread(true);
  notify_cb_thread(true);
}

// Waits until the dispatcher's sleep has ended, and it waits for a lock of the test's.
inline bool dispatcher_held_up() {
  return eventually([] {
    if (dispatcher->mutex.try_lock()) {
      dispatcher->mutex.unlock();
      return false;
    }
    const auto& mutex = reinterpret_cast<const pthread_mutex_t&>(dispatcher->mutex);
    return thread_blocks_in(mutex.__data.__owner, kInMutex);
  });
}

// Takes a byte that the peer sends now from the channel's socket, when the dispatcher has
// seen that there is something and has not looked closer.
inline void take_under_a_pass(IPC& channel, const RawPeer& peer) {
  settle();
  const MutexLock reading(inner_state(channel).read_mutex);
  peer.send("x");
  EXPECT_TRUE(dispatcher_held_up());
  char byte;
  EXPECT_EQ(recv(channel.getFD(), &byte, 1, MSG_DONTWAIT), 1);
}

inline int callback_state(IPC& channel) {
  const DispatcherPause pause;
  return inner_state(channel).cb_state;
}

// The number of registrations; -1 without a dispatcher.
inline int registrations() {
  const DispatcherPause pause;
  return dispatcher->running ? static_cast<int>(dispatcher->channels.size()) : -1;
}

// Expects that there is no dispatcher, and nothing left of one.
inline void expect_no_dispatcher() {
  const DispatcherPause pause;
  EXPECT_FALSE(dispatcher->running);
  EXPECT_TRUE(dispatcher->channels.empty());
  EXPECT_EQ(dispatcher->wake_fd, -1);
  EXPECT_EQ(dispatcher->wake_end, -1);
}

// The end of the wake-up pipe that the dispatcher reads.
inline int wake_up_end() {
  const DispatcherPause pause;
  return dispatcher->wake_end;
}

// How many passes have ended.
inline std::uint64_t passes() {
  const MutexLock lock(dispatcher->wake_mutex);
  return dispatcher->passes;
}

// A place where a callback waits until the test lets it go on.
class Gate {
 public:
  // Called in the callback.
  void pass() {
    waiting_ = true;
    EXPECT_TRUE(eventually([&] { return open_.load(); }, 30000));
    waiting_ = false;
  }
  // Waits until a callback waits here.
  [[nodiscard]] bool reached() const {
    return eventually([&] { return waiting_.load(); });
  }
  [[nodiscard]] bool open() const { return open_; }
  void let_pass() { open_ = true; }

 private:
  std::atomic<bool> waiting_{false};
  std::atomic<bool> open_{false};
};

}  // namespace zedipc::test
