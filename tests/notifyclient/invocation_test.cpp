// SPDX-License-Identifier: MIT
// Callbacks run on threads of their own: what holds up what, and what they may do.
#include <gtest/gtest.h>

#include <set>

#include "delivery_script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

int leave(const std::string& to, const std::string& name = "n") {
  return ipcUnregisterNotificationCB(name, nullptr, nullptr, to);
}

// Does `work` in a callback, whose result is kept.
struct Worker {
  std::function<int()> work;
  std::atomic<bool> done{false};
  std::atomic<int> result{99};

  static void notified(void* data, const std::string&, const std::string&, const std::string&,
                       const JSObject&, unsigned int) {
    auto* const worker = static_cast<Worker*>(data);
    worker->result = worker->work();
    worker->done = true;
  }
};

// The result of `work` as a callback of the name "worker".
int run_in_callback(Script& script, std::function<int()> work) {
  Worker& worker = immortal<Worker>();
  worker.work = std::move(work);
  EXPECT_EQ(ipcRegisterNotificationCB("work", Worker::notified, &worker, 1, "worker"), 0);
  script.next("register");
  script.send(notification("worker", "work"));
  EXPECT_TRUE(eventually([&] { return worker.done.load(); }));
  return worker.result;
}

// Keeps the threads that it was called on until all of them are in it.
struct ThreadIds {
  std::mutex mutex;
  std::multiset<pid_t> ids;

  static void notified(void* data, const std::string&, const std::string&, const std::string&,
                       const JSObject&, unsigned int) {
    auto* const self = static_cast<ThreadIds*>(data);
    {
      const std::lock_guard<std::mutex> lock(self->mutex);
      self->ids.insert(gettid());
    }
    EXPECT_TRUE(eventually([&] { return self->count() == 3; }));
  }

  std::size_t count() {
    const std::lock_guard<std::mutex> lock(mutex);
    return ids.size();
  }
};

}  // namespace

TEST(Callback, ThatBlocksDoesNotHoldUpOthers) {
  Script script;
  Blocker& blocker = script.block_as("a", 1);
  Recorder& calls = script.receive_as("b", 1);
  script.send(notification("a", "n"));
  ASSERT_TRUE(blocker.entered());
  script.send(notification("b", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("b", "n")});
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
}

TEST(Callback, RunsSeveralTimesAtOnce) {
  Script script;
  Blocker& blocker = script.block_as("t", 1);
  script.send(notification("t", "n"));
  script.send(notification("t", "n"));
  script.send(notification("t", "n"));
  EXPECT_TRUE(blocker.entered(3));
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
}

TEST(Callback, HasAThreadOfItsOwnForEachCall) {
  Script script;
  ThreadIds& threads = immortal<ThreadIds>();
  ASSERT_EQ(ipcRegisterNotificationCB("n", ThreadIds::notified, &threads, 1, "t"), 0);
  script.next("register");
  for (int i = 0; i < 3; ++i) script.send(notification("t", "n"));
  ASSERT_TRUE(eventually([&] { return threads.count() == 3; }));
  const std::lock_guard<std::mutex> lock(threads.mutex);
  EXPECT_EQ(std::set<pid_t>(threads.ids.begin(), threads.ids.end()).size(), 3U);
  EXPECT_EQ(threads.ids.count(gettid()), 0U);
}

TEST(Callback, LeavesNoThreadBehind) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  const int threads = thread_count();
  for (int i = 0; i < 20; ++i) script.send(notification("t", "n"));
  EXPECT_EQ(calls.calls(20).size(), 20U);
  EXPECT_TRUE(eventually([&] { return thread_count() == threads; }));
}

TEST(Unregistering, WaitsForTheRunningCallback) {
  Script script;
  Blocker& blocker = script.block_as("t", 1);
  script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return leave("t"); });
  EXPECT_TRUE(unregistration_task.blocked());
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
  EXPECT_EQ(unregistration_task.result(), 0);
  EXPECT_EQ(blocker.ended(), 1);
}

TEST(Unregistering, WaitsForAllRunningCallsOfTheCallback) {
  Script script;
  Blocker& blocker = script.block_as("t", 1);
  for (int i = 0; i < 5; ++i) script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered(5));
  Task unregistration_task([] { return leave("t"); });
  EXPECT_TRUE(unregistration_task.blocked());
  blocker.release();
  EXPECT_EQ(unregistration_task.result(), 0);
  EXPECT_EQ(blocker.ended(), 5);
}

