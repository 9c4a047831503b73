// SPDX-License-Identifier: MIT
// A connection that is lost comes back by itself, with all that was registered.
#include <gtest/gtest.h>

#include <chrono>

#include "delivery_script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// A connected client whose connection is lost again.
void lose_first_connection(const RawListener& listener) {
  EXPECT_EQ(say("first"), 0);
  RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), notification("*", "first"));
  lose(server);
}

class Stopwatch {
 public:
  [[nodiscard]] double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace

TEST(Reconnection, IsMadeByTheNextNotification) {
  const RawListener listener;
  lose_first_connection(listener);
  EXPECT_EQ(say("second"), 0);
  EXPECT_EQ(listener.accept().receive_message(), notification("*", "second"));
}

TEST(Reconnection, IsMadeByTheNextRegistration) {
  const RawListener listener;
  lose_first_connection(listener);
  EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "t"), 0);
  EXPECT_EQ(listener.accept().receive_message(), registration("t", "n", 1));
}

TEST(Reconnection, IsMadeByTheNextUnregistration) {
  const RawListener listener;
  lose_first_connection(listener);
  EXPECT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);
  EXPECT_EQ(listener.accept().receive_message(), unregistration("t", "n"));
}

TEST(Reconnection, IsMadeByTheNextObserver) {
  const RawListener listener;
  lose_first_connection(listener);
  EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  EXPECT_EQ(listener.accept().receive_message(), kObserverOn);
}

TEST(Reconnection, IsNotMadeByCallsThatNeedNone) {
  const RawListener listener;
  lose_first_connection(listener);
  EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), -1);
  EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);
  ipcSetAppID("t");
  expect_no_connection(listener);
}

TEST(Reconnection, TellsOfEverythingInOrderAheadOfWhatCausedIt) {
  Script script;
  script.receive_as("t", 5);
  script.receive_as("u", -3);
  script.receive_as("t", 3);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation_too, nullptr), 0);
  script.next("register_observer");
  script.next("register_observer");
  script.receive_as("a", 9);
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
  EXPECT_EQ(script.next("register"), registration("u", "n", -3));
  EXPECT_EQ(script.next("register"), registration("t", "n", 3));
  EXPECT_EQ(script.next("register"), registration("a", "n", 9));
  script.next("register_observer");
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(Reconnection, ByARegistrationTellsOfTheNewOneLast) {
  Script script;
  script.receive_as("t", 5);
  lose(script.server());
  ASSERT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "t"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));  // the higher of both
}

TEST(Reconnection, ByAnUnregistrationTellsOfTheOldOneFirst) {
  Script script;
  script.receive_as("t", 5);
  lose(script.server());
  ASSERT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
  EXPECT_EQ(script.next("unregister"), unregistration("t", "n"));
}

