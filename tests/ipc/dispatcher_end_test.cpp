// SPDX-License-Identifier: MIT
// What becomes of a channel's callback when its connection ends.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <memory>
#include <string>

#include "ipc/callbacks.h"
#include "ipc/endpoints.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kFinal = CB_REGISTERED | CB_LOCKED;
constexpr int kFinalArmed = CB_REGISTERED | CB_LOCKED | CB_ARMED;

// A channel whose callback notes the flags it finds, as "eof", "error", "eof error" or "".
struct Flagged {
  explicit Flagged(bool reads = false)
      : callback([this, reads](IPC& channel) {
          flags = channel.eof() ? "eof" : "";
          if (channel.error()) flags += flags.empty() ? "error" : " error";
          if (reads) take(channel, 100);
        }) {
    EXPECT_TRUE(callback.set_on(adopted.channel));
  }

  TCP& channel() { return adopted.channel; }
  // After so many calls, none of which is missing or too many.
  std::string flags_after(int calls) {
    EXPECT_TRUE(callback.called(calls));
    settle();
    EXPECT_EQ(callback.calls(), calls);
    const DispatcherPause pause;
    return flags;
  }
  int state() {
    settle();
    return callback_state(adopted.channel);
  }
  // Ends the connection and waits for the last call.
  void end() {
    const int before = callback.calls();
    adopted.peer.close();
    EXPECT_TRUE(callback.called(before + 1));
    settle();
  }
  // Gives the channel a new connection.
  void connect_again() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    channel().setFD(ends[0]);
    adopted.peer = RawPeer(ends[1]);
  }

  std::string flags = "not called";
  Callback callback;
  Adopted adopted;
};

// Expects a call for the new connection of a channel whose callback is set again.
void expect_call_when_set_again(Flagged& flagged) {
  flagged.connect_again();
  ASSERT_TRUE(flagged.callback.set_on(flagged.channel()));
  EXPECT_EQ(flagged.state(), kWatched);
  const int before = flagged.callback.calls();
  flagged.adopted.peer.send("a");
  EXPECT_EQ(flagged.flags_after(before + 1), "");
}

}  // namespace

TEST(EndOfStream, CausesOneLastCall) {
  Flagged flagged;
  flagged.adopted.peer.close();
  EXPECT_EQ(flagged.flags_after(1), "eof");
  EXPECT_EQ(flagged.state(), kFinal);
}

TEST(EndOfStream, LeavesTheChannelRegistered) {
  Flagged flagged;
  flagged.end();
  EXPECT_EQ(registrations(), 1);
  EXPECT_TRUE(remove_callback(flagged.channel()));
  EXPECT_EQ(callback_state(flagged.channel()), CB_LOCKED);
}

TEST(EndOfStream, CausesNoFurtherCallWhenTheCallbackReads) {
  Flagged flagged(true);
  flagged.adopted.peer.close();
  EXPECT_EQ(flagged.flags_after(1), "eof");
  EXPECT_EQ(flagged.state(), kFinalArmed);
}

TEST(EndOfStream, CausesNoFurtherCallWhenAnotherThreadReads) {
  Flagged flagged;
  flagged.end();
  Task([&] { return static_cast<int>(take(flagged.channel(), 1).size()); }).result();
  EXPECT_EQ(flagged.state(), kFinalArmed);
  EXPECT_EQ(flagged.flags_after(1), "eof");
}

TEST(EndOfStream, CausesNoFurtherCallAfterANewRegistration) {
  Flagged flagged;
  flagged.end();
  EXPECT_TRUE(flagged.callback.set_on(flagged.channel()));
  EXPECT_EQ(flagged.state(), kFinalArmed);
  EXPECT_EQ(flagged.flags_after(1), "eof");
}

TEST(EndOfStream, IsToldAfterTheLastInput) {
  Flagged flagged(true);
  {
    const DispatcherPause pause;
    flagged.adopted.peer.send("abc");
    flagged.adopted.peer.close();
  }
  EXPECT_EQ(flagged.flags_after(2), "eof");
}

TEST(EndOfStream, IsNotToldWhileTheInputBeforeItIsUnread) {
  Flagged flagged;
  flagged.adopted.peer.send("a");
  EXPECT_EQ(flagged.flags_after(1), "");
  flagged.adopted.peer.close();
  EXPECT_EQ(flagged.flags_after(1), "");
  EXPECT_EQ(flagged.state(), CB_REGISTERED);
  EXPECT_EQ(take(flagged.channel(), 1), "a");
  EXPECT_EQ(flagged.flags_after(2), "eof");
}

