// SPDX-License-Identifier: MIT
// Which server the client connects to, when, and what it says about it.
#include <gtest/gtest.h>

#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

int say_hello() { return ipcNotify("*", "hello", JSObject(), 0, "f"); }

int observe() { return ipcRegisterObserver(ignore_observation, nullptr); }

}  // namespace

TEST(Connection, GoesToThisMachineIfNoServerIsNamed) {
  const RawListener listener;
  EXPECT_EQ(say_hello(), 0);
  EXPECT_EQ(listener.accept().receive_message(), notification("*", "hello"));
}

TEST(Connection, IsALocalOneIfNoServerIsNamed) {
  const RawListener listener;
  EXPECT_EQ(observe(), 0);
  EXPECT_EQ(listener.accept().receive_message(), kObserverOn);
}

TEST(Connection, IsALocalOneToTheUsualAddress) {
  const RawListener listener;
  setenv("NOTIFY_SERVER", "127.0.0.1", 1);
  EXPECT_EQ(observe(), 0);
  EXPECT_EQ(listener.accept().receive_message(), kObserverOn);
}

TEST(Connection, IsALocalOneToTheUsualName) {
  const RawListener listener;
  setenv("NOTIFY_SERVER", "localhost", 1);
  EXPECT_EQ(observe(), 0);
  EXPECT_EQ(listener.accept().receive_message(), kObserverOn);
}

TEST(Connection, IsARemoteOneToAnotherAddressOfThisMachine) {
  const RawListener listener("127.0.0.2");
  setenv("NOTIFY_SERVER", "127.0.0.2", 1);
  EXPECT_EQ(observe(), -3);
  const RawPeer server = listener.accept();
  ASSERT_TRUE(server.connected());
  expect_nothing_sent(server);
}

TEST(Connection, IsARemoteOneToAnotherSpellingOfThisMachine) {
  const RawListener listener;
  setenv("NOTIFY_SERVER", "127.1", 1);
  EXPECT_EQ(observe(), -3);
  EXPECT_TRUE(listener.accept().connected());
}

TEST(Connection, RemoteOnesServeEverythingButObservers) {
  const RawListener listener("127.0.0.2");
  Recorder& calls = immortal<Recorder>();
  setenv("NOTIFY_SERVER", "127.0.0.2", 1);
  ASSERT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &calls, 1, "t"), 0);
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  const RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), registration("t", "n", 1));
  server.send_message(notification("t", "n"));
  server.send_message(notification("x", "e", "unicast_error"));
  EXPECT_EQ(calls.calls(2), (Lines{call_of("t", "n"), call_of("x", "e")}));
  EXPECT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);
  EXPECT_EQ(server.receive_message(), unregistration("t", "n"));
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);
}

TEST(Connection, ANumberBehindTheHostIsNoPort) {
  const RawListener listener;
  setenv("NOTIFY_SERVER", "127.0.0.1:5899", 1);
  EXPECT_EQ(say_hello(), -1);
  expect_no_connection(listener);
}

TEST(Connection, AnEmptyHostIsNotTheUsualOne) {
  const RawListener listener;
  setenv("NOTIFY_SERVER", "", 1);
  EXPECT_EQ(say_hello(), -1);
  expect_no_connection(listener);
}

TEST(Connection, AsksForTheServersNameAtEachAttempt) {
  const RawListener listener("127.0.0.3");
  setenv("NOTIFY_SERVER", "127.0.0.2", 1);
  EXPECT_EQ(say_hello(), -1);
  setenv("NOTIFY_SERVER", "127.0.0.3", 1);
  EXPECT_EQ(say_hello(), 0);
  EXPECT_EQ(listener.accept().receive_message(), notification("*", "hello"));
}

TEST(Connection, AsksForTheServersNameAgainAfterALoss) {
  const RawListener first("127.0.0.1");
  const RawListener second("127.0.0.2");
  ASSERT_EQ(say_hello(), 0);
  RawPeer server = first.accept();
  ASSERT_EQ(server.receive_message(), notification("*", "hello"));
  lose(server);
  setenv("NOTIFY_SERVER", "127.0.0.2", 1);
  ASSERT_EQ(say_hello(), 0);
  EXPECT_EQ(second.accept().receive_message(), notification("*", "hello"));
  EXPECT_EQ(observe(), -3);
}

TEST(Connection, IsTriedAgainByTheNextCallAtOnce) {
  EXPECT_EQ(say_hello(), -1);
  EXPECT_EQ(say_hello(), -1);
  const RawListener listener;
  EXPECT_EQ(say_hello(), 0);
  EXPECT_EQ(listener.accept().receive_message(), notification("*", "hello"));
}

TEST(Connection, IsOneForAllCalls) {
  const RawListener listener;
  ASSERT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "t"), 0);
  ASSERT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);
  ASSERT_EQ(observe(), 0);
  ASSERT_EQ(ipcUnregisterObserver(nullptr, nullptr), 0);
  ASSERT_EQ(say_hello(), 0);
  const RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), registration("t", "n", 1));
  EXPECT_EQ(server.receive_message(), unregistration("t", "n"));
  EXPECT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(server.receive_message(), kObserverOff);
  EXPECT_EQ(server.receive_message(), notification("*", "hello"));
  expect_no_connection(listener);
}

