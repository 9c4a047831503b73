// SPDX-License-Identifier: MIT
// Setting and replacing callbacks, in every state of a channel.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <functional>
#include <vector>

#include "ipc/callbacks.h"
#include "ipc/endpoints.h"
#include "ipc/stopwatch.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kWaiting = CB_REGISTERED | CB_LOCKED | CB_ARMED;

// Whether the dispatcher has made a whole pass when `change` returns.
bool waits_for_a_pass(const std::function<void()>& change) {
  settle();
  const std::uint64_t before = passes();
  change();
  return passes() > before;
}

}  // namespace

TEST(SetCallback, OnAFreshPipeWaitsForASocket) {
  Callback callback;
  Pipe channel;
  EXPECT_TRUE(callback.set_on(channel));
  EXPECT_EQ(callback_state(channel), kWaiting);
}

TEST(SetCallback, OnAFreshPipeIsCalledAfterConnect) {
  Callback callback;
  ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(callback.set_on(channel));
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  EXPECT_EQ(callback_state(channel), kWatched);
  const Session session(listening.channel.accept(10000));
  ASSERT_TRUE(session->write("x", 1));
  EXPECT_TRUE(callback.called());
}

TEST(SetCallback, OnAFreshTcpIsCalledAfterConnect) {
  Callback callback;
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  EXPECT_EQ(callback_state(channel), kWaiting);
  ASSERT_TRUE(channel.connect("127.0.0.1", listener.port()));
  EXPECT_EQ(callback_state(channel), kWatched);
  const RawPeer peer = listener.accept();
  peer.send("x");
  EXPECT_TRUE(callback.called());
}

TEST(SetCallback, OnAConnectedChannelWatchesIt) {
  Callback callback;
  ConnectedTcp connected;
  ASSERT_TRUE(callback.set_on(connected.channel));
  EXPECT_EQ(callback_state(connected.channel), kWatched);
}

TEST(SetCallback, OnAnAcceptedSessionWatchesIt) {
  Callback callback;
  AcceptedPipe accepted;
  ASSERT_TRUE(callback.set_on(*accepted.session));
  EXPECT_EQ(callback_state(*accepted.session), kWatched);
  accepted.peer.send("x");
  EXPECT_TRUE(callback.called());
}

TEST(SetCallback, OnAListenerHasItNeverCalled) {
  Callback callback;
  Listening listening;
  ASSERT_TRUE(callback.set_on(listening.channel));
  const RawPeer peer = RawPeer::connect("127.0.0.1", port_in(listening.channel.local_addr()));
  settle();
  EXPECT_EQ(callback_state(listening.channel), kWaiting);
  EXPECT_EQ(callback.calls(), 0);
  const Session session(listening.channel.accept(10000));
  EXPECT_NE(session, nullptr);
}

TEST(SetCallback, BeforeListeningHasItNeverCalled) {
  Callback callback;
  const ScratchDir dir;
  Pipe listener;
  ASSERT_TRUE(callback.set_on(listener));
  ASSERT_TRUE(listener.listen(dir.file("pipe").c_str()));
  const RawPeer peer = RawPeer::connect_pipe(dir.file("pipe"));
  settle();
  EXPECT_EQ(callback_state(listener), kWaiting);
  EXPECT_EQ(callback.calls(), 0);
}

TEST(SetCallback, OfAListenerDoesNotPassToItsSessions) {
  Callback callback;
  ListeningPipe listening;
  ASSERT_TRUE(callback.set_on(listening.channel));
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(callback_state(*session), 0);
  EXPECT_EQ(registrations(), 1);
}

TEST(SetCallback, WaitsForAPass) {
  Callback callback;
  Callback other;
  TCP first;
  ASSERT_TRUE(other.set_on(first));
  Adopted adopted;
  EXPECT_TRUE(waits_for_a_pass([&] { callback.set_on(adopted.channel); }));
}

TEST(SetCallback, IsNotHeldUpByAChannelThatAlwaysHasInput) {
  // Long enough for a busy machine to run whoever has been woken for his turn.
  Callback busy([](IPC& channel) {
    pause(50);
    rearm(channel);
  });
  Adopted always;
  always.peer.send("x");
  ASSERT_TRUE(busy.set_on(always.channel));
  Callback callback;
  Adopted adopted;
  for (int i = 0; i < 8; ++i) {
    const std::uint64_t before = passes();
    ASSERT_TRUE(callback.set_on(adopted.channel));
    // The one that runs, one that takes the turn before this call asks for it, and its own.
    EXPECT_LE(passes() - before, 4U);
  }
}

TEST(SetCallback, HasTheChannelWatchedWhenItReturns) {
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  // What has come wakes the dispatcher without a byte in its pipe.
  adopted.peer.send("x");
  EXPECT_TRUE(callback.called());
}