TEST(EndOfStream, ThatAReadMetIsToldToo) {
  Flagged flagged;
  flagged.adopted.peer.send("a");
  ASSERT_TRUE(flagged.callback.called());
  settle();
  flagged.adopted.peer.close();
  EXPECT_EQ(take(flagged.channel(), 2), "a");
  EXPECT_TRUE(flagged.channel().eof());
  EXPECT_EQ(flagged.flags_after(2), "eof");
  EXPECT_EQ(flagged.state(), kFinal);
}

TEST(EndOfStream, IsToldToEachChannel) {
  Flagged one;
  Flagged other;
  one.adopted.peer.close();
  other.adopted.peer.close();
  EXPECT_EQ(one.flags_after(1), "eof");
  EXPECT_EQ(other.flags_after(1), "eof");
}

// ---- Failures

TEST(Failure, OfTheSocketCausesOneLastCall) {
  Callback callback;
  ConnectedTcp connected;
  ASSERT_TRUE(callback.set_on(connected.channel));
  connected.peer.reset();
  ASSERT_TRUE(callback.called());
  settle();
  EXPECT_EQ(callback.calls(), 1);
  EXPECT_TRUE(connected.channel.error());
  EXPECT_EQ(callback_state(connected.channel), kFinal);
}

TEST(Failure, ThatWasNotedEarlierIsToldWithTheNextInput) {
  Flagged flagged;
  EXPECT_FALSE(flagged.channel().write("x", -1));
  EXPECT_EQ(flagged.state(), kWatched);
  flagged.adopted.peer.send("a");
  EXPECT_EQ(flagged.flags_after(1), "error");
  EXPECT_EQ(flagged.state(), kFinal);
}

TEST(Failure, IsToldTogetherWithTheEnd) {
  Flagged flagged;
  EXPECT_FALSE(flagged.channel().write("x", -1));
  flagged.adopted.peer.close();
  EXPECT_EQ(flagged.flags_after(1), "eof error");
}

// ---- Closing

TEST(ClosedChannel, WaitsForASocketFromWatched) {
  Flagged flagged;
  flagged.channel().close();
  EXPECT_EQ(flagged.state() & kFinal, kFinal);
  EXPECT_EQ(registrations(), 1);
}

TEST(ClosedChannel, WaitsForASocketFromDisabled) {
  Flagged flagged;
  flagged.adopted.peer.send("a");
  ASSERT_TRUE(flagged.callback.called());
  flagged.channel().close();
  EXPECT_EQ(flagged.state(), kFinal);
}

TEST(ClosedChannel, WaitsForASocketAfterItsEnd) {
  Flagged flagged;
  flagged.end();
  flagged.channel().close();
  EXPECT_EQ(flagged.state(), kFinal);
}

TEST(ClosedChannel, IsArmedByARead) {
  Flagged flagged;
  flagged.end();
  flagged.channel().close();
  take(flagged.channel(), 1);
  EXPECT_EQ(flagged.state(), kFinalArmed);
}

TEST(ClosedChannel, IsNotTouchedByPasses) {
  Flagged flagged;
  {
    // Without the call that the end of the socket may cause.
    const DispatcherPause pause;
    flagged.channel().close();
    EXPECT_EQ(inner_state(flagged.channel()).cb_state, kFinalArmed);
  }
  EXPECT_EQ(flagged.state(), kFinalArmed);
  EXPECT_EQ(flagged.callback.calls(), 0);
  EXPECT_FALSE(flagged.channel().error());
}

// The close comes between the dispatcher's look at the socket and its look at the input.
TEST(ClosedChannel, IsNotCalledByAPassThatSawItsInput) {
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  settle();
  auto pause = std::make_unique<DispatcherPause>();
  auto reading = std::make_unique<MutexLock>(inner_state(adopted.channel).read_mutex);
  Task closing([&] {
    adopted.channel.close();
    return 0;
  });
  EXPECT_TRUE(closing.blocked());  // first in the row for the lock
  pause.reset();
  EXPECT_TRUE(dispatcher_held_up());
  reading.reset();
  EXPECT_EQ(closing.result(), 0);
  settle();
  EXPECT_EQ(callback.calls(), 0);
  EXPECT_FALSE(adopted.channel.error());
  EXPECT_FALSE(adopted.channel.eof());
}

