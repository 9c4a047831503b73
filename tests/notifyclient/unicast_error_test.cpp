// SPDX-License-Identifier: MIT
// Registering and unregistering unicast error callbacks, which needs no server: what
// cannot be sent is reported to those that are registered.
#include <gtest/gtest.h>

#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Fails for want of a name, and so calls every unicast error callback.
void fail_to_notify() { EXPECT_EQ(ipcNotify("x", "n", JSObject(), 0, ""), -2); }

const std::string kFailed = ">x:n null 0";

}  // namespace

TEST(UnicastError, IsRegisteredWithoutAServer) {
  Recorder& calls = immortal<Recorder>();
  EXPECT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  fail_to_notify();
  EXPECT_EQ(calls.calls(1), Lines{kFailed});
}

TEST(UnicastError, IsNoMatterOfTheServers) {
  const RawListener listener;
  ASSERT_EQ(ipcNotify("*", "first", JSObject(), 0, "f"), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), notification("*", "first"));
  ASSERT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
  ASSERT_EQ(ipcUnregisterUnicastError(do_nothing, nullptr), 0);
  expect_nothing_sent(server);
}

TEST(UnicastError, IsAddedOnce) {
  Recorder& calls = immortal<Recorder>();
  EXPECT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  EXPECT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  fail_to_notify();
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);  // waits for the calls
  EXPECT_EQ(calls.calls(), Lines{kFailed});
}

TEST(UnicastError, WithOtherDataIsAnotherOne) {
  Recorder& first = immortal<Recorder>();
  Recorder& second = immortal<Recorder>();
  EXPECT_EQ(ipcRegisterUnicastError(Recorder::notified, &first), 0);
  EXPECT_EQ(ipcRegisterUnicastError(Recorder::notified, &second), 0);
  fail_to_notify();
  EXPECT_EQ(first.calls(1), Lines{kFailed});
  EXPECT_EQ(second.calls(1), Lines{kFailed});
}

TEST(UnicastError, WithDataThatOneAloneLeaves) {
  Recorder& first = immortal<Recorder>();
  Recorder& second = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &first), 0);
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &second), 0);
  EXPECT_EQ(ipcUnregisterUnicastError(Recorder::notified, &second), 0);
  fail_to_notify();
  EXPECT_EQ(first.calls(1), Lines{kFailed});
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);  // waits for all calls
  EXPECT_EQ(second.calls(), Lines{});
}

TEST(UnicastError, WithoutDataAllOfTheCallbackLeave) {
  Recorder& first = immortal<Recorder>();
  Blocker& other = immortal<Blocker>();
  other.release();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &first), 0);
  ASSERT_EQ(ipcRegisterUnicastError(Blocker::notified, &other), 0);
  EXPECT_EQ(ipcUnregisterUnicastError(Recorder::notified, nullptr), 0);
  fail_to_notify();
  EXPECT_TRUE(other.entered());
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, nullptr), 0);  // waits for all calls
  EXPECT_EQ(first.calls(), Lines{});
}

TEST(UnicastError, WithoutACallbackAllLeave) {
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  ASSERT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
  EXPECT_EQ(ipcUnregisterUnicastError(nullptr, &some_data), 0);
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "32"}}, fail_to_notify);
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err), Lines{});
}

TEST(UnicastError, LeavingWithNoneThereIsDone) {
  EXPECT_EQ(ipcUnregisterUnicastError(do_nothing, nullptr), 0);
}

TEST(UnicastError, LeavesWhileTheServerIsAway) {
  RawListener listener;
  ASSERT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
  ASSERT_EQ(ipcNotify("*", "first", JSObject(), 0, "f"), 0);
  RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), notification("*", "first"));
  listener.close();
  lose(server);
  EXPECT_EQ(ipcUnregisterUnicastError(do_nothing, nullptr), 0);
}

TEST(UnicastError, LogsWhatItDid) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, &some_data), 0);
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing_else, &some_data), 0);
    EXPECT_EQ(ipcUnregisterUnicastError(do_nothing, nullptr), 0);
    EXPECT_EQ(ipcUnregisterUnicastError(do_nothing_else, &some_data), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(
      client_log(result.err),
      (Lines{"NFYCL:info|ipcRegisterUnicastError(): unicast error callback registered (cb=PTR, "
             "data(nil))",
             "NFYCL:note|ipcRegisterUnicastError(): unicast error callback already registered "
             "(cb=PTR, data(nil))",
             "NFYCL:info|ipcRegisterUnicastError(): unicast error callback registered (cb=PTR, "
             "dataPTR)",
             "NFYCL:info|ipcRegisterUnicastError(): unicast error callback registered (cb=PTR, "
             "dataPTR)",
             "NFYCL:info|ipcUnregisterUnicastError(): unregistered unicast error callback (cb=PTR, "
             "data(nil))",
             "NFYCL:info|ipcUnregisterUnicastError(): unregistered unicast error callback (cb=PTR, "
             "data(nil))",
             "NFYCL:info|ipcUnregisterUnicastError(): unregistered unicast error callback (cb=PTR, "
             "dataPTR)"}));
}
