// SPDX-License-Identifier: MIT
// The name under which a process sends and receives.
#include <gtest/gtest.h>

#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(AppId, IsEmptyUntilItIsSet) {
  const RawListener listener;
  EXPECT_EQ(ipcGetAppID(), "");
  expect_no_connection(listener);
}

TEST(AppId, IsTheOneSetLast) {
  ipcSetAppID("first");
  EXPECT_EQ(ipcGetAppID(), "first");
  ipcSetAppID("second");
  EXPECT_EQ(ipcGetAppID(), "second");
  ipcSetAppID("");
  EXPECT_EQ(ipcGetAppID(), "");
}

TEST(AppId, IsACopy) {
  std::string id = "printer";
  ipcSetAppID(id);
  id[0] = 'X';
  EXPECT_EQ(ipcGetAppID(), "printer");
}

TEST(AppId, SettingItMakesNoConnection) {
  const RawListener listener;
  ipcSetAppID("printer");
  expect_no_connection(listener);
}

TEST(AppId, SettingItSendsNothing) {
  const RawListener listener;
  ASSERT_EQ(ipcNotify("*", "first", JSObject(), 0, "f"), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), notification("*", "first"));
  ipcSetAppID("printer");
  expect_nothing_sent(server);
}

TEST(AppId, IsNeverLogged) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "-1"}, {"NFY_LOGMASK", "-1"}}, [] {
    ipcSetAppID("printer");
    EXPECT_EQ(ipcGetAppID(), "printer");
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(result.err, "");
}

TEST(AppId, IsTheNameOfARegistrationWithoutOne) {
  const RawListener listener;
  ipcSetAppID("display");
  EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, ""), 0);
  EXPECT_EQ(listener.accept().receive_message(), registration("display", "n", 5));
}

TEST(AppId, IsNoNameIfItIsEmpty) {
  const RawListener listener;
  ipcSetAppID("");
  EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, ""), -2);
  EXPECT_EQ(ipcUnregisterNotificationCB("n", do_nothing, nullptr, ""), -2);
  EXPECT_EQ(ipcNotify("*", "n", JSObject(), 0, ""), -2);
  expect_no_connection(listener);
}

TEST(AppId, ALaterOneDoesNotRenameRegistrations) {
  const RawListener listener;
  Recorder& calls = immortal<Recorder>();
  ipcSetAppID("old");
  ASSERT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &calls, 5, ""), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("old", "n", 5));
  ipcSetAppID("new");
  server.send_message(notification("old", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("old", "n")});
}

TEST(AppId, ALaterOneDoesNotRenameWhatIsRestored) {
  const RawListener listener;
  ipcSetAppID("old");
  ASSERT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, ""), 0);
  RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("old", "n", 5));
  ipcSetAppID("new");
  lose(server);
  ASSERT_EQ(ipcNotify("*", "marker", JSObject(), 0, "f"), 0);
  EXPECT_EQ(listener.accept().receive_message(), registration("old", "n", 5));
}

TEST(AppId, AnUnregistrationWithoutANameMeansTheNewOne) {
  const RawListener listener;
  Recorder& calls = immortal<Recorder>();
  ipcSetAppID("old");
  ASSERT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &calls, 5, ""), kNotifyDone);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("old", "n", 5));
  ipcSetAppID("new");
  EXPECT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, ""), kNotifyDone);
  EXPECT_EQ(server.receive_message(), unregistration("new", "n"));
  server.send_message(notification("old", "n"));
  EXPECT_EQ(calls.calls(1), Lines{call_of("old", "n")});
}