TEST(SetFD, WithACallbackWaitsForAPass) {
  Callback callback;
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  const RawPeer source(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_TRUE(waits_for_a_pass([&] { channel.setFD(dup(source.fd())); }));
}

TEST(SetFD, WithoutACallbackDoesNotWait) {
  Callback callback;
  TCP other;
  ASSERT_TRUE(callback.set_on(other));
  TCP channel;
  const RawPeer source(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const DispatcherPause pause;
  EXPECT_EQ(Task([&] { return channel.setFD(dup(source.fd())) ? 1 : 0; }).result(), 1);
  EXPECT_EQ(inner_state(channel).cb_state, 0);
}

TEST(Connect, WithACallbackWaitsForAPass) {
  Callback callback;
  ListeningPipe listening;
  Pipe channel;
  ASSERT_TRUE(callback.set_on(channel));
  EXPECT_TRUE(waits_for_a_pass([&] { channel.connect(listening.name.c_str()); }));
}

// ---- In a callback

TEST(InACallback, ACallbackCanBeSet) {
  Callback second;
  Adopted other;
  Callback first([&](IPC& channel) {
    EXPECT_TRUE(second.set_on(other.channel));
    EXPECT_TRUE(second.set_on(channel));
  });
  Adopted adopted;
  ASSERT_TRUE(first.set_on(adopted.channel));
  adopted.peer.send("x");
  other.peer.send("x");
  EXPECT_TRUE(second.called(2)) << "of the other channel and, in the place of the first, of this";
  settle();
  EXPECT_EQ(first.calls(), 1);
  EXPECT_EQ(registrations(), 2);
}

TEST(InACallback, TheChannelCanBeConnectedAgain) {
  ListeningPipe listening;
  std::string received;
  Callback callback([&](IPC& channel) {
    if (channel.eof()) {
      rearm(channel);
      EXPECT_TRUE(dynamic_cast<Pipe&>(channel).connect(listening.name.c_str()));
    } else {
      received += take(channel, 1);
    }
  });
  Pipe channel;
  ASSERT_TRUE(callback.set_on(channel));
  ASSERT_TRUE(channel.connect(listening.name.c_str()));
  for (int i = 1; i <= 3; ++i) {
    const Session session(listening.channel.accept(10000));
    ASSERT_NE(session, nullptr);
    ASSERT_TRUE(session->write("x", 1));
    ASSERT_TRUE(callback.called(2 * i - 1));
  }
  ASSERT_TRUE(callback.called(6));
  settle();
  const DispatcherPause pause;
  EXPECT_EQ(received, "xxx");
}

TEST(InACallback, ASocketCanBeAdopted) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const RawPeer peer(ends[1]);
  Callback callback([&](IPC& channel) {
    rearm(channel);
    if (channel.eof()) dynamic_cast<TCP&>(channel).setFD(ends[0]);
  });
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.close();
  ASSERT_TRUE(callback.called());
  peer.send("x");
  EXPECT_TRUE(callback.called(2));
}

// ---- Replacing

TEST(ReplacedCallback, IsNotCalledAnyMore) {
  Callback first;
  Callback second;
  Adopted adopted;
  ASSERT_TRUE(first.set_on(adopted.channel));
  ASSERT_TRUE(second.set_on(adopted.channel));
  adopted.peer.send("x");
  EXPECT_TRUE(second.called());
  settle();
  EXPECT_EQ(first.calls(), 0);
  EXPECT_EQ(registrations(), 1);
}

TEST(ReplacedCallback, GivesWayToTheNewFunctionAndData) {
  struct Note {
    static void by_other(void* data, IPC* /*channel*/) {
      *static_cast<std::atomic<int>*>(data) = 2;
    }
  };
  Callback first;
  std::atomic<int> noted{0};
  Adopted adopted;
  ASSERT_TRUE(first.set_on(adopted.channel));
  ASSERT_TRUE(adopted.channel.set_callback(Note::by_other, &noted));
  adopted.peer.send("x");
  EXPECT_TRUE(eventually([&] { return noted == 2; }));
  EXPECT_EQ(first.calls(), 0);
}

// ---- Several channels

TEST(SeveralChannels, HaveTheirCallbacksOnOneThread) {
  std::vector<pthread_t> threads;
  Callback callback([&](IPC&) { threads.push_back(pthread_self()); });
  Adopted one;
  Adopted other;
  ASSERT_TRUE(callback.set_on(one.channel));
  ASSERT_TRUE(callback.set_on(other.channel));
  one.peer.send("x");
  other.peer.send("x");
  ASSERT_TRUE(callback.called(2));
  settle();
  const DispatcherPause pause;
  EXPECT_EQ(threads.at(0), threads.at(1));
  EXPECT_EQ(pthread_equal(threads[0], pthread_self()), 0);
}

TEST(SeveralChannels, WaitForACallbackThatTakesLong) {
  Gate gate;
  Callback slow([&](IPC&) { gate.pass(); });
  Callback quick;
  Adopted one;
  Adopted other;
  ASSERT_TRUE(slow.set_on(one.channel));
  ASSERT_TRUE(quick.set_on(other.channel));
  one.peer.send("x");
  ASSERT_TRUE(gate.reached());
  other.peer.send("x");
  Background setter([&] { quick.set_on(other.channel); });
  EXPECT_TRUE(setter.blocks_in(kInMutex));
  EXPECT_EQ(quick.calls(), 0);
  gate.let_pass();
  EXPECT_TRUE(quick.called());
}

TEST(SeveralChannels, WaitForAReadThatBlocksOnAWatchedOne) {
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  {
    // What a read holds while it waits.
    const MutexLock reading(inner_state(adopted.channel).read_mutex);
    adopted.peer.send("x");
    EXPECT_TRUE(dispatcher_held_up());
    EXPECT_EQ(callback.calls(), 0);
  }
  EXPECT_TRUE(callback.called());
}
