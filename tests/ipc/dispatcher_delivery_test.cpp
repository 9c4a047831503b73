// SPDX-License-Identifier: MIT
// When a channel's callback is called.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ipc/callbacks.h"
#include "ipc/receive.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// A channel whose callback reads nothing. The test reads.
struct Watched {
  Watched() { EXPECT_TRUE(callback.set_on(adopted.channel)); }

  TCP& channel() { return adopted.channel; }
  [[nodiscard]] int calls() const {
    settle();
    return callback.calls();
  }
  int state() {
    settle();
    return callback_state(adopted.channel);
  }
  // Sends, and waits for the call.
  void send(const std::string& bytes) {
    const int before = callback.calls();
    adopted.peer.send(bytes);
    EXPECT_TRUE(callback.called(before + 1));
    settle();
  }

  Callback callback;
  Adopted adopted;
};

std::string frames(const std::vector<std::string>& payloads) {
  std::string bytes;
  for (const std::string& payload : payloads) bytes += frame(kId, 7, payload);
  return bytes;
}

// A channel whose callback receives one frame.
struct Receiver {
  Receiver() { EXPECT_TRUE(callback.set_on(adopted.channel)); }

  // The calls so far. The dispatcher sleeps when it has received the last.
  std::vector<std::string> received() {
    settle();
    const DispatcherPause pause;
    return list;
  }
  int state() {
    settle();
    return callback_state(adopted.channel);
  }

  std::vector<std::string> list;
  Callback callback{[this](IPC& channel) { list.push_back(receive(channel, 0, 10)); }};
  Adopted adopted;
};

}  // namespace

TEST(Delivery, CallsWithTheDataAndTheChannel) {
  IPC* seen = nullptr;
  Callback callback([&](IPC& channel) { seen = &channel; });
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send("x");
  ASSERT_TRUE(callback.called());
  settle();
  const DispatcherPause pause;
  EXPECT_EQ(seen, &adopted.channel);
}

TEST(Delivery, DoesNotCallWithoutInput) {
  const Watched watched;
  EXPECT_EQ(watched.calls(), 0);
}

TEST(Delivery, CallsForInputThatWasThereBefore) {
  Adopted adopted;
  adopted.peer.send("x");
  Callback callback;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  EXPECT_TRUE(callback.called());
  EXPECT_TRUE(remove_callback(adopted.channel));
}

TEST(Delivery, CallsOnceForInputThatNobodyReads) {
  Watched watched;
  watched.send("a");
  watched.adopted.peer.send("b");
  EXPECT_EQ(watched.calls(), 1);
  EXPECT_EQ(watched.state(), CB_REGISTERED);
}

TEST(Delivery, DoesNotReadItself) {
  Watched watched;
  watched.send("ab");
  EXPECT_EQ(take(watched.channel(), 9), "ab");
}

TEST(Delivery, CallsAgainForWhatAReadLeft) {
  Watched watched;
  watched.send("ab");
  EXPECT_EQ(take(watched.channel(), 1), "a");
  EXPECT_TRUE(watched.callback.called(2));
  EXPECT_EQ(watched.calls(), 2);
}

TEST(Delivery, WatchesAgainAfterAReadByAnotherThread) {
  Watched watched;
  watched.send("a");
  Task([&] { return take(watched.channel(), 1) == "a" ? 0 : 1; }).result();
  EXPECT_EQ(watched.state(), CB_REGISTERED | CB_ARMED);
  EXPECT_EQ(watched.calls(), 1);
  watched.adopted.peer.send("b");
  EXPECT_TRUE(watched.callback.called(2));
}

TEST(Delivery, WatchesAgainAfterAReadOfNothing) {
  Watched watched;
  watched.send("a");
  rearm(watched.channel());
  EXPECT_TRUE(watched.callback.called(2));
  settle();
  EXPECT_EQ(take(watched.channel(), 9), "a");
}

TEST(Delivery, WatchesAgainAfterAReadThatTimedOut) {
  Watched watched;
  watched.send("a");
  EXPECT_EQ(take(watched.channel(), 9), "a");
  settle();
  EXPECT_EQ(take(watched.channel(), 9), "");
  EXPECT_EQ(watched.state(), CB_REGISTERED | CB_ARMED);
}

TEST(Delivery, DoesNotWatchAgainForPollInOrAWrite) {
  Watched watched;
  watched.send("a");
  EXPECT_TRUE(watched.channel().poll_in(0));
  EXPECT_TRUE(watched.channel().write("x", 1));
  EXPECT_EQ(watched.state(), CB_REGISTERED);
}

TEST(Delivery, WatchesAgainAfterANewRegistration) {
  Watched watched;
  watched.send("a");
  EXPECT_TRUE(watched.callback.set_on(watched.channel()));
  EXPECT_TRUE(watched.callback.called(2));
}