TEST(Unregistering, TellsTheServerOnlyWhenTheCallbackHasEnded) {
  Script script;
  Blocker& blocker = script.block_as("t", 1);
  script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return leave("t"); });
  ASSERT_TRUE(unregistration_task.blocked());
  expect_nothing_sent(script.server());
  blocker.release();
  EXPECT_EQ(script.next("unregister"), unregistration("t", "n"));
}

TEST(Unregistering, DoesNotWaitForOtherCallbacks) {
  Script script;
  Blocker& blocker = script.block_as("a", 1);
  script.receive_as("b", 1);
  script.send(notification("a", "n"));
  ASSERT_TRUE(blocker.entered());
  EXPECT_EQ(leave("b"), 0);
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
}

TEST(Unregistering, AnObserverWaitsForItsRunningCallback) {
  Script script;
  Blocker& blocker = immortal<Blocker>();
  ASSERT_EQ(ipcRegisterObserver(Blocker::observed, &blocker), 0);
  script.next("register_observer");
  script.send(observation("t", "n"));
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return ipcUnregisterObserver(nullptr, nullptr); });
  EXPECT_TRUE(unregistration_task.blocked());
  blocker.release();
  EXPECT_EQ(unregistration_task.result(), 0);
  EXPECT_EQ(blocker.ended(), 1);
}

TEST(Unregistering, AUnicastErrorWaitsForItsRunningCallback) {
  Blocker& blocker = immortal<Blocker>();
  ASSERT_EQ(ipcRegisterUnicastError(Blocker::notified, &blocker), 0);
  ASSERT_EQ(ipcNotify("x", "n", JSObject(), 0, ""), -2);
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return ipcUnregisterUnicastError(nullptr, nullptr); });
  EXPECT_TRUE(unregistration_task.blocked());
  blocker.release();
  EXPECT_EQ(unregistration_task.result(), 0);
  EXPECT_EQ(blocker.ended(), 1);
}

TEST(Unregistering, HoldsUpNobodyWhileItWaits) {
  Script script;
  Blocker& blocker = script.block_as("a", 1);
  Recorder& calls = script.receive_as("b", 1);
  script.send(notification("a", "n"));
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return leave("a"); });
  ASSERT_TRUE(unregistration_task.blocked());
  script.send(notification("b", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("b", "n")});
  EXPECT_EQ(ipcRegisterNotificationCB("other", do_nothing, nullptr, 1, "c"), 0);
  EXPECT_EQ(script.next("register"), registration("c", "other", 1));
  EXPECT_TRUE(unregistration_task.running());
  blocker.release();
  EXPECT_EQ(unregistration_task.result(), 0);
  EXPECT_EQ(script.next("unregister"), unregistration("a", "n"));
}

TEST(Unregistering, HasTheServerToldOnceAMessageComesForWhatIsGone) {
  Script script;
  Blocker& blocker = script.block_as("a", 1);
  script.receive_as("b", 1);
  script.send(notification("a", "n"));
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return leave("a"); });
  ASSERT_TRUE(unregistration_task.blocked());
  script.send(notification("a", "n"));
  EXPECT_EQ(script.next("unregister"), unregistration("a", "n"));
  EXPECT_EQ(script.next("notify"), notification("a", "n"));
  EXPECT_TRUE(unregistration_task.running());
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
  EXPECT_EQ(unregistration_task.result(), 0);
}

TEST(Unregistering, OfTheLastOneHasTheServerToldOnceABroadcastComes) {
  Script script;
  Blocker& blocker = script.block_as("a", 1);
  script.send(notification("a", "n"));
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return leave("a"); });
  ASSERT_TRUE(unregistration_task.blocked());
  script.send(notification("*", "n"));
  EXPECT_EQ(script.next("unregister"), unregistration("a", "n"));
  EXPECT_EQ(script.next("notify"), notification("*", "n"));
  blocker.release();
  EXPECT_EQ(unregistration_task.result(), 0);
}

