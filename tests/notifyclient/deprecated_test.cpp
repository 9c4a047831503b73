// SPDX-License-Identifier: MIT
// Unregistering by registering a null callback: still done, and complained about
// whatever the log's settings are.
#include <gtest/gtest.h>

#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

std::string complaint(const std::string& function) {
  return "Using " + function + "() for unregistering is deprecated\n";
}

const Environment kSilent = {};

}  // namespace

TEST(DeprecatedForm, OfANotificationRemovesTheGroup) {
  const RawListener listener;
  ASSERT_EQ(ipcRegisterNotificationCB("n", do_nothing, &some_data, 1, "t"), 0);
  ASSERT_EQ(ipcRegisterNotificationCB("n", do_nothing_else, nullptr, 2, "t"), 0);
  EXPECT_EQ(ipcRegisterNotificationCB("n", nullptr, &some_data, 99, "t"), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("t", "n", 1));
  ASSERT_EQ(server.receive_message(), registration("t", "n", 2));
  EXPECT_EQ(server.receive_message(), unregistration("t", "n"));
}

TEST(DeprecatedForm, OfANotificationGivesTheResultOfUnregistering) {
  EXPECT_EQ(ipcRegisterNotificationCB("n", nullptr, nullptr, 1, ""), -2);
  EXPECT_EQ(ipcRegisterNotificationCB("n", nullptr, nullptr, 1, "t"), -1);
}

TEST(DeprecatedForm, OfAnObserverRemovesAllOfThem) {
  const RawListener listener;
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation_too, nullptr), 0);
  EXPECT_EQ(ipcRegisterObserver(nullptr, &some_data), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  ASSERT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(server.receive_message(), kObserverOff);
}

TEST(DeprecatedForm, OfAnObserverMakesNoConnection) {
  const RawListener listener;
  EXPECT_EQ(ipcRegisterObserver(nullptr, nullptr), -1);
  expect_no_connection(listener);
}

TEST(DeprecatedForm, OfAUnicastErrorRemovesAllOfThem) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "32"}}, [] {
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing_else, nullptr), 0);
    EXPECT_EQ(ipcRegisterUnicastError(nullptr, &some_data), 0);
    EXPECT_EQ(ipcNotify("x", "n", JSObject(), 0, ""), -2);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err), Lines{});
}

TEST(DeprecatedForm, OfANotificationIsComplainedOfWithoutALog) {
  const ChildResult result = run_in_child(
      kSilent, [] { EXPECT_EQ(ipcRegisterNotificationCB("n", nullptr, nullptr, 1, "t"), -1); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(without_missing_library(result.err), complaint("ipcRegisterNotificationCB"));
}

TEST(DeprecatedForm, OfAnObserverIsComplainedOfWithoutALog) {
  const ChildResult result =
      run_in_child(kSilent, [] { EXPECT_EQ(ipcRegisterObserver(nullptr, nullptr), -1); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(without_missing_library(result.err), complaint("ipcRegisterObserver"));
}

TEST(DeprecatedForm, OfAUnicastErrorIsComplainedOfWithoutALog) {
  const ChildResult result =
      run_in_child(kSilent, [] { EXPECT_EQ(ipcRegisterUnicastError(nullptr, nullptr), 0); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(without_missing_library(result.err), complaint("ipcRegisterUnicastError"));
}

TEST(DeprecatedForm, IsComplainedOfUnderAnEmptyMask) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "0"}, {"IPC_LOGMASK", "0"}}, [] {
    ipcRegisterNotificationCB("n", nullptr, nullptr, 1, "t");
    ipcRegisterObserver(nullptr, nullptr);
    ipcRegisterUnicastError(nullptr, nullptr);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  for (const char* function :
       {"ipcRegisterNotificationCB", "ipcRegisterObserver", "ipcRegisterUnicastError"}) {
    EXPECT_NE(result.err.find(complaint(function)), std::string::npos) << result.err;
  }
}

TEST(DeprecatedForm, IsLoggedAsAWarning) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "16"}}, [] {
    ipcRegisterNotificationCB("n", nullptr, nullptr, 1, "t");
    ipcRegisterObserver(nullptr, nullptr);
    ipcRegisterUnicastError(nullptr, nullptr);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(
      client_log(result.err),
      (Lines{"NFYCL:warning|ipcRegisterNotificationCB(): usage for unregistering is deprecated",
             "NFYCL:warning|ipcRegisterObserver(): usage for unregistering is deprecated",
             "NFYCL:warning|ipcRegisterUnicastError(): usage for unregistering is deprecated"}));
}

TEST(DeprecatedForm, IsComplainedOfAheadOfTheLog) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "16"}}, [] {
    ipcUnregisterUnicastError(nullptr, nullptr);
    ipcRegisterUnicastError(nullptr, nullptr);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  const std::size_t plain = result.err.find(complaint("ipcRegisterUnicastError"));
  const std::size_t logged = result.err.find("NFYCL:warning|");
  ASSERT_NE(plain, std::string::npos);
  ASSERT_NE(logged, std::string::npos);
  EXPECT_LT(plain, logged);
}
