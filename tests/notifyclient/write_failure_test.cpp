// SPDX-License-Identifier: MIT
// Messages that cannot be written: what the caller is told, and what stays.
#include <gtest/gtest.h>

#include "delivery_script.h"
#include "failing_frames.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The log of a child that runs `body` with a connection.
Lines log_of(const std::function<void(Script&)>& body) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "191"}}, [&] {  // all but info
    Script& script = immortal<Script>();
    EXPECT_EQ(say("first"), 0);
    script.next("notify");
    body(script);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  return client_log(result.err);
}

const std::string kTerminate =
    "NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (EOF), terminate.";

}  // namespace

TEST(FailedWrite, OfARegistrationLeavesNone) {
  Script script;
  script.receive_as("other", 1);
  fail_frames(0);
  EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"), -1);
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("other", "n", 1));
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(FailedWrite, OfAnUpdateLeavesTheOldPriority) {
  Script script;
  ASSERT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"), 0);
  script.next("register");
  fail_frames(0);
  EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 9, "t"), -1);
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
}

TEST(FailedWrite, OfAnUnregistrationLeavesNone) {
  Script script;
  script.receive_as("t", 5);
  fail_frames(0);
  EXPECT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), -1);
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(FailedWrite, OfAPartialUnregistrationLeavesTheRest) {
  Script script;
  script.receive_as("t", 5);
  ASSERT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 3, "t"), 0);
  script.next("register");
  fail_frames(0);
  EXPECT_EQ(ipcUnregisterNotificationCB("n", Recorder::notified, nullptr, "t"), -1);
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 3));
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(FailedWrite, OfAnUnregistrationHasWaitedForTheCallback) {
  Script script;
  Blocker& blocker = script.block_as("t", 5);
  script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered());
  fail_frames(0);
  Task task([] { return ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"); });
  ASSERT_TRUE(task.blocked());
  blocker.release();
  EXPECT_EQ(task.result(), -1);
  EXPECT_EQ(blocker.ended(), 1);
}

TEST(FailedWrite, OfAnObserverLeavesNone) {
  Script script;
  script.receive_as("t", 5);
  fail_frames(0);
  EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), -1);
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 5));
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(FailedWrite, OfTheLastObserversLeavingLeavesNone) {
  Script script;
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  script.next("register_observer");
  fail_frames(0);
  EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), -1);
  lose(script.server());
  ASSERT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(FailedWrite, OfANotificationIsReported) {
  Script script;
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  script.receive_as("t", 5);
  fail_frames(0);
  EXPECT_EQ(ipcNotify("x", "n", JSObject("p"), 6, "f"), -1);
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);  // waits for all calls
  EXPECT_EQ(calls.calls(), Lines{"f>x:n \"p\" 6"});
}

TEST(FailedWrite, OfABroadcastIsNotReported) {
  Script script;
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  script.receive_as("t", 5);
  fail_frames(0);
  EXPECT_EQ(say("n"), -1);
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);  // waits for all calls
  EXPECT_EQ(calls.calls(), Lines{});
}

TEST(FailedWrite, LeavesTheConnectionToItsReader) {
  Script script;
  Recorder& calls = script.receive_as("t", 5);
  fail_frames(0);
  EXPECT_EQ(say("lost"), -1);
  EXPECT_EQ(say("next"), 0);
  EXPECT_EQ(script.next("notify"), notification("*", "next"));
  script.send(notification("t", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
  expect_no_connection(script.listener());
}

TEST(FailedWrite, OfARestoredRegistrationEndsTheAttempt) {
  Script script;
  script.receive_as("a", 1);
  script.receive_as("b", 2);
  script.receive_as("c", 3);
  lose(script.server());
  fail_frames(1);
  EXPECT_EQ(say("after"), -1);
  const RawPeer failed = script.listener().accept();
  EXPECT_EQ(failed.receive_message(), registration("a", "n", 1));
  EXPECT_TRUE(failed.at_end());
}

TEST(FailedWrite, OfARestoredRegistrationIsMadeGoodFromTheFirst) {
  Script script;
  script.receive_as("a", 1);
  script.receive_as("b", 2);
  lose(script.server());
  fail_frames(1);
  EXPECT_EQ(say("lost"), -1);
  ASSERT_TRUE(script.listener().accept().connected());
  EXPECT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("a", "n", 1));
  EXPECT_EQ(script.next("register"), registration("b", "n", 2));
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(FailedWrite, OfARestoredRegistrationStartsNoReader) {
  Script script;
  script.receive_as("a", 1);
  lose(script.server());
  const int threads = thread_count();
  fail_frames(0);
  EXPECT_EQ(say("lost"), -1);
  EXPECT_EQ(thread_count(), threads);
}

TEST(FailedWrite, OfARestoredObserverEndsTheAttempt) {
  Script script;
  script.receive_as("a", 1);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  script.next("register_observer");
  lose(script.server());
  fail_frames(1);
  EXPECT_EQ(say("lost"), -1);
  const RawPeer failed = script.listener().accept();
  EXPECT_EQ(failed.receive_message(), registration("a", "n", 1));
  EXPECT_TRUE(failed.at_end());
  EXPECT_EQ(say("after"), 0);
  EXPECT_EQ(script.next("register"), registration("a", "n", 1));
  script.next("register_observer");
  EXPECT_EQ(script.next("notify"), notification("*", "after"));
}

TEST(FailedWrite, OfAReturnedMessageLosesItAlone) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  fail_frames(0);
  script.send(notification("nobody", "lost"));
  expect_reader_ready(script.server());
  script.send(notification("t", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
}

TEST(FailedWrite, OfARegistrationIsLogged) {
  EXPECT_EQ(log_of([](Script&) {
              fail_frames(0);
              EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"), -1);
            }),
            (Lines{"NFYCL:error|register_client(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       registration("t", "n", 5),
                   "NFYCL:error|ipcRegisterNotificationCB(): server registration failed (to='t', "
                   "notification='n', prio=5)"}));
}

TEST(FailedWrite, OfAnUpdateIsLoggedWithTheHighestPriority) {
  EXPECT_EQ(log_of([](Script&) {
              EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"), 0);
              fail_frames(0);
              EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing_else, nullptr, 3, "t"), -1);
            }),
            (Lines{"NFYCL:error|register_client(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       registration("t", "n", 5),
                   "NFYCL:error|ipcRegisterNotificationCB(): server registration failed (to='t', "
                   "notification='n', prio=5)"}));
}

TEST(FailedWrite, OfAnUnregistrationIsLogged) {
  EXPECT_EQ(log_of([](Script&) {
              fail_frames(0);
              EXPECT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), -1);
            }),
            (Lines{"NFYCL:error|unregister_client(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       unregistration("t", "n"),
                   "NFYCL:error|ipcUnregisterNotificationCB(): server unregistration failed "
                   "(to='t', notification='n')"}));
}

