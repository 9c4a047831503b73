// SPDX-License-Identifier: MIT
// Sending notifications.
#include <gtest/gtest.h>

#include <map>

#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The text of one notification as the server gets it.
std::string sent(const std::string& to, const std::string& name, const JSObject& parameter,
                 unsigned int flags, const std::string& from) {
  const RawListener listener;
  EXPECT_EQ(ipcNotify(to, name, parameter, flags, from), 0);
  return listener.accept().receive_message();
}

JSObject parsed(const char* text) {
  JSObject value;
  value.parse(text);
  return value;
}

}  // namespace

TEST(Notify, SendsEverythingThatItWasGiven) {
  EXPECT_EQ(sent("display", "paper.out", parsed(R"({"tray":2})"), 5, "printer"),
            R"({"flags":5,"from":"printer","notification":"paper.out","parameter":{"tray":2},)"
            R"("to":"display","type":"notify"})");
}

TEST(Notify, SendsANullParameterToo) {
  EXPECT_EQ(
      sent("t", "n", JSObject(), 0, "f"),
      R"({"flags":0,"from":"f","notification":"n","parameter":null,"to":"t","type":"notify"})");
}

TEST(Notify, NeedsNothingButAReceiverAndAName) {
  const RawListener listener;
  ipcSetAppID("f");
  EXPECT_EQ(ipcNotify("t", "n"), 0);
  EXPECT_EQ(listener.accept().receive_message(), notification("t", "n"));
}

TEST(Notify, SendsAnyKindOfParameter) {
  const RawListener listener;
  for (const char* text : {"17", "\"text\"", "true", "[1,[2],{\"a\":{}}]", "1.5"}) {
    ASSERT_EQ(ipcNotify("t", "n", parsed(text), 0, "f"), 0);
  }
  const RawPeer server = listener.accept();
  for (const char* text : {"17", "\"text\"", "true", "[1,[2],{\"a\":{}}]", "1.5"}) {
    EXPECT_EQ(server.receive_message(), R"({"flags":0,"from":"f","notification":"n","parameter":)" +
                                            std::string(text) + R"(,"to":"t","type":"notify"})");
  }
}

TEST(Notify, LeavesTheParameterAsItWas) {
  const RawListener listener;
  const JSObject parameter = parsed(R"({"a":[1]})");
  ASSERT_EQ(ipcNotify("t", "n", parameter, 0, "f"), 0);
  EXPECT_EQ(parameter.dump(), R"({"a":[1]})");
}

TEST(Notify, SendsTheTopBitOfTheFlagsAsANegativeNumber) {
  EXPECT_EQ(
      sent("t", "n", JSObject(), 0x80000001U, "f"),
      R"({"flags":-2147483647,"from":"f","notification":"n","parameter":null,"to":"t","type":"notify"})");
}

TEST(Notify, FlagsComeBackAsTheSameBits) {
  const RawListener listener;
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &calls, 1, "t"), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("t", "n", 1));
  ASSERT_EQ(ipcNotify("t", "n", JSObject(), 0xFFFFFFFFU, "f"), 0);
  server.send_message(server.receive_message());
  EXPECT_EQ(calls.calls(1), Lines{"f>t:n null 4294967295"});
}

TEST(Notify, SendsTheApplicationsNameIfItIsGivenNone) {
  ipcSetAppID("application");
  EXPECT_EQ(
      sent("t", "n", JSObject(), 0, ""),
      R"({"flags":0,"from":"application","notification":"n","parameter":null,"to":"t","type":"notify"})");
}

TEST(Notify, PrefersTheSenderThatItIsGiven) {
  ipcSetAppID("application");
  EXPECT_EQ(sent("t", "n", JSObject(), 0, "f"), notification("t", "n"));
}

TEST(Notify, SendsAnEmptyDestinationAsItIs) {
  ipcSetAppID("application");
  EXPECT_EQ(sent("", "n", JSObject(), 0, "f"), notification("", "n"));
}

TEST(Notify, SendsTheDestinationsWithAMeaningAsTheyAre) {
  const RawListener listener;
  ASSERT_EQ(ipcNotify("*", "n", JSObject(), 0, "f"), 0);
  ASSERT_EQ(ipcNotify("1", "n", JSObject(), 0, "f"), 0);
  const RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), notification("*", "n"));
  EXPECT_EQ(server.receive_message(), notification("1", "n"));
}

TEST(Notify, WritesNamesAsJson) {
  EXPECT_EQ(sent("t\"", "n\\", JSObject(), 0, "f\n"),
            R"({"flags":0,"from":"f\n","notification":"n\\","parameter":null,"to":"t\"",)"
            R"("type":"notify"})");
}