TEST(ClosedChannel, CanBeClosedInItsCallback) {
  Callback callback([](IPC& channel) { channel.close(); });
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send("a");
  ASSERT_TRUE(callback.called());
  EXPECT_TRUE(adopted.peer.at_end());
  settle();
  EXPECT_EQ(callback_state(adopted.channel), kFinal);
}

TEST(ClosedChannel, IsNotTouchedWhileItGetsASocketOfTheSameNumber) {
  Listening listening;
  const RawPeer peer = RawPeer::connect("127.0.0.1", port_in(listening.channel.local_addr()));
  IPC::IpcPrivate& state = inner_state(listening.channel);
  EXPECT_FALSE(state.take_input(listening.channel.getFD(), nullptr, nullptr));
  EXPECT_FALSE(listening.channel.error());
}

// ---- Connecting again

TEST(ReconnectedChannel, IsWatchedWhenItWasWatched) {
  Flagged flagged;
  {
    const DispatcherPause pause;
    flagged.channel().close();
  }
  flagged.connect_again();
  EXPECT_EQ(flagged.state(), kWatched);
  flagged.adopted.peer.send("a");
  EXPECT_EQ(flagged.flags_after(1), "");
}

TEST(ReconnectedChannel, IsDisabledWhenItsEndWasToldAndNobodyRead) {
  Flagged flagged;
  flagged.end();
  flagged.connect_again();
  EXPECT_EQ(flagged.state(), CB_REGISTERED);
  flagged.adopted.peer.send("a");
  EXPECT_EQ(flagged.flags_after(1), "eof") << "the call of the first connection";
  EXPECT_EQ(take(flagged.channel(), 1), "a") << "it is connected";
  EXPECT_EQ(flagged.state(), kWatched);
  flagged.adopted.peer.send("b");
  EXPECT_EQ(flagged.flags_after(2), "");
}

TEST(ReconnectedChannel, IsWatchedWhenItsEndWasToldAndRead) {
  Flagged flagged(true);
  flagged.end();
  flagged.connect_again();
  EXPECT_EQ(flagged.state(), kWatched);
  flagged.adopted.peer.send("a");
  EXPECT_EQ(flagged.flags_after(2), "");
}

TEST(ReconnectedChannel, IsDisabledWhenItWasDisabled) {
  Flagged flagged;
  flagged.adopted.peer.send("a");
  EXPECT_EQ(flagged.flags_after(1), "");
  flagged.connect_again();
  EXPECT_EQ(flagged.state(), CB_REGISTERED);
  EXPECT_TRUE(flagged.callback.set_on(flagged.channel()));
  EXPECT_EQ(flagged.state(), kWatched);
}

TEST(ReconnectedChannel, WithItsCallbackSetAgainIsWatchedWhenItWasWatched) {
  Flagged flagged;
  expect_call_when_set_again(flagged);
}

TEST(ReconnectedChannel, WithItsCallbackSetAgainIsWatchedWhenItWasDisabled) {
  Flagged flagged;
  flagged.adopted.peer.send("a");
  ASSERT_TRUE(flagged.callback.called());
  expect_call_when_set_again(flagged);
}

TEST(ReconnectedChannel, WithItsCallbackSetAgainIsWatchedWhenItsEndWasTold) {
  Flagged flagged;
  flagged.end();
  expect_call_when_set_again(flagged);
}

TEST(ReconnectedChannel, WithItsCallbackSetAgainIsWatchedWhenItsEndWasToldAndRead) {
  Flagged flagged(true);
  flagged.end();
  expect_call_when_set_again(flagged);
}

TEST(ReconnectedChannel, WithItsCallbackRemovedAndSetIsWatched) {
  Flagged flagged;
  flagged.end();
  EXPECT_TRUE(remove_callback(flagged.channel()));
  expect_call_when_set_again(flagged);
}

TEST(ReconnectedChannel, TellsItsNewEnd) {
  Flagged flagged(true);
  flagged.end();
  flagged.connect_again();
  flagged.adopted.peer.close();
  EXPECT_EQ(flagged.flags_after(2), "eof");
}