TEST(Unregistering, DoesNotHoldUpSendersThatNameThemselves) {
  Script script;
  Blocker& blocker = script.block_as("a", 1);
  script.send(notification("a", "n"));
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return leave("a"); });
  ASSERT_TRUE(unregistration_task.blocked());
  EXPECT_EQ(ipcNotify("x", "n", JSObject(), 0, "f"), 0);
  EXPECT_EQ(script.next("notify"), notification("x", "n"));
  EXPECT_TRUE(unregistration_task.running());
  blocker.release();
}

TEST(Unregistering, DoesNotHoldUpSendersThatNeedTheApplicationsName) {
  Script script;
  ipcSetAppID("f");
  Blocker& blocker = script.block_as("a", 1);
  script.send(notification("a", "n"));
  ASSERT_TRUE(blocker.entered());
  Task unregistration_task([] { return leave("a"); });
  ASSERT_TRUE(unregistration_task.blocked());
  EXPECT_EQ(ipcGetAppID(), "f");
  EXPECT_EQ(ipcNotify("x", "n", JSObject(), 0, ""), 0);
  EXPECT_EQ(script.next("notify"), notification("x", "n"));
  EXPECT_TRUE(unregistration_task.running());
  blocker.release();
}

TEST(Unregistering, WaitsForACallbackThatRepliesUnderTheApplicationsName) {
  Script script;
  ipcSetAppID("f");
  Worker& worker = immortal<Worker>();
  std::atomic<bool> entered{false};
  std::atomic<bool> leaving{false};
  worker.work = [&] {
    entered = true;
    EXPECT_TRUE(eventually([&] { return leaving.load(); }));
    return ipcNotify("x", "n", JSObject(), 0, "");
  };
  ASSERT_EQ(ipcRegisterNotificationCB("n", Worker::notified, &worker, 1, "a"), 0);
  script.next("register");
  script.send(notification("a", "n"));
  ASSERT_TRUE(eventually([&] { return entered.load(); }));
  Task unregistration_task([] { return leave("a"); });
  EXPECT_TRUE(unregistration_task.blocked());
  leaving = true;
  EXPECT_EQ(unregistration_task.result(), 0);
  EXPECT_EQ(worker.result, 0);
  EXPECT_EQ(script.next("notify"), notification("x", "n"));
  EXPECT_EQ(script.next("unregister"), unregistration("a", "n"));
}

TEST(Updating, WaitsForTheRunningCallback) {
  Script script;
  Blocker& blocker = script.block_as("t", 1);
  script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered());
  Task update([&] { return ipcRegisterNotificationCB("n", Blocker::notified, &blocker, 2, "t"); });
  EXPECT_EQ(script.next("register"), registration("t", "n", 2));
  EXPECT_TRUE(update.blocked());
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
  EXPECT_EQ(update.result(), 0);
  EXPECT_EQ(blocker.ended(), 1);
}

TEST(Registering, ForTheSameGroupDoesNotWaitForTheRunningCallback) {
  Script script;
  Blocker& blocker = script.block_as("t", 1);
  script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered());
  EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 2, "t"), 0);
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
}

TEST(InACallback, SendingWorks) {
  Script script;
  EXPECT_EQ(run_in_callback(script, [] { return ipcNotify("x", "n", JSObject(), 0, "f"); }), 0);
  EXPECT_EQ(script.next("notify"), notification("x", "n"));
}

TEST(InACallback, SendingUnderTheApplicationsNameWorks) {
  Script script;
  ipcSetAppID("f");
  EXPECT_EQ(run_in_callback(script, [] { return ipcNotify("x", "n", JSObject(), 0, ""); }), 0);
  EXPECT_EQ(script.next("notify"), notification("x", "n"));
}

TEST(InACallback, RegisteringAnotherWorks) {
  Script script;
  EXPECT_EQ(run_in_callback(
                script,
                [] { return ipcRegisterNotificationCB("work", do_nothing, nullptr, 5, "worker"); }),
            0);
  EXPECT_EQ(script.next("register"), registration("worker", "work", 5));
}

TEST(InACallback, UnregisteringAnotherWorks) {
  Script script;
  script.receive_as("t", 1);
  EXPECT_EQ(run_in_callback(script, [] { return leave("t"); }), 0);
  EXPECT_EQ(script.next("unregister"), unregistration("t", "n"));
}

TEST(InACallback, ObserversComeAndGo) {
  Script script;
  EXPECT_EQ(run_in_callback(script,
                            [] {
                              return ipcRegisterObserver(ignore_observation, nullptr) * 10 +
                                     ipcUnregisterObserver(ignore_observation, nullptr);
                            }),
            0);
  script.next("register_observer");
  script.next("unregister_observer");
}