TEST(Delivery, CallsOnceForEachOfThreeFramesThatArriveTogether) {
  Receiver receiver;
  receiver.adopted.peer.send(frames({"a", "b", "c"}));
  ASSERT_TRUE(receiver.callback.called(3));
  EXPECT_EQ(receiver.received(), (std::vector<std::string>{"7:a", "7:b", "7:c"}));
  EXPECT_EQ(receiver.state(), CB_REGISTERED | CB_ARMED);
}

TEST(Delivery, IgnoresInputThatSomebodyElseTookFirst) {
  Watched watched;
  take_under_a_pass(watched.channel(), watched.adopted.peer);
  EXPECT_EQ(watched.calls(), 0);
  EXPECT_EQ(watched.state(), CB_REGISTERED | CB_ARMED);
}

// ---- Frames without a payload that was read

TEST(DeliveryOfFrames, StopsAfterAnEmptyOne) {
  Receiver receiver;
  receiver.adopted.peer.send(frames({"", "b"}));
  ASSERT_TRUE(receiver.callback.called());
  EXPECT_EQ(receiver.received(), Lines{"7:"});
  EXPECT_EQ(receiver.state(), CB_REGISTERED);
}

TEST(DeliveryOfFrames, GoesOnAfterAnEmptyOneWithAReadOfNothing) {
  Receiver receiver;
  receiver.adopted.peer.send(frames({"", "b"}));
  ASSERT_TRUE(receiver.callback.called());
  settle();
  rearm(receiver.adopted.channel);
  ASSERT_TRUE(receiver.callback.called(2));
  EXPECT_EQ(receiver.received(), (Lines{"7:", "7:b"}));
}

TEST(DeliveryOfFrames, GoesOnAfterAnEmptyOneWithANewRegistration) {
  Receiver receiver;
  receiver.adopted.peer.send(frames({"", "b"}));
  ASSERT_TRUE(receiver.callback.called());
  settle();
  EXPECT_TRUE(receiver.callback.set_on(receiver.adopted.channel));
  ASSERT_TRUE(receiver.callback.called(2));
  EXPECT_EQ(receiver.received(), (Lines{"7:", "7:b"}));
}

TEST(DeliveryOfFrames, GoesOnAfterAnEmptyOneIfTheCallbackReadsNothingBehindIt) {
  std::vector<std::string> list;
  Callback callback([&](IPC& channel) {
    list.push_back(receive(channel, 0));
    rearm(channel);
  });
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send(frames({"", "", "c"}));
  ASSERT_TRUE(callback.called(3));
  settle();
  const DispatcherPause pause;
  EXPECT_EQ(list, (Lines{"7:", "7:", "7:c"}));
}

TEST(DeliveryOfFrames, StopsAfterARefusedOne) {
  Receiver receiver;
  receiver.adopted.peer.send(frames({"more than it takes", "b"}));
  ASSERT_TRUE(receiver.callback.called());
  EXPECT_EQ(receiver.received(), Lines{"false"});
  EXPECT_EQ(receiver.state(), CB_REGISTERED);
  rearm(receiver.adopted.channel);
  ASSERT_TRUE(receiver.callback.called(2));
  EXPECT_EQ(receiver.received(), (Lines{"false", "7:b"}));
}

TEST(DeliveryOfFrames, StopsAfterAHeaderThatTheStreamEndsIn) {
  Receiver receiver;
  {
    const DispatcherPause pause;
    receiver.adopted.peer.send("short");
    receiver.adopted.peer.close();
  }
  ASSERT_TRUE(receiver.callback.called());
  EXPECT_EQ(receiver.received(), Lines{"false"}) << "no call for the end itself";
  EXPECT_TRUE(receiver.adopted.channel.eof());
  EXPECT_EQ(receiver.state(), CB_REGISTERED);
}

TEST(DeliveryOfFrames, GoesOnAfterOneThatIsCutShort) {
  Receiver receiver;
  {
    const DispatcherPause pause;
    receiver.adopted.peer.send(frames({"abc"}).substr(0, 13));
    receiver.adopted.peer.close();
  }
  ASSERT_TRUE(receiver.callback.called(2)) << "for the end itself";
  EXPECT_TRUE(receiver.adopted.channel.eof());
}

// ---- Channels without a callback

TEST(ReadWithoutCallback, ArmsAndCausesOnePassMore) {
  Watched other;
  Adopted plain;
  plain.peer.send("a");
  ASSERT_EQ(callback_state(plain.channel), 0);
  settle();
  const std::uint64_t before = passes();
  EXPECT_EQ(take(plain.channel, 1), "a");
  EXPECT_EQ(inner_state(plain.channel).cb_state, CB_ARMED);
  EXPECT_TRUE(eventually([&] { return passes() > before; }));
  EXPECT_EQ(callback_state(plain.channel), CB_ARMED);
  EXPECT_EQ(registrations(), 1);
  EXPECT_EQ(other.calls(), 0);
}

TEST(ReadWithoutCallback, WithoutADispatcherArmsAlone) {
  Adopted plain;
  plain.peer.send("a");
  EXPECT_EQ(take(plain.channel, 1), "a");
  EXPECT_EQ(callback_state(plain.channel), CB_ARMED);
  expect_no_dispatcher();
}
