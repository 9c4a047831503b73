// SPDX-License-Identifier: MIT
// Registering and unregistering notification callbacks: what the server is told, and
// what stays in the client.
#include <gtest/gtest.h>

#include <climits>

#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

int enter(NotificationCallback cb, void* data, int priority, const std::string& name = "n",
          const std::string& to = "t") {
  return ipcRegisterNotificationCB(name, cb, data, priority, to);
}

int leave(NotificationCallback cb, void* data, const std::string& name = "n",
          const std::string& to = "t") {
  return ipcUnregisterNotificationCB(name, cb, data, to);
}

// The server's end, with what has been sent so far taken away.
RawPeer accept_after(const RawListener& listener, int messages) {
  RawPeer server = listener.accept();
  for (int i = 0; i < messages; ++i) EXPECT_EQ(server.receive_message().substr(0, 1), "{");
  return server;
}

// The client's table, by what a new connection is told.
Lines registrations(const RawListener& listener, RawPeer& server) {
  lose(server);
  EXPECT_EQ(ipcNotify("*", "marker", JSObject(), 0, "f"), 0);
  server = listener.accept();
  Lines result;
  for (;;) {
    const std::string message = server.receive_message();
    if (message == notification("*", "marker") || message.front() != '{') return result;
    result.push_back(message);
  }
}

}  // namespace

TEST(Register, TellsTheServer) {
  const RawListener listener;
  EXPECT_EQ(enter(do_nothing, nullptr, 5), 0);
  EXPECT_EQ(listener.accept().receive_message(),
            R"({"notification":"n","priority":5,"to":"t","type":"register"})");
}

TEST(Register, WritesNamesAsJson) {
  const RawListener listener;
  EXPECT_EQ(enter(do_nothing, nullptr, 5, "a\"b\\", "c\nd"), 0);
  EXPECT_EQ(listener.accept().receive_message(),
            R"({"notification":"a\"b\\","priority":5,"to":"c\nd","type":"register"})");
}

TEST(Register, TakesTheWholeRangeOfPriorities) {
  const RawListener listener;
  EXPECT_EQ(enter(do_nothing, nullptr, INT_MIN, "low"), 0);
  EXPECT_EQ(enter(do_nothing, nullptr, INT_MAX, "high"), 0);
  const RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), registration("t", "low", INT_MIN));
  EXPECT_EQ(server.receive_message(), registration("t", "high", INT_MAX));
}

TEST(Register, NeedsAName) {
  const RawListener listener;
  EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, ""), -2);
  expect_no_connection(listener);
}

TEST(Register, PrefersItsOwnNameToTheApplications) {
  const RawListener listener;
  ipcSetAppID("application");
  EXPECT_EQ(enter(do_nothing, nullptr, 5), 0);
  EXPECT_EQ(listener.accept().receive_message(), registration("t", "n", 5));
}

TEST(Register, TakesAnEmptyNotificationName) {
  const RawListener listener;
  EXPECT_EQ(enter(do_nothing, nullptr, 5, ""), 0);
  EXPECT_EQ(listener.accept().receive_message(), registration("t", "", 5));
}

TEST(Register, TellsTheHighestPriorityOfTheGroup) {
  const RawListener listener;
  EXPECT_EQ(enter(do_nothing, nullptr, 5), 0);
  EXPECT_EQ(enter(do_nothing_else, nullptr, 3), 0);
  EXPECT_EQ(enter(do_nothing_else, &first_data, 7), 0);
  const RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), registration("t", "n", 5));
  EXPECT_EQ(server.receive_message(), registration("t", "n", 5));
  EXPECT_EQ(server.receive_message(), registration("t", "n", 7));
}

TEST(Register, LeavesOtherGroupsOutOfThePriority) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 9, "other", "t"), 0);
  ASSERT_EQ(enter(do_nothing, nullptr, 8, "n", "other"), 0);
  ASSERT_EQ(enter(do_nothing, nullptr, 3, "n", "t"), 0);
  const RawPeer server = accept_after(listener, 2);
  EXPECT_EQ(server.receive_message(), registration("t", "n", 3));
}

TEST(Register, KeepsEachCallbacksOwnPriority) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 5), 0);
  ASSERT_EQ(enter(do_nothing_else, nullptr, 3), 0);
  RawPeer server = accept_after(listener, 2);
  EXPECT_EQ(registrations(listener, server),
            (Lines{registration("t", "n", 5), registration("t", "n", 3)}));
}

TEST(Register, LoweringOneOfSeveralTellsTheHighestOfAll) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, &first_data, 5), 0);
  ASSERT_EQ(enter(do_nothing_else, &second_data, 3), 0);
  RawPeer server = accept_after(listener, 2);
  EXPECT_EQ(enter(do_nothing, &first_data, 1), 0);
  EXPECT_EQ(server.receive_message(), registration("t", "n", 3));
  EXPECT_EQ(registrations(listener, server),
            (Lines{registration("t", "n", 1), registration("t", "n", 3)}));
}