TEST(InACallback, SendingStartsTheNextCallback) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  EXPECT_EQ(run_in_callback(script,
                            [&] {
                              const int result = ipcNotify("t", "n", JSObject(), 0, "f");
                              script.send(script.next("notify"));
                              return result + static_cast<int>(calls.calls(1).size());
                            }),
            1);
}

TEST(InACallback, ObserversRegisterThemselvesAgain) {
  struct Observer {
    static void observed(void* data, const std::string&, const std::string&, const std::string&,
                         unsigned int) {
      Recorder::notified(data, "result", "", "", ipcRegisterObserver(observed, data), 0);
    }
  };
  Script script;
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterObserver(Observer::observed, &calls), 0);
  script.next("register_observer");
  script.send(observation("t", "n"));
  EXPECT_EQ(calls.calls(1), Lines{"result>: 0 0"});
}

TEST(InACallback, UnregisteringItselfDoesNotWaitForItself) {
  Script script;
  Worker& worker = immortal<Worker>();
  worker.work = [] { return leave("t"); };
  ASSERT_EQ(ipcRegisterNotificationCB("n", Worker::notified, &worker, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  EXPECT_EQ(script.next("unregister"), unregistration("t", "n"));
  EXPECT_TRUE(eventually([&] { return worker.done.load(); }));
  EXPECT_EQ(worker.result, 0);
}

TEST(InACallback, UnregisteringItselfWaitsForItsOtherCalls) {
  Script script;
  Worker& worker = immortal<Worker>();
  std::atomic<bool> first{true};
  std::atomic<bool> released{false};
  worker.work = [&] {
    if (first.exchange(false)) {
      EXPECT_TRUE(eventually([&] { return released.load(); }));
      return 1;
    }
    return leave("t");
  };
  ASSERT_EQ(ipcRegisterNotificationCB("n", Worker::notified, &worker, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  EXPECT_TRUE(eventually([&] { return !first; }));
  script.send(notification("t", "n"));
  EXPECT_TRUE(script.server().silent(200));
  EXPECT_FALSE(worker.done);
  released = true;
  EXPECT_EQ(script.next("unregister"), unregistration("t", "n"));
  EXPECT_TRUE(eventually([&] { return worker.result == 0; }));
}

TEST(InACallback, UpdatingItselfDoesNotWaitForItself) {
  Script script;
  Worker& worker = immortal<Worker>();
  worker.work = [&worker] {
    return ipcRegisterNotificationCB("n", Worker::notified, &worker, 2, "t");
  };
  ASSERT_EQ(ipcRegisterNotificationCB("n", Worker::notified, &worker, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  EXPECT_EQ(script.next("register"), registration("t", "n", 2));
  EXPECT_TRUE(eventually([&] { return worker.done.load(); }));
  EXPECT_EQ(worker.result, 0);
}

// Each of them may free the data after it.
TEST(Unregistering, WaitsForCallsThatAnotherUnregistrationWaitsFor) {
  Script script;
  Blocker& blocker = script.block_as("t", 1);
  script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered());
  Task first([] { return leave("t"); });
  ASSERT_TRUE(first.blocked());
  Task second([] { return leave("t"); });
  EXPECT_TRUE(second.blocked());
  EXPECT_EQ(blocker.ended(), 0);
  blocker.release();
  EXPECT_EQ(first.result(), 0);
  EXPECT_EQ(second.result(), 0);
}

TEST(Unregistering, AUnicastErrorWaitsForCallsThatAnotherOneWaitsFor) {
  Blocker& blocker = immortal<Blocker>();
  ASSERT_EQ(ipcRegisterUnicastError(Blocker::notified, &blocker), 0);
  EXPECT_EQ(ipcNotify("x", "n"), -2);
  ASSERT_TRUE(blocker.entered());
  Task first([] { return ipcUnregisterUnicastError(nullptr); });
  ASSERT_TRUE(first.blocked());
  Task second([] { return ipcUnregisterUnicastError(nullptr); });
  EXPECT_TRUE(second.blocked());
  blocker.release();
  EXPECT_EQ(first.result(), 0);
  EXPECT_EQ(second.result(), 0);
}

TEST(Unregistering, WaitsForCallsThatAnUpdateWaitsFor) {
  Script script;
  Blocker& blocker = script.block_as("t", 1);
  script.send(notification("t", "n"));
  ASSERT_TRUE(blocker.entered());
  Task update([&] { return ipcRegisterNotificationCB("n", Blocker::notified, &blocker, 2, "t"); });
  EXPECT_EQ(script.next("register"), registration("t", "n", 2));
  ASSERT_TRUE(update.blocked());
  Task leaving([] { return leave("t"); });
  EXPECT_TRUE(leaving.blocked());
  blocker.release();
  EXPECT_EQ(update.result(), 0);
  EXPECT_EQ(leaving.result(), 0);
}

TEST(Unregistering, WaitsForACallThatHasUpdatedItself) {
  Script script;
  Worker& worker = immortal<Worker>();
  std::atomic<bool> updated{false};
  std::atomic<bool> released{false};
  worker.work = [&] {
    const int result = ipcRegisterNotificationCB("n", Worker::notified, &worker, 2, "t");
    updated = true;
    EXPECT_TRUE(eventually([&] { return released.load(); }));
    return result;
  };
  ASSERT_EQ(ipcRegisterNotificationCB("n", Worker::notified, &worker, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  ASSERT_TRUE(eventually([&] { return updated.load(); }));
  Task leaving([] { return leave("t"); });
  EXPECT_TRUE(leaving.blocked());
  released = true;
  EXPECT_EQ(leaving.result(), 0);
  EXPECT_EQ(worker.result, 0);
}

TEST(InACallback, UnregisteringAllDoesNotWaitForOthersThatDoSo) {
  Script script;
  Worker& worker = immortal<Worker>();
  std::atomic<int> entered{0};
  std::atomic<int> left{0};
  worker.work = [&] {
    ++entered;
    EXPECT_TRUE(eventually([&] { return entered == 2; }));
    const int result = leave("t");
    ++left;
    return result;
  };
  ASSERT_EQ(ipcRegisterNotificationCB("n", Worker::notified, &worker, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  script.send(notification("t", "n"));
  EXPECT_TRUE(eventually([&] { return left == 2; }));
}

// Calls that register themselves until it works, while the server is gone in between.
TEST(InACallback, UpdatingItselfAgainAndAgainWaitsForNoOtherThatDoesSo) {
  Script script;
  Worker& worker = immortal<Worker>();
  std::atomic<int> begun{0};
  std::atomic<int> ended{0};
  std::atomic<bool> go{false};
  worker.work = [&] {
    const int number = ++begun;
    EXPECT_TRUE(eventually([&] { return go.load(); }));
    while (ipcRegisterNotificationCB("n", Worker::notified, &worker, number + 1, "t") != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return ++ended;
  };
  ASSERT_EQ(ipcRegisterNotificationCB("n", Worker::notified, &worker, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  ASSERT_TRUE(eventually([&] { return begun == 1; }));
  Task sending([] { return ipcNotify("x", "much", JSObject(std::string(8U << 20, 'x')), 0, "f"); });
  ASSERT_TRUE(sending.blocked());
  go = true;  // the first one's new record is in the table, and its message waits
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  script.send(notification("t", "n"));
  ASSERT_TRUE(eventually([&] { return begun == 2; }));
  script.server().reset();
  EXPECT_EQ(sending.result(), -1);
  EXPECT_TRUE(eventually([&] {
    static_cast<void>(script.server().receive_message(10));
    return ended == 2;
  }));
}

// The thread of a call may have code of the application's to run when the call has ended.
TEST(Unregistering, WorksAtTheEndOfACallsThread) {
  struct AtEnd {
    ~AtEnd() { result() = leave("t"); }
    static std::atomic<int>& result() {
      static std::atomic<int> value{99};
      return value;
    }
    static void notified(void*, const std::string&, const std::string&, const std::string&,
                         const JSObject&, unsigned int) {
      thread_local AtEnd at_end;
      static_cast<void>(at_end);
    }
  };
  Script script;
  ASSERT_EQ(ipcRegisterNotificationCB("n", AtEnd::notified, nullptr, 1, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  EXPECT_EQ(script.next("unregister"), unregistration("t", "n"));
  EXPECT_TRUE(eventually([] { return AtEnd::result() == 0; }));
}