TEST(Connection, IsOneForThreadsThatBeginTogether) {
  const RawListener listener;
  std::atomic<int> waiting{0};
  std::deque<Task> tasks;
  for (int i = 0; i < 8; ++i) {
    tasks.emplace_back([&waiting] {
      ++waiting;
      while (waiting < 8) std::this_thread::yield();
      return say_hello();
    });
  }
  for (Task& task : tasks) EXPECT_EQ(task.result(), 0);
  const RawPeer server = listener.accept();
  for (int i = 0; i < 8; ++i) EXPECT_EQ(server.receive_message(), notification("*", "hello"));
  expect_no_connection(listener);
}

TEST(Connection, IsNotMadeByCallsThatNeedNone) {
  const RawListener listener;
  Recorder& calls = immortal<Recorder>();
  EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), -1);
  EXPECT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);
  expect_no_connection(listener);
}

TEST(Connection, IsMadeByAnUnregistration) {
  const RawListener listener;
  EXPECT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);
  EXPECT_EQ(listener.accept().receive_message(), unregistration("t", "n"));
}

TEST(Connection, ThatIsBeingMadeDoesNotHoldUpWorkOnTheTables) {
  // A backlog that is full lets the next peer wait.
  RawListener listener;
  std::deque<RawPeer> crowd;
  for (int i = 0; i < 129; ++i) crowd.push_back(RawPeer::connect());
  Task hello(say_hello);
  ASSERT_TRUE(hello.blocked());
  ipcSetAppID("printer");
  EXPECT_EQ(ipcGetAppID(), "printer");
  EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
  EXPECT_EQ(ipcUnregisterUnicastError(do_nothing, nullptr), 0);
  EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), -1);
  EXPECT_TRUE(hello.running());
  listener.close();  // whoever waits is refused
  EXPECT_EQ(hello.result(), -1);
}

TEST(Connection, LogsThatTheServerIsNotThere) {
  const ChildResult result = run_in_child(kAllLevels, [] { EXPECT_EQ(say_hello(), -1); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(
      client_log(result.err, "error"),
      (Lines{"NFYCL:error|init(): TCP connect() to server '127.0.0.1:5899' failed",
             "NFYCL:error|ipcNotify(): notification server is not running (connect failed)"}));
}

TEST(Connection, LogsTheHostAsItWasNamed) {
  const ChildResult result =
      run_in_child({{"NFY_LOGMASK", "8"}, {"NOTIFY_SERVER", "[127.0.0.2]:17"}},
                   [] { EXPECT_EQ(observe(), -1); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:error|init(): TCP connect() to server '[127.0.0.2]:17:5899' failed",
                   "NFYCL:error|ipcRegisterObserver(): notification server is not running "
                   "(connect failed)"}));
}

TEST(Connection, LogsAHostThatNobodyKnows) {
  const ChildResult result = run_in_child(
      {{"NFY_LOGMASK", "8"}, {"NOTIFY_SERVER", "no.such.host.invalid"}},
      [] { EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "t"), -1); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:error|init(): TCP connect() to server 'no.such.host.invalid:5899' failed",
                   "NFYCL:error|ipcRegisterNotificationCB(): notification server is not running "
                   "(connect failed)"}));
}

TEST(Connection, LogsAnUnregistrationWithoutAServer) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "8"}, {"NOTIFY_SERVER", ""}}, [] {
    EXPECT_EQ(ipcUnregisterNotificationCB("n", do_nothing, nullptr, "t"), -1);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:error|init(): TCP connect() to server ':5899' failed",
                   "NFYCL:error|ipcUnregisterNotificationCB(): notification server is not running "
                   "(connect failed)"}));
}

TEST(Connection, LogsThatItStands) {
  const ChildResult result =
      run_in_child({{"NFY_LOGMASK", "64"}, {"NOTIFY_SERVER", "localhost"}}, [] {
        immortal<RawListener>();
        EXPECT_EQ(observe(), 0);
      });
  EXPECT_EQ(result.status, 0) << result.out;
  const Lines lines = client_log(result.err);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0],
            "NFYCL:info|init(): IPC reader thread with ipc=PTR started for notification server "
            "'localhost:5899'");
}

TEST(Connection, LogsUnderTheClientsFile) {
  const ChildResult result = run_in_child(kAllLevels, [] { EXPECT_EQ(say_hello(), -1); });
  EXPECT_EQ(result.status, 0) << result.out;
  const std::vector<LogLine> lines = parse_log(result.err);
  ASSERT_EQ(lines.size(), 3U);
  for (const LogLine& line : lines) EXPECT_EQ(line.file, "notifyclient.cpp");
}

TEST(Connection, ChannelLayerKeepsItsOwnLogChannel) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "8"}, {"NFY_LOGMASK", "8"}},
                                          [] { EXPECT_EQ(say_hello(), -1); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(
      log_messages(result.err),
      (Lines{"IPC:error|TCP::connect(): failed to connect to 127.0.0.1:5899",
             "NFYCL:error|init(): TCP connect() to server '127.0.0.1:5899' failed",
             "NFYCL:error|ipcNotify(): notification server is not running (connect failed)"}));
}
