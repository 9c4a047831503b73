// SPDX-License-Identifier: MIT
// Removing callbacks and deleting channels, in a callback and outside.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "ipc/callbacks.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Three channels in the order in which a pass serves them.
struct Row {
  Row() {
    for (auto& channel : channels) channel = std::make_unique<Adopted>();
    std::sort(channels.begin(), channels.end(), [](const auto& one, const auto& other) {
      return &inner_state(one->channel) < &inner_state(other->channel);
    });
  }
  void set_on_all(Callback& callback) {
    for (auto at = channels.rbegin(); at != channels.rend(); ++at) {
      ASSERT_TRUE(callback.set_on((*at)->channel));
    }
  }
  // Makes one pass see input on all three.
  void send_to_all() {
    const DispatcherPause pause;
    for (const auto& channel : channels) {
      inner_state(channel->channel).cb_state &= ~CB_ARMED;
      channel->peer.send("x");
    }
  }
  void arm_all() {
    {
      const DispatcherPause pause;
      for (const auto& channel : channels) inner_state(channel->channel).cb_state |= CB_ARMED;
    }
    settle();
  }
  [[nodiscard]] std::string name_of(const IPC& channel) const {
    for (std::size_t i = 0; i < channels.size(); ++i) {
      if (channels[i] && &channels[i]->channel == &channel) return std::to_string(i);
    }
    return "?";
  }

  std::array<std::unique_ptr<Adopted>, 3> channels;
};

// Which channels of a row are served, as "012", by the pass in which the callback of the
// middle one does `act`.
std::string served_around(const std::function<void(Row&)>& act) {
  std::string served;
  Row* row = nullptr;
  Callback callback([&](IPC& channel) {
    const std::string name = row->name_of(channel);
    served += name;
    if (name == "1") act(*row);
  });
  Row channels;
  row = &channels;
  channels.set_on_all(callback);
  // A pass that has been told of a part of the input finds the channels disabled.
  channels.send_to_all();
  settle();
  {
    const DispatcherPause pause;
    EXPECT_EQ(served, "");
  }
  channels.arm_all();
  const DispatcherPause pause;
  return served;
}

// A channel whose callback waits at a gate.
struct Busy {
  Busy() {
    EXPECT_TRUE(callback.set_on(adopted->channel));
    adopted->peer.send("x");
    EXPECT_TRUE(gate.reached());
  }

  Gate gate;
  bool ended = false;
  Callback callback{[this](IPC& channel) {
    gate.pass();
    EXPECT_NE(channel.getFD(), -1);
    take(channel, 1);
    ended = true;
  }};
  std::unique_ptr<Adopted> adopted = std::make_unique<Adopted>();
};

}  // namespace

// ---- Outside of callbacks

TEST(RemoveCallback, WithoutOneAndWithoutADispatcherStartsNone) {
  TCP channel;
  const int before = thread_count();
  EXPECT_FALSE(remove_callback(channel));
  expect_no_dispatcher();
  EXPECT_EQ(thread_count(), before);
}

TEST(RemoveCallback, WithoutOneFails) {
  Callback callback;
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  TCP other;
  EXPECT_FALSE(remove_callback(other));
  EXPECT_EQ(registrations(), 1);
}

TEST(RemoveCallback, ASecondTimeFails) {
  Callback callback;
  TCP channel;
  TCP other;
  ASSERT_TRUE(callback.set_on(channel));
  ASSERT_TRUE(callback.set_on(other));
  EXPECT_TRUE(remove_callback(channel));
  EXPECT_FALSE(remove_callback(channel));
}

TEST(RemoveCallback, IgnoresTheData) {
  Callback callback;
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  EXPECT_TRUE(channel.set_callback(nullptr, &channel));
}

TEST(RemoveCallback, EndsTheCalls) {
  Callback callback;
  Callback other_callback;
  TCP other;
  ASSERT_TRUE(other_callback.set_on(other));
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  EXPECT_TRUE(remove_callback(adopted.channel));
  adopted.peer.send("x");
  settle();
  EXPECT_EQ(callback.calls(), 0);
}

TEST(RemoveCallback, LeavesTheOtherBitsOfAWatchedChannel) {
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  EXPECT_TRUE(remove_callback(adopted.channel));
  EXPECT_EQ(callback_state(adopted.channel), CB_ARMED);
}

TEST(RemoveCallback, LeavesTheOtherBitsOfAChannelWithoutASocket) {
  Callback callback;
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  EXPECT_TRUE(remove_callback(channel));
  EXPECT_EQ(callback_state(channel), CB_LOCKED | CB_ARMED);
}

TEST(RemoveCallback, LeavesTheOtherBitsOfADisabledChannel) {
  Callback callback;
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send("x");
  ASSERT_TRUE(callback.called());
  EXPECT_TRUE(remove_callback(adopted.channel));
  EXPECT_EQ(callback_state(adopted.channel), 0);
}