TEST(Register, LoweringTheOnlyOneTellsTheLowerPriority) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 5), 0);
  RawPeer server = accept_after(listener, 1);
  EXPECT_EQ(enter(do_nothing, nullptr, -4), 0);
  EXPECT_EQ(server.receive_message(), registration("t", "n", -4));
  EXPECT_EQ(registrations(listener, server), Lines{registration("t", "n", -4)});
}

TEST(Register, TellsTheServerEvenIfNothingChanges) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 5), 0);
  RawPeer server = accept_after(listener, 1);
  EXPECT_EQ(enter(do_nothing, nullptr, 5), 0);
  EXPECT_EQ(server.receive_message(), registration("t", "n", 5));
  EXPECT_EQ(registrations(listener, server), Lines{registration("t", "n", 5)});
}

TEST(Register, AnUpdateKeepsThePlaceInTheTable) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 1, "a"), 0);
  ASSERT_EQ(enter(do_nothing, nullptr, 2, "b"), 0);
  ASSERT_EQ(enter(do_nothing, nullptr, 3, "a"), 0);
  RawPeer server = accept_after(listener, 3);
  EXPECT_EQ(registrations(listener, server),
            (Lines{registration("t", "a", 3), registration("t", "b", 2)}));
}

TEST(Register, OtherDataIsAnotherRegistration) {
  const RawListener listener;
  Recorder& first = immortal<Recorder>();
  Recorder& second = immortal<Recorder>();
  ASSERT_EQ(enter(Recorder::notified, &first, 1), 0);
  ASSERT_EQ(enter(Recorder::notified, &second, 1), 0);
  const RawPeer server = accept_after(listener, 2);
  server.send_message(notification("*", "n"));
  EXPECT_EQ(first.calls(1), Lines{call_of("*", "n")});
  EXPECT_EQ(second.calls(1), Lines{call_of("*", "n")});
}

TEST(Register, IsInTheTableWhenTheServerAnswersAtOnce) {
  const RawListener listener;
  Recorder& calls = immortal<Recorder>();
  Task task([&] { return enter(Recorder::notified, &calls, 1); });
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("t", "n", 1));
  server.send_message(notification("t", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
  EXPECT_EQ(task.result(), 0);
}

TEST(Register, MakesNothingAheadOfTheServer) {
  EXPECT_EQ(enter(do_nothing, nullptr, 5), -1);
  const RawListener listener;
  ASSERT_EQ(ipcNotify("*", "first", JSObject(), 0, "f"), 0);
  EXPECT_EQ(listener.accept().receive_message(), notification("*", "first"));
}

TEST(Unregister, TellsOfTheLastOneOfAGroup) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 5), 0);
  RawPeer server = accept_after(listener, 1);
  EXPECT_EQ(leave(do_nothing, nullptr), 0);
  EXPECT_EQ(server.receive_message(), R"({"notification":"n","to":"t","type":"unregister"})");
  EXPECT_EQ(registrations(listener, server), Lines{});
}

TEST(Unregister, TellsTheHighestPriorityThatIsLeft) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, &first_data, -9), 0);
  ASSERT_EQ(enter(do_nothing, &second_data, -5), 0);
  ASSERT_EQ(enter(do_nothing_else, nullptr, 5), 0);
  const RawPeer server = accept_after(listener, 3);
  EXPECT_EQ(leave(do_nothing_else, nullptr), 0);
  EXPECT_EQ(server.receive_message(), registration("t", "n", -5));
}

TEST(Unregister, TellsTheLowestPriorityThereIs) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, INT_MIN), 0);
  ASSERT_EQ(enter(do_nothing_else, nullptr, 5), 0);
  const RawPeer server = accept_after(listener, 2);
  EXPECT_EQ(leave(do_nothing_else, nullptr), 0);
  EXPECT_EQ(server.receive_message(), registration("t", "n", INT_MIN));
}

TEST(Unregister, TellsTheServerEvenIfNothingWasRegistered) {
  const RawListener listener;
  EXPECT_EQ(leave(do_nothing, nullptr), 0);
  EXPECT_EQ(listener.accept().receive_message(), unregistration("t", "n"));
}

TEST(Unregister, TellsTheServerEvenIfNothingMatched) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 5), 0);
  const RawPeer server = accept_after(listener, 1);
  EXPECT_EQ(leave(do_nothing_else, nullptr), 0);
  EXPECT_EQ(server.receive_message(), registration("t", "n", 5));
}

TEST(Unregister, NeedsAName) {
  const RawListener listener;
  EXPECT_EQ(ipcUnregisterNotificationCB("n", do_nothing, nullptr, ""), -2);
  expect_no_connection(listener);
}

TEST(Unregister, WithoutACallbackRemovesTheWholeGroup) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, &first_data, 1), 0);
  ASSERT_EQ(enter(do_nothing_else, nullptr, 2), 0);
  RawPeer server = accept_after(listener, 2);
  EXPECT_EQ(leave(nullptr, nullptr), 0);
  EXPECT_EQ(server.receive_message(), unregistration("t", "n"));
  EXPECT_EQ(registrations(listener, server), Lines{});
}