TEST(Notify, IsOneFrame) {
  const RawListener listener;
  ASSERT_EQ(ipcNotify("t", "n", JSObject(), 0, "f"), 0);
  const std::string expected = frame(0x4E4659, 0, notification("t", "n"));
  const RawPeer server = listener.accept();
  EXPECT_EQ(server.receive(expected.size()), expected);
  EXPECT_TRUE(server.silent(50));
}

TEST(Notify, NeedsASender) {
  const RawListener listener;
  EXPECT_EQ(ipcNotify("t", "n", JSObject(), 0, ""), -2);
  EXPECT_EQ(ipcNotify("*", "n", JSObject(), 0, ""), -2);
  expect_no_connection(listener);
}

TEST(Notify, NeedsAServer) { EXPECT_EQ(ipcNotify("t", "n", JSObject(), 0, "f"), -1); }

TEST(Notify, MissesTheSenderBeforeItMissesTheServer) {
  EXPECT_EQ(ipcNotify("t", "n", JSObject(), 0, ""), -2);
}

TEST(Notify, GoesToTheServerEvenToOneself) {
  const RawListener listener;
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &calls, 1, "t"), 0);
  ASSERT_EQ(ipcNotify("t", "n", JSObject(), 0, "f"), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("t", "n", 1));
  EXPECT_EQ(server.receive_message(), notification("t", "n"));
  ASSERT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);  // waits for all calls
  EXPECT_EQ(calls.calls(), Lines{});
}

TEST(Notify, SendsMoreThanAReaderTakes) {
  const RawListener listener;
  const std::string much(600000, 'x');
  Task task([&] { return ipcNotify("t", "n", JSObject(much), 0, "f"); });
  const RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), R"({"flags":0,"from":"f","notification":"n","parameter":")" +
                                          much + R"(","to":"t","type":"notify"})");
  EXPECT_EQ(task.result(), 0);
}

TEST(Notify, WaitsWhileTheServerDoesNotRead) {
  const RawListener listener;
  Task task([] { return ipcNotify("t", "n", JSObject(std::string(8U << 20, 'x')), 0, "f"); });
  const RawPeer server = listener.accept();
  EXPECT_TRUE(task.blocked());
  EXPECT_GT(server.receive_message().size(), 8U << 20);
  EXPECT_EQ(task.result(), 0);
}

TEST(Notify, KeepsTheOrderOfOneThread) {
  const RawListener listener;
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(ipcNotify("t", std::to_string(i), JSObject(), 0, "f"), 0);
  }
  const RawPeer server = listener.accept();
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(server.receive_message(), notification("t", std::to_string(i)));
  }
}

TEST(Notify, KeepsMessagesOfDifferentThreadsApart) {
  constexpr int kThreads = 4;
  constexpr int kMessages = 100;
  const RawListener listener;
  std::deque<Task> tasks;
  for (int t = 0; t < kThreads; ++t) {
    tasks.emplace_back([t] {
      const std::string name(static_cast<std::size_t>(t + 1) * 1000, static_cast<char>('a' + t));
      int failed = 0;
      for (int i = 0; i < kMessages; ++i) failed += ipcNotify("t", name, JSObject(), 0, "f");
      return failed;
    });
  }
  const RawPeer server = listener.accept();
  std::map<std::string, int> received;
  for (int i = 0; i < kThreads * kMessages; ++i) ++received[server.receive_message()];
  for (Task& task : tasks) EXPECT_EQ(task.result(), 0);
  ASSERT_EQ(received.size(), 4U);
  for (const auto& [text, count] : received) {
    EXPECT_EQ(count, kMessages) << text.substr(0, 80);
  }
}

TEST(Notify, LogsWhatItWasGivenAndWhatItSent) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    immortal<RawListener>();
    ipcSetAppID("app");
    EXPECT_EQ(ipcNotify("t", "n", parsed(R"({"a":[1]})"), 0xFFFFFFFFU, ""), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:info|ipcNotify(): called with notification='n' (to='t', "
                   "para='{\"a\":[1]}', flags=4294967295, from='')",
                   "NFYCL:info|init(): IPC reader thread with ipc=PTR started for notification "
                   "server '127.0.0.1:5899'",
                   "NFYCL:info|ipcNotify(): notification sent successfully, "
                   "msg='{\"flags\":-1,\"from\":\"app\",\"notification\":\"n\",\"parameter\":"
                   "{\"a\":[1]},\"to\":\"t\",\"type\":\"notify\"}'"}));
}

TEST(Notify, LogsNothingOfASuccessBelowInfo) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "63"}}, [] {
    immortal<RawListener>();
    EXPECT_EQ(ipcNotify("t", "n", JSObject(), 0, "f"), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err), Lines{});
}
