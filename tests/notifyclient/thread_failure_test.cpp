// SPDX-License-Identifier: MIT
// Invocations: what they carry, and what happens if there is no thread for one.
#include <gtest/gtest.h>

#include "delivery_script.h"
#include "notifyclient/calls.h"
#include "notifyclient/client_state.h"
#include "support/failing_threads.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

std::shared_ptr<NotificationRecord> make_record(NotificationCallback cb, void* data) {
  return std::shared_ptr<NotificationRecord>(new NotificationRecord{{data}, "t", "n", cb, 1});
}

int calls_of(const CallbackRecord& record) {
  const MutexLock lock(table_lock);
  return record.calls;
}

// A call without anything to say.
void invoke(const std::shared_ptr<NotificationRecord>& record) {
  const std::string text;
  table_lock.lock();
  CallHold hold(record);
  table_lock.unlock();
  start_call(std::move(hold), record->cb, {text, text, text, 0}, JSObject());
}

std::atomic<int> channel_in_callback{99};

void look_at_channel(void*, const std::string&, const std::string&, const std::string&,
                     const JSObject&, unsigned int) {
  channel_in_callback = dbg_log_channel();
}

// The log of a child in which a callback for "n" could not be started, and one for
// "other" was started after that.
Lines log_of_failure(void (*fail)(int count)) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "8"}}, [&] {
    Script& script = immortal<Script>();
    Recorder& lost = script.receive_as("t", 1);
    Recorder& calls = script.receive_as("t", 1, "other");
    // A sanitizer sets its threads up by calls of its own, which must not fail: let the
    // reader run first.
    script.send(notification("t", "other"));
    EXPECT_EQ(calls.calls(1), Lines{call_of("t", "other")});
    fail(1);
    script.send(notification("t", "n"));
    script.send(notification("t", "other"));
    EXPECT_EQ(calls.calls(2), (Lines{call_of("t", "other"), call_of("t", "other")}));
    EXPECT_EQ(lost.calls(), Lines{});
  });
  EXPECT_EQ(result.status, 0) << result.out;
  return client_log(result.err);
}

}  // namespace

TEST(Invocation, WithoutAThreadIsLostAlone) {
  EXPECT_EQ(log_of_failure(fail_threads),
            Lines{"NFYCL:error|async_cb(): pthread_create() failed with error=11"});
}

TEST(Invocation, WithoutAttributesIsLostAlone) {
  EXPECT_EQ(log_of_failure(fail_attributes),
            Lines{"NFYCL:error|async_cb(): pthread_attr_init() failed with error=12"});
}

TEST(Invocation, WithoutAThreadReleasesItsRecord) {
  const ChildResult result = run_in_child({}, [] {
    const auto record = make_record(do_nothing, nullptr);
    fail_threads(1);
    invoke(record);
    EXPECT_EQ(calls_of(*record), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Invocation, WithoutAThreadLetsItsRecordLeave) {
  const ChildResult result = run_in_child({}, [] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    fail_threads(1);
    script.send(notification("t", "n"));
    expect_reader_ready(script.server());
    EXPECT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Invocation, OfALocalReportWithoutAThreadIsLost) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "40"}}, [] {  // note and error
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
    fail_threads(1);
    EXPECT_EQ(ipcNotify("x", "n", JSObject(), 0, ""), -2);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:note|ipcNotify(): invoke unicast error callback (cb=PTR, data=(nil)) for "
                   "notification 'n' to 'x'",
                   "NFYCL:error|async_cb(): pthread_create() failed with error=11",
                   "NFYCL:error|ipcNotify(): no parameter 'from' passed and no appID set for "
                   "notification 'n'"}));
}

TEST(Invocation, HoldsTheRecordWhileItRuns) {
  Blocker& blocker = immortal<Blocker>();
  const auto record = make_record(Blocker::notified, &blocker);
  invoke(record);
  invoke(record);
  EXPECT_TRUE(blocker.entered(2));
  EXPECT_EQ(calls_of(*record), 2);
  blocker.release();
  EXPECT_TRUE(eventually([&] { return calls_of(*record) == 0; }));
  EXPECT_EQ(blocker.ended(), 2);
}