TEST(Unregister, WithoutACallbackIgnoresTheData) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, &first_data, 1), 0);
  ASSERT_EQ(enter(do_nothing_else, nullptr, 2), 0);
  const RawPeer server = accept_after(listener, 2);
  EXPECT_EQ(leave(nullptr, &second_data), 0);
  EXPECT_EQ(server.receive_message(), unregistration("t", "n"));
}

TEST(Unregister, WithoutDataRemovesAllOfTheCallback) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 1), 0);
  ASSERT_EQ(enter(do_nothing, &first_data, 2), 0);
  ASSERT_EQ(enter(do_nothing_else, &first_data, 3), 0);
  ASSERT_EQ(enter(do_nothing, &second_data, 4), 0);
  RawPeer server = accept_after(listener, 4);
  EXPECT_EQ(leave(do_nothing, nullptr), 0);
  EXPECT_EQ(server.receive_message(), registration("t", "n", 3));
  EXPECT_EQ(registrations(listener, server), Lines{registration("t", "n", 3)});
}

TEST(Unregister, WithDataRemovesThatOneAlone) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 1), 0);
  ASSERT_EQ(enter(do_nothing, &first_data, 2), 0);
  ASSERT_EQ(enter(do_nothing_else, &first_data, 3), 0);
  RawPeer server = accept_after(listener, 3);
  EXPECT_EQ(leave(do_nothing, &first_data), 0);
  EXPECT_EQ(server.receive_message(), registration("t", "n", 3));
  EXPECT_EQ(registrations(listener, server),
            (Lines{registration("t", "n", 1), registration("t", "n", 3)}));
}

TEST(Unregister, LeavesOtherGroupsAlone) {
  const RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 1, "n", "other"), 0);
  ASSERT_EQ(enter(do_nothing, nullptr, 2, "n", "t"), 0);
  ASSERT_EQ(enter(do_nothing, nullptr, 3, "other", "t"), 0);
  RawPeer server = accept_after(listener, 3);
  EXPECT_EQ(leave(nullptr, nullptr), 0);
  EXPECT_EQ(server.receive_message(), unregistration("t", "n"));
  EXPECT_EQ(registrations(listener, server),
            (Lines{registration("other", "n", 1), registration("t", "other", 3)}));
}

TEST(Unregister, RemovesNothingWhileTheServerIsAway) {
  RawListener listener;
  ASSERT_EQ(enter(do_nothing, nullptr, 5), 0);
  RawPeer server = accept_after(listener, 1);
  listener.close();
  lose(server);
  EXPECT_EQ(leave(do_nothing, nullptr), -1);
  const RawListener again;
  ASSERT_EQ(ipcNotify("*", "marker", JSObject(), 0, "f"), 0);
  EXPECT_EQ(again.accept().receive_message(), registration("t", "n", 5));
}

TEST(Register, LogsWhatItDid) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    immortal<RawListener>();
    ipcSetAppID("app");
    ASSERT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, ""), 0);
    ASSERT_EQ(enter(do_nothing, &first_data, 3, "n", "app"), 0);
    ASSERT_EQ(enter(do_nothing, nullptr, 1, "n", "app"), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:info|init(): IPC reader thread with ipc=PTR started for notification "
                   "server '127.0.0.1:5899'",
                   "NFYCL:info|ipcRegisterNotificationCB(): registration successful (to='app', "
                   "notification='n', cb=PTR, data=(nil), prio=5)",
                   "NFYCL:info|ipcRegisterNotificationCB(): registration successful (to='app', "
                   "notification='n', cb=PTR, data=PTR, prio=3)",
                   "NFYCL:info|ipcRegisterNotificationCB(): registration updated with new priority "
                   "(to='app', notification='n', cb=PTR, data=(nil), prio=1)"}));
}

TEST(Register, LogsThatItHasNoName) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, ""), -2);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            Lines{"NFYCL:error|ipcRegisterNotificationCB(): no parameter 'to' passed and no appID "
                  "set"});
}

TEST(Unregister, LogsWhatItDid) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "255"}}, [] {
    immortal<RawListener>();
    ASSERT_EQ(enter(do_nothing, nullptr, 5), 0);
    ASSERT_EQ(enter(do_nothing_else, nullptr, 3), 0);
    EXPECT_EQ(leave(do_nothing, nullptr), 0);
    EXPECT_EQ(leave(nullptr, nullptr), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  Lines lines = client_log(result.err);
  ASSERT_EQ(lines.size(), 5U);
  lines.erase(lines.begin(), lines.begin() + 3);
  EXPECT_EQ(lines, (Lines{"NFYCL:info|ipcUnregisterNotificationCB(): server registration priority "
                          "update successfull (to='t', notification='n', prio=3)",
                          "NFYCL:info|ipcUnregisterNotificationCB(): server unregistration "
                          "successfull (to='t', notification='n')"}));
}

TEST(Unregister, LogsThatItHasNoName) {
  const ChildResult result = run_in_child(
      kAllLevels, [] { EXPECT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, ""), -2); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            Lines{"NFYCL:error|ipcUnregisterNotificationCB(): no parameter 'to' passed and no "
                  "appID set"});
}