TEST(RemoveCallback, WaitsForACallThatRunsAndForItsPass) {
  Busy busy;
  bool ended_before = false;
  Background remover([&] {
    EXPECT_TRUE(remove_callback(busy.adopted->channel));
    ended_before = busy.ended;
  });
  EXPECT_TRUE(remover.blocks_in(kInMutex));
  EXPECT_FALSE(remover.ends(0));
  busy.gate.let_pass();
  remover.join();
  EXPECT_TRUE(ended_before);
}

TEST(RemoveCallback, WaitsForAFurtherPass) {
  Callback callback;
  Callback other_callback;
  TCP other;
  ASSERT_TRUE(other_callback.set_on(other));
  TCP channel;
  ASSERT_TRUE(callback.set_on(channel));
  settle();
  const std::uint64_t before = passes();
  EXPECT_TRUE(remove_callback(channel));
  EXPECT_GT(passes(), before);
}

TEST(Destruction, OfATcpWaitsForACallThatRuns) {
  Busy busy;
  bool ended_before = false;
  Background deleter([&] {
    busy.adopted.reset();
    ended_before = busy.ended;
  });
  EXPECT_TRUE(deleter.blocks_in(kInMutex));
  busy.gate.let_pass();
  deleter.join();
  EXPECT_TRUE(ended_before);
  expect_no_dispatcher();
}

TEST(Destruction, OfAPipeWaitsForACallThatRuns) {
  Gate gate;
  std::atomic<bool> ended{false};
  Callback callback([&](IPC& channel) {
    gate.pass();
    EXPECT_EQ(take(channel, 1), "x");
    ended = true;
  });
  AcceptedPipe accepted;
  ASSERT_TRUE(callback.set_on(*accepted.session));
  accepted.peer.send("x");
  ASSERT_TRUE(gate.reached());
  bool ended_before = false;
  Background deleter([&] {
    accepted.session.reset();
    ended_before = ended;
  });
  EXPECT_TRUE(deleter.blocks_in(kInMutex));
  gate.let_pass();
  deleter.join();
  EXPECT_TRUE(ended_before);
  expect_no_dispatcher();
}

// ---- In callbacks

TEST(OnePass, ServesChannelsInTheOrderOfTheirStates) {
  EXPECT_EQ(served_around([](Row&) {}), "012");
}

TEST(InACallback, AChannelCanRemoveItself) {
  EXPECT_EQ(served_around([](Row& row) { EXPECT_TRUE(remove_callback(row.channels[1]->channel)); }),
            "012");
}

TEST(InACallback, AChannelCanRemoveOneBeforeIt) {
  EXPECT_EQ(served_around([](Row& row) { EXPECT_TRUE(remove_callback(row.channels[0]->channel)); }),
            "012");
}

TEST(InACallback, AChannelThatIsRemovedBeforeItsTurnIsNotCalled) {
  EXPECT_EQ(served_around([](Row& row) { EXPECT_TRUE(remove_callback(row.channels[2]->channel)); }),
            "01");
}

TEST(InACallback, AChannelCanRemoveAll) {
  EXPECT_EQ(served_around([](Row& row) {
              for (const auto& channel : row.channels) {
                EXPECT_TRUE(remove_callback(channel->channel));
              }
            }),
            "01");
  EXPECT_TRUE(eventually([] { return registrations() == -1; }));
  expect_no_dispatcher();
}

TEST(InACallback, AChannelCanBeDeletedByItself) {
  EXPECT_EQ(served_around([](Row& row) { row.channels[1].reset(); }), "012");
}

TEST(InACallback, AChannelCanDeleteOneBeforeIt) {
  EXPECT_EQ(served_around([](Row& row) { row.channels[0].reset(); }), "012");
}

TEST(InACallback, AChannelThatIsDeletedBeforeItsTurnIsNotCalled) {
  EXPECT_EQ(served_around([](Row& row) { row.channels[2].reset(); }), "01");
}

TEST(InACallback, AChannelCanDeleteAll) {
  EXPECT_EQ(served_around([](Row& row) {
              for (auto& channel : row.channels) channel.reset();
            }),
            "01");
  EXPECT_TRUE(eventually([] { return registrations() == -1; }));
  expect_no_dispatcher();
}

TEST(InACallback, ARemovalWithoutACallbackFails) {
  EXPECT_EQ(served_around([](Row&) {
              TCP other;
              EXPECT_FALSE(remove_callback(other));
            }),
            "012");
}

TEST(InACallback, ARemovedChannelCanStillBeRead) {
  std::string text;
  Callback callback([&](IPC& channel) {
    EXPECT_TRUE(remove_callback(channel));
    text = take(channel, 1);
  });
  Adopted adopted;
  ASSERT_TRUE(callback.set_on(adopted.channel));
  adopted.peer.send("x");
  ASSERT_TRUE(eventually([] { return registrations() == -1; }));
  EXPECT_EQ(text, "x");
  EXPECT_EQ(callback_state(adopted.channel), CB_ARMED);
}