TEST(Reconnection, TellsNothingOfWhatIsNoMoreRegistered) {
  Script script;
  script.receive_as("t", 5);
  script.receive_as("u", 6);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  ASSERT_EQ(ipcUnregisterObserver(ignore_observation, nullptr), 0);
  script.next("register_observer");
  script.next("unregister_observer");
  ASSERT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);
  script.next("unregister");
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("u", "n", 6));
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(Reconnection, TellsNothingOfUnicastErrorCallbacks) {
  Script script;
  ASSERT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
  ASSERT_EQ(say("first"), 0);
  script.next("notify");
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(Reconnection, ServesTheOldCallbacks) {
  Script script;
  Recorder& calls = script.receive_as("t", 5);
  Recorder& errors = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &errors), 0);
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  script.next("register");
  script.next("notify");
  script.send(notification("t", "n"));
  script.send(notification("x", "n", "unicast_error"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
  EXPECT_EQ(errors.calls(1), Lines{call_of("x", "n")});
}

TEST(Reconnection, WorksTimeAndAgain) {
  Script script;
  Recorder& calls = script.receive_as("t", 5);
  for (std::size_t i = 1; i <= 20; ++i) {
    lose(script.server());
    ASSERT_EQ(say("again"), 0);
    script.next("register");
    script.next("notify");
    script.send(notification("t", "n"));
    ASSERT_EQ(calls.calls(i).size(), i);
  }
}

TEST(Reconnection, IsOneForThreadsThatFindItLost) {
  Script script;
  script.receive_as("t", 5);
  lose(script.server());
  std::deque<Task> tasks;
  for (int i = 0; i < 6; ++i) tasks.emplace_back([] { return say("again"); });
  for (Task& task : tasks) EXPECT_EQ(task.result(), 0);
  script.next("register");
  for (int i = 0; i < 6; ++i) script.next("notify");
  expect_no_connection(script.listener());
}

TEST(Reconnection, LeavesRunningCallbacksAlone) {
  Script script;
  Blocker& blocker = script.block_as("t", 5);
  script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered());
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  script.next("register");
  script.next("notify");
  Task leaving([] { return ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"); });
  EXPECT_TRUE(leaving.blocked());
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
  EXPECT_EQ(leaving.result(), 0);
  EXPECT_EQ(blocker.ended(), 1);
}

TEST(Reconnection, DoesNotBringBackWhatCouldNotBeSent) {
  RawListener listener;
  lose_first_connection(listener);
  listener.close();
  EXPECT_EQ(say("lost"), -1);
  const RawListener again;
  EXPECT_EQ(say("second"), 0);
  EXPECT_EQ(again.accept().receive_message(), notification("*", "second"));
}

TEST(Reconnection, FollowsAReset) {
  Script script;
  script.receive_as("t", 5);
  script.server().reset();
  ASSERT_TRUE(eventually([] { return ipcUnregisterObserver(nullptr, nullptr) == -1; }));
  ASSERT_TRUE(eventually([] { return say("after") == 0; }));
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
}

TEST(Reconnection, LetsTheOldReaderEnd) {
  Script script;
  script.receive_as("t", 5);
  const int threads = thread_count();
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(thread_count(), threads + 1);
  EXPECT_TRUE(eventually([&] { return thread_count() == threads; }, 15000));
  script.next("register");
  script.next("notify");
  expect_no_connection(script.listener());
}

TEST(Reconnection, OfASilentApplicationTakesTenSeconds) {
  Script script;
  Recorder& calls = script.receive_as("t", 5);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  script.next("register_observer");
  lose(script.server());
  const Stopwatch stopwatch;
  const RawPeer server = script.listener().accept(20000);
  ASSERT_TRUE(server.connected());
  EXPECT_GT(stopwatch.seconds(), 9.9);
  EXPECT_EQ(server.receive_message(), registration("t", "n", 5));
  EXPECT_EQ(server.receive_message(), kObserverOn);
  server.send_message(notification("t", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
}

TEST(Reconnection, OfASilentApplicationIsTriedEveryTenSeconds) {
  Child child({{"NFY_LOGMASK", "8"}}, [] {
    RawListener listener;
    lose_first_connection(listener);
    listener.close();
    const Stopwatch stopwatch;
    EXPECT_TRUE(eventually([&] { return stopwatch.seconds() > 12; }, 15000));
    const RawListener again;
    EXPECT_TRUE(again.accept(20000).connected());
    EXPECT_GT(stopwatch.seconds(), 19.9);
  });
  EXPECT_EQ(child.wait(50), 0) << child.out();
  const Lines lines = client_log(child.err());
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0],
            "NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (EOF), terminate.");
  EXPECT_EQ(lines[1], "NFYCL:error|init(): TCP connect() to server '127.0.0.1:5899' failed");
}

TEST(Reconnection, OfManyLostConnectionsIsOne) {
  Script script;
  script.receive_as("t", 5);
  lose(script.server());
  const int threads = thread_count();  // one waits to try again
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(say("after"), 0);
    script.next("register");
    script.next("notify");
    lose(script.server());
  }
  EXPECT_TRUE(eventually([&] { return thread_count() == threads; }, 5000));
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
  EXPECT_TRUE(eventually([&] { return thread_count() == threads; }, 5000));
  expect_no_connection(script.listener());
}
