// SPDX-License-Identifier: MIT
// Calls that run out of memory half-way: they throw, and leave nothing locked or held.
#include <gtest/gtest.h>

#include <new>
#include <string>

#include "script.h"
#include "support/allocations.h"
#include "support/server_process.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Too long for a string to hold without an allocation.
const std::string kLong(100, 'n');

// Calls with the first allocation failing, then with the second, and so on until there are
// no more. Gives the number of failures.
template <typename Call>
int fail_each_allocation(const Call& call) {
  for (int number = 1;; ++number) {
    fail_allocation(number);
    try {
      call();
    } catch (const std::bad_alloc&) {
      continue;
    }
    fail_allocation(0);
    return number - 1;
  }
}

}  // namespace

TEST(ShortOfMemory, AUnicastErrorCallbackIsRegisteredOnce) {
  Recorder& calls = immortal<Recorder>();
  EXPECT_GT(fail_each_allocation([&] { ipcRegisterUnicastError(Recorder::notified, &calls); }), 0);
  EXPECT_EQ(ipcNotify("x", "n"), -2);
  EXPECT_EQ(ipcUnregisterUnicastError(Recorder::notified, &calls), 0);
  EXPECT_EQ(calls.calls().size(), 1U);
}

TEST(ShortOfMemory, AFailureIsReportedByTheCallThatGetsSoFar) {
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  int result = 0;
  EXPECT_GT(
      fail_each_allocation([&] { result = ipcNotify(kLong, kLong, JSObject(kLong), 0, kLong); }),
      5);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(ipcUnregisterUnicastError(Recorder::notified, &calls), 0);  // waits for what is held
  EXPECT_EQ(calls.calls().size(), 1U);
}

TEST(ShortOfMemory, AConnectionIsMadeByTheCallThatGetsSoFar) {
  const ServerProcess server;
  int result = -1;
  EXPECT_GT(fail_each_allocation([&] { result = ipcNotify("*", kLong, JSObject(), 0, kLong); }), 5);
  EXPECT_EQ(result, 0);
}

TEST(ShortOfMemory, ARegistrationIsMadeByTheCallThatGetsSoFar) {
  const ServerProcess server;
  Recorder& calls = immortal<Recorder>();
  int result = -1;
  EXPECT_GT(fail_each_allocation([&] {
              result = ipcRegisterNotificationCB(kLong, Recorder::notified, &calls, 1, kLong);
            }),
            5);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(ipcNotify(kLong, kLong, JSObject(), 0, "sender"), 0);
  EXPECT_EQ(calls.calls(1).size(), 1U);
  EXPECT_GT(fail_each_allocation([&] {
              result = ipcUnregisterNotificationCB(kLong, Recorder::notified, &calls, kLong);
            }),
            0);
  EXPECT_EQ(result, 0);
}

TEST(ShortOfMemory, AnObserverIsRegisteredByTheCallThatGetsSoFar) {
  const ServerProcess server;
  Recorder& calls = immortal<Recorder>();
  int result = -1;
  EXPECT_GT(fail_each_allocation([&] { result = ipcRegisterObserver(Recorder::observed, &calls); }),
            0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(ipcUnregisterObserver(Recorder::observed, &calls), 0);
}
