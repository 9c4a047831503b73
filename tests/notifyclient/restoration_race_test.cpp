// SPDX-License-Identifier: MIT
// Registrations that change at the moment at which a new connection is told of them.
// The server holds a connection up by not reading it: the first registration that it
// is told of is larger than what the system takes in its stead.
#include <gtest/gtest.h>

#include "delivery_script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

int leave(NotificationCallback cb = nullptr) {
  return ipcUnregisterNotificationCB("n", cb, nullptr, "t");
}

class Restoring : public Script {
 public:
  // Registers what holds a new connection up.
  void register_much() {
    Task task([this] { return ipcRegisterNotificationCB(much_, do_nothing, nullptr, 1, "big"); });
    EXPECT_EQ(next("register"), registration("big", much_, 1));
    EXPECT_EQ(task.result(), 0);
  }

  // A callback that runs from now on, registered under "t".
  Blocker& run_blocker(int priority) {
    Blocker& blocker = block_as("t", priority);
    send(notification("t", "n"));
    EXPECT_TRUE(blocker.entered());
    return blocker;
  }

  // Loses the connection and begins a new one, by a notification that waits.
  void begin_restoring() {
    lose(server());
    sender_ = std::make_unique<Task>([] { return say("after"); });
    EXPECT_TRUE(server().connected());
    EXPECT_TRUE(sender_->blocked());
  }

  // The new connection is told all this, and only then is the notification sent.
  void expect_restored(const Lines& messages) {
    EXPECT_TRUE(sender_->running());
    EXPECT_EQ(next("register"), registration("big", much_, 1));
    for (const std::string& message : messages) EXPECT_EQ(server().receive_message(), message);
    EXPECT_EQ(server().receive_message(), notification("*", "after"));
    EXPECT_EQ(sender_->result(), 0);
  }

 private:
  const std::string much_ = std::string(8U << 20, 'x');
  std::unique_ptr<Task> sender_;
};

}  // namespace

TEST(Restoring, SaysNothingOfWhatIsLeaving) {
  Restoring script;
  Blocker& blocker = script.run_blocker(5);
  script.receive_as("u", 6);
  Task leaving([] { return leave(); });
  ASSERT_TRUE(leaving.blocked());
  lose(script.server());
  EXPECT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("u", "n", 6));
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
  EXPECT_TRUE(leaving.running());
  blocker.release();
  EXPECT_EQ(leaving.result(), 0);
  EXPECT_EQ(script.next("unregister"), unregistration("t", "n"));
}

TEST(Restoring, IncludesAnUpdateThatWaitsForACallback) {
  Restoring script;
  Blocker& blocker = script.run_blocker(5);
  Task update([&] { return ipcRegisterNotificationCB("n", Blocker::notified, &blocker, 9, "t"); });
  EXPECT_EQ(script.next("register"), registration("t", "n", 9));
  ASSERT_TRUE(update.blocked());
  lose(script.server());
  EXPECT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 9));
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
  blocker.release();
  EXPECT_EQ(update.result(), 0);
  expect_nothing_sent(script.server());
}

TEST(Restoring, IncludesTheLastObserversLeavingMeanwhile) {
  Restoring script;
  script.register_much();
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  script.next("register_observer");
  script.begin_restoring();
  Task leaving([] { return ipcUnregisterObserver(nullptr, nullptr); });
  ASSERT_TRUE(leaving.blocked());  // until there is room for a message
  script.next("register");
  script.next("register_observer");
  script.next("unregister_observer");
  // It may have found the new connection, and told it once more.
  Lines expected{notification("*", "after"), notification("*", "end")};
  if (leaving.result() == 0) expected.push_back(kObserverOff);
  ASSERT_EQ(say("end"), 0);
  Lines rest;
  while (rest.size() < expected.size()) rest.push_back(script.server().receive_message());
  std::sort(rest.begin(), rest.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(rest, expected);
}

TEST(Restoring, SaysNothingOfOneOfTwoObserversLeavingMeanwhile) {
  Restoring script;
  script.register_much();
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation_too, nullptr), 0);
  script.next("register_observer");
  script.next("register_observer");
  script.begin_restoring();
  EXPECT_EQ(ipcUnregisterObserver(ignore_observation, nullptr), 0);
  script.expect_restored({kObserverOn});
}

TEST(Restoring, ComesAheadOfARegistrationThatWaitsForTheConnection) {
  Restoring script;
  script.register_much();
  script.receive_as("t", 5);
  script.begin_restoring();
  Task entering([] { return ipcRegisterNotificationCB("n", do_nothing, nullptr, 7, "new"); });
  ASSERT_TRUE(entering.blocked());
  script.next("register");
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
  Lines rest{script.server().receive_message(), script.server().receive_message()};
  std::sort(rest.begin(), rest.end());
  EXPECT_EQ(rest, (Lines{notification("*", "after"), registration("new", "n", 7)}));
  EXPECT_EQ(entering.result(), 0);
}

TEST(Sending, FailsWhenTheConnectionBreaksUnderIt) {
  Script script;
  script.receive_as("t", 5);
  Task task([] { return ipcNotify("t", "n", JSObject(std::string(8U << 20, 'x')), 0, "f"); });
  ASSERT_TRUE(task.blocked());
  script.server().reset();
  EXPECT_EQ(task.result(), -1);
  EXPECT_TRUE(eventually([] { return say("after") == 0; }));
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
}