TEST(FailedWrite, OfAPartialUnregistrationIsLogged) {
  EXPECT_EQ(log_of([](Script&) {
              EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"), 0);
              fail_frames(0);
              EXPECT_EQ(ipcUnregisterNotificationCB("n", do_nothing_else, nullptr, "t"), -1);
            }),
            (Lines{"NFYCL:error|register_client(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       registration("t", "n", 5),
                   "NFYCL:error|ipcUnregisterNotificationCB(): server registration priority update "
                   "failed (to='t', notification='n', prio=5)"}));
}

TEST(FailedWrite, OfAnObserverIsLogged) {
  EXPECT_EQ(log_of([](Script&) {
              fail_frames(0);
              EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), -1);
            }),
            Lines{"NFYCL:error|ipcRegisterObserver(): write_msg() on ipc=PTR failed (ERROR), "
                  "msg={\"type\":\"register_observer\"}"});
}

TEST(FailedWrite, OfAnObserversLeavingIsLogged) {
  EXPECT_EQ(log_of([](Script&) {
              fail_frames(0);
              EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), -1);
            }),
            Lines{"NFYCL:error|ipcUnregisterObserver(): write_msg() on ipc=PTR failed (ERROR), "
                  "msg={\"type\":\"unregister_observer\"}"});
}

TEST(FailedWrite, OfANotificationIsLoggedBehindTheReports) {
  EXPECT_EQ(log_of([](Script&) {
              EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
              fail_frames(0);
              EXPECT_EQ(ipcNotify("x", "n", JSObject(), 0, "f"), -1);
            }),
            (Lines{"NFYCL:note|ipcNotify(): invoke unicast error callback (cb=PTR, data=(nil)) for "
                   "notification 'n' to 'x'",
                   "NFYCL:error|ipcNotify(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       notification("x", "n")}));
}

TEST(FailedWrite, OfARestoredRegistrationIsLogged) {
  EXPECT_EQ(log_of([](Script& script) {
              EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, &some_data, -5, "t"), 0);
              script.next("register");
              lose(script.server());
              fail_frames(0);
              EXPECT_EQ(say("after"), -1);
            }),
            (Lines{"NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (EOF), terminate.",
                   "NFYCL:error|register_client(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       registration("t", "n", -5),
                   "NFYCL:error|init(): error while transmitting old registration (to='t', "
                   "notification='n', cb=PTR, data=PTR, prio=-5)",
                   "NFYCL:error|ipcNotify(): notification server is not running (connect "
                   "failed)"}));
}

TEST(FailedWrite, OfARestoredObserverIsLogged) {
  EXPECT_EQ(log_of([](Script& script) {
              EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
              script.next("register_observer");
              lose(script.server());
              fail_frames(0);
              EXPECT_EQ(say("after"), -1);
            }),
            (Lines{"NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (EOF), terminate.",
                   "NFYCL:error|init(): write_msg() on ipc=PTR failed (ERROR), "
                   "msg={\"type\":\"register_observer\"}",
                   "NFYCL:error|ipcNotify(): notification server is not running (connect "
                   "failed)"}));
}

TEST(FailedWrite, OfAReturnedMessageIsLoggedAsReturnedAllTheSame) {
  EXPECT_EQ(log_of([](Script& script) {
              fail_frames(0);
              script.send(notification("t", "n"));
              expect_reader_ready(script.server());
              lose(script.server());  // after which the reader has written its lines
            }),
            (Lines{"NFYCL:error|reader_thread(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       notification("t", "n"),
                   "NFYCL:note|reader_thread(): returned notification 'n' back to server, since no "
                   "client registered",
                   "NFYCL:note|reader_thread(): returned notification 'unknown' back to server, "
                   "since no client registered",
                   kTerminate}));
}

TEST(FailedWrite, OfAMessageThatNobodyMatchesIsLoggedAsReturnedAllTheSame) {
  EXPECT_EQ(log_of([](Script& script) {
              script.receive_as("t", 1);
              fail_frames(0);
              script.send(notification("other", "n"));
              expect_reader_ready(script.server());
              lose(script.server());  // after which the reader has written its lines
            }),
            (Lines{"NFYCL:error|reader_thread(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       notification("other", "n"),
                   "NFYCL:warning|reader_thread(): returned notification 'n' back to server, since "
                   "no matching client",
                   "NFYCL:warning|reader_thread(): returned notification 'unknown' back to server, "
                   "since no matching client",
                   kTerminate}));
}