TEST(Invocation, StartsOnAThreadThatHasNoLogChannel) {
  Script script;
  ASSERT_EQ(ipcRegisterNotificationCB("n", look_at_channel, nullptr, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  EXPECT_TRUE(eventually([] { return channel_in_callback != 99; }));
  EXPECT_EQ(channel_in_callback, kLogNoChannel);
}

TEST(Invocation, RunsWithoutTheClientsLocks) {
  struct Try {
    static void locks(void* data, const std::string&, const std::string&, const std::string&,
                      const JSObject&, unsigned int) {
      int free = 0;
      for (Mutex* lock :
           {&client.connect_lock, &client.registration_lock, &client.send_lock, &table_lock}) {
        free += eventually([&] { return lock->try_lock(); }) ? 1 : 0;
        lock->unlock();
      }
      *static_cast<std::atomic<int>*>(data) = free;
    }
  };
  Script script;
  auto& free_locks = immortal<std::atomic<int>>();
  ASSERT_EQ(ipcRegisterNotificationCB("n", Try::locks, &free_locks, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  EXPECT_TRUE(eventually([&] { return free_locks == 4; }));
}

TEST(LogChannel, IsTheCallersAgainAfterEachCall) {
  const RawListener listener;
  dbg_log_channel() = kLogNotifyServer;
  ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "");
  ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "t");
  ipcUnregisterNotificationCB("n", do_nothing, nullptr, "t");
  ipcRegisterObserver(ignore_observation, nullptr);
  ipcUnregisterObserver(ignore_observation, nullptr);
  ipcRegisterUnicastError(do_nothing, nullptr);
  ipcUnregisterUnicastError(do_nothing, nullptr);
  ipcNotify("*", "n", JSObject(), 0, "");
  ipcNotify("*", "n", JSObject(), 0, "f");
  ipcSetAppID("f");
  ipcGetAppID();
  EXPECT_EQ(dbg_log_channel(), kLogNotifyServer);
}

TEST(Reader, ThatCannotBeHadGivesTheConnectionUp) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "255"}}, [] {
    Script& script = immortal<Script>();
    fail_threads(1);
    EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "t"), -1);
    EXPECT_TRUE(script.server().at_end());
    script.server().close();
    Recorder& calls = script.receive_as("t", 1);
    script.send(notification("t", "n"));
    EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err, "error"),
            (Lines{"NFYCL:error|init(): pthread_create() failed with error=11",
                   "NFYCL:error|ipcRegisterNotificationCB(): notification server is not running "
                   "(connect failed)"}));
}

TEST(Reader, ThatCannotBeHadAfterALossIsTriedAgain) {
  const ChildResult result = run_in_child({}, [] {
    Script& script = immortal<Script>();
    Recorder& calls = script.receive_as("t", 1);
    lose(script.server());
    fail_threads(1);
    EXPECT_EQ(say("lost"), -1);
    script.server().close();  // which was connected for a moment
    EXPECT_EQ(script.next("register"), registration("t", "n", 1));
    script.send(notification("t", "n"));
    EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Returned, IsLostWithoutAThreadWhereItWouldHaveToWait) {
  const std::string large(9000, 'x');  // more than is sent back without a thread
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "24"}}, [&] {  // error and warning
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    fail_threads(1);
    script.send(notification("u", large));
    script.send(notification("u", "n"));
    EXPECT_EQ(script.next("notify"), notification("u", "n"));
    lose(script.server());
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:error|reader_thread(): pthread_create() failed with error=11",
                   "NFYCL:error|reader_thread(): write_msg() on ipc=PTR failed (ERROR), msg=" +
                       notification("u", large),
                   "NFYCL:warning|reader_thread(): returned notification '" + large +
                       "' back to server, since no matching client",
                   "NFYCL:warning|reader_thread(): returned notification 'n' back to server, since "
                   "no matching client",
                   "NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (EOF), terminate."}));
}
