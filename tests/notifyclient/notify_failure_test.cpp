// SPDX-License-Identifier: MIT
// A notification to one receiver that cannot even be sent is reported to the unicast
// error callbacks of this process.
#include <gtest/gtest.h>

#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Registers a recorder, calls ipcNotify, and gives what was reported in the end.
Lines reported(int expected, const std::string& to, const std::string& from, unsigned flags = 0,
               const JSObject& parameter = JSObject()) {
  Recorder& calls = immortal<Recorder>();
  EXPECT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  EXPECT_EQ(ipcNotify(to, "n", parameter, flags, from), expected);
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);  // waits for all calls
  return calls.calls();
}

// Says what its parameter is when it is let go.
struct LateReader {
  std::atomic<bool> released{false};
  std::atomic<bool> done{false};
  std::string parameter;

  static void notified(void* data, const std::string&, const std::string&, const std::string&,
                       const JSObject& parameter, unsigned int) {
    auto* const self = static_cast<LateReader*>(data);
    EXPECT_TRUE(eventually([&] { return self->released.load(); }));
    self->parameter = parameter.dump();
    self->done = true;
  }
};

}  // namespace

TEST(NotSent, ForWantOfASenderIsReportedWithoutOne) {
  EXPECT_EQ(reported(-2, "x", ""), Lines{">x:n null 0"});
}

TEST(NotSent, ToThePriorityForWantOfASenderIsReported) {
  EXPECT_EQ(reported(-2, "1", ""), Lines{">1:n null 0"});
}

TEST(NotSent, BroadcastForWantOfASenderIsNotReported) { EXPECT_EQ(reported(-2, "*", ""), Lines{}); }

TEST(NotSent, ForWantOfAServerIsReported) {
  EXPECT_EQ(reported(-1, "x", "f"), Lines{"f>x:n null 0"});
}

TEST(NotSent, ToThePriorityForWantOfAServerIsReported) {
  EXPECT_EQ(reported(-1, "1", "f"), Lines{"f>1:n null 0"});
}

TEST(NotSent, BroadcastForWantOfAServerIsNotReported) {
  EXPECT_EQ(reported(-1, "*", "f"), Lines{});
}

TEST(NotSent, ToAnEmptyNameIsReported) { EXPECT_EQ(reported(-1, "", "f"), Lines{"f>:n null 0"}); }

TEST(NotSent, IsReportedUnderTheApplicationsName) {
  ipcSetAppID("application");
  EXPECT_EQ(reported(-1, "x", ""), Lines{"application>x:n null 0"});
}

TEST(NotSent, IsReportedWithParameterAndFlags) {
  JSObject parameter;
  parameter("a")[1] = "b";
  EXPECT_EQ(reported(-1, "x", "f", 0x80000000U, parameter),
            Lines{R"(f>x:n {"a":[null,"b"]} 2147483648)"});
}

TEST(NotSent, IsReportedToEachCallbackOnce) {
  Recorder& first = immortal<Recorder>();
  Recorder& second = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &first), 0);
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &second), 0);
  EXPECT_EQ(ipcNotify("x", "n", JSObject(), 0, "f"), -1);
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);  // waits for all calls
  EXPECT_EQ(first.calls(), Lines{"f>x:n null 0"});
  EXPECT_EQ(second.calls(), Lines{"f>x:n null 0"});
}

TEST(NotSent, IsReportedToNoOtherKindOfCallback) {
  RawListener listener;
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &calls, 1, "x"), 0);
  ASSERT_EQ(ipcRegisterObserver(Recorder::observed, &calls), 0);
  RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("x", "n", 1));
  ASSERT_EQ(server.receive_message(), kObserverOn);
  listener.close();
  lose(server);
  EXPECT_EQ(reported(-1, "x", "f"), Lines{"f>x:n null 0"});
  EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), -1);  // waits for its calls
  EXPECT_EQ(calls.calls(), Lines{});
}

TEST(NotSent, IsReportedOnAnotherThread) {
  Blocker& blocker = immortal<Blocker>();
  ASSERT_EQ(ipcRegisterUnicastError(Blocker::notified, &blocker), 0);
  EXPECT_EQ(ipcNotify("x", "n", JSObject(), 0, "f"), -1);  // returns although it blocks
  EXPECT_TRUE(blocker.entered());
  blocker.release();
}

TEST(NotSent, IsReportedWithACopyOfTheParameter) {
  LateReader& reader = immortal<LateReader>();
  ASSERT_EQ(ipcRegisterUnicastError(LateReader::notified, &reader), 0);
  {
    JSObject parameter;
    parameter("a") = "as it was";
    EXPECT_EQ(ipcNotify("x", "n", parameter, 0, "f"), -1);
    parameter("a") = "changed";
  }
  reader.released = true;
  ASSERT_TRUE(eventually([&] { return reader.done.load(); }));
  EXPECT_EQ(reader.parameter, R"({"a":"as it was"})");
}

TEST(NotSent, IsNotReportedWhenItWasSent) {
  const RawListener listener;
  EXPECT_EQ(reported(0, "x", "f"), Lines{});
}

TEST(NotSent, IsKeptForNobody) {
  EXPECT_EQ(ipcNotify("x", "early", JSObject(), 0, "f"), -1);
  const RawListener listener;
  EXPECT_EQ(ipcNotify("x", "late", JSObject(), 0, "f"), 0);
  EXPECT_EQ(listener.accept().receive_message(), notification("x", "late"));
}

TEST(NotSent, ForWantOfASenderIsLoggedBehindTheReports) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
    EXPECT_EQ(ipcNotify("x", "n", JSObject(1), 4, ""), -2);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:info|ipcRegisterUnicastError(): unicast error callback registered "
                   "(cb=PTR, data(nil))",
                   "NFYCL:info|ipcNotify(): called with notification='n' (to='x', para='1', "
                   "flags=4, from='')",
                   "NFYCL:note|ipcNotify(): invoke unicast error callback (cb=PTR, data=(nil)) for "
                   "notification 'n' to 'x'",
                   "NFYCL:error|ipcNotify(): no parameter 'from' passed and no appID set for "
                   "notification 'n'"}));
}

TEST(NotSent, ForWantOfAServerIsLoggedBehindTheReports) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "191"}}, [] {  // all but info
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing_else, &some_data), 0);
    EXPECT_EQ(ipcNotify("1", "n", JSObject(), 0, "f"), -1);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(
      client_log(result.err),
      (Lines{"NFYCL:error|init(): TCP connect() to server '127.0.0.1:5899' failed",
             "NFYCL:note|ipcNotify(): invoke unicast error callback (cb=PTR, data=(nil)) for "
             "notification 'n' to '1'",
             "NFYCL:note|ipcNotify(): invoke unicast error callback (cb=PTR, data=PTR) for "
             "notification 'n' to '1'",
             "NFYCL:error|ipcNotify(): notification server is not running (connect failed)"}));
}

TEST(NotSent, BroadcastIsLoggedAlone) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "191"}}, [] {
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
    EXPECT_EQ(ipcNotify("*", "n", JSObject(), 0, ""), -2);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            Lines{"NFYCL:error|ipcNotify(): no parameter 'from' passed and no appID set for "
                  "notification 'n'"});
}
