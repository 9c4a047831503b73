// SPDX-License-Identifier: MIT
// Which of the registered callbacks a message from the server calls, and with what.
#include <gtest/gtest.h>

#include <climits>

#include "delivery_script.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(Unicast, CallsTheHighestPriority) {
  Script script;
  Recorder& low = script.receive_as("t", 1);
  Recorder& high = script.receive_as("t", 2);
  Recorder& middle = script.receive_as("t", 1);
  script.send(notification("t", "n"));
  script.settle({"t"});
  EXPECT_EQ(high.calls(), Lines{call_of("t", "n")});
  EXPECT_EQ(low.calls(), Lines{});
  EXPECT_EQ(middle.calls(), Lines{});
}

TEST(Unicast, CallsTheOneRegisteredLastOfEqualPriorities) {
  Script script;
  Recorder& first = script.receive_as("t", 2);
  Recorder& last = script.receive_as("t", 2);
  script.send(notification("t", "n"));
  script.settle({"t"});
  EXPECT_EQ(last.calls(), Lines{call_of("t", "n")});
  EXPECT_EQ(first.calls(), Lines{});
}

TEST(Unicast, AnUpdatedRegistrationKeepsItsPlaceAmongEquals) {
  Script script;
  Recorder& first = script.receive_as("t", 1);
  Recorder& last = script.receive_as("t", 2);
  ASSERT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &first, 2, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  script.settle({"t"});
  EXPECT_EQ(last.calls(), Lines{call_of("t", "n")});
  EXPECT_EQ(first.calls(), Lines{});
}

TEST(Unicast, GoesByTheUpdatedPriority) {
  Script script;
  Recorder& first = script.receive_as("t", 1);
  Recorder& last = script.receive_as("t", 2);
  ASSERT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &first, 3, "t"), 0);
  script.next("register");
  script.send(notification("t", "n"));
  script.settle({"t"});
  EXPECT_EQ(first.calls(), Lines{call_of("t", "n")});
  EXPECT_EQ(last.calls(), Lines{});
}

TEST(Unicast, ComparesNegativePriorities) {
  Script script;
  Recorder& lower = script.receive_as("t", -9);
  Recorder& higher = script.receive_as("t", -5);
  Recorder& lowest = script.receive_as("t", INT_MIN);
  script.send(notification("t", "n"));
  script.settle({"t"});
  EXPECT_EQ(higher.calls(), Lines{call_of("t", "n")});
  EXPECT_EQ(lower.calls(), Lines{});
  EXPECT_EQ(lowest.calls(), Lines{});
}

TEST(Unicast, CallsTheLowestPriorityThereIs) {
  Script script;
  Recorder& only = script.receive_as("t", INT_MIN);
  script.send(notification("t", "n"));
  EXPECT_EQ(only.calls(1), Lines{call_of("t", "n")});
}

TEST(Unicast, CallsNobodyOfAnotherName) {
  Script script;
  Recorder& wanted = script.receive_as("t", 1);
  Recorder& other = script.receive_as("other", 9);
  script.send(notification("t", "n"));
  script.settle({"t", "other"});
  EXPECT_EQ(wanted.calls(), Lines{call_of("t", "n")});
  EXPECT_EQ(other.calls(), Lines{});
}

TEST(Unicast, CallsNobodyOfAnotherNotification) {
  Script script;
  Recorder& wanted = script.receive_as("t", 1, "n");
  Recorder& other = script.receive_as("t", 9, "nn");
  script.send(notification("t", "n"));
  script.settle({"t"}, "n");
  script.settle({"t"}, "nn");
  EXPECT_EQ(wanted.calls(), Lines{call_of("t", "n")});
  EXPECT_EQ(other.calls(), Lines{});
}

TEST(Unicast, TakesNoPatternsForNames) {
  Script script;
  Recorder& pattern = script.receive_as("t*", 1, "n*");
  script.send(notification("tx", "nx"));
  EXPECT_EQ(script.next("notify"), notification("tx", "nx"));
  script.settle({"t*"}, "n*");
  EXPECT_EQ(pattern.calls(), Lines{});
}

TEST(UnicastToThePriority, CallsTheHighestWhateverItsName) {
  Script script;
  Recorder& high = script.receive_as("a", 2);
  Recorder& low = script.receive_as("b", 1);
  script.send(notification("1", "n"));
  script.settle({"a", "b"});
  EXPECT_EQ(high.calls(), Lines{call_of("1", "n")});
  EXPECT_EQ(low.calls(), Lines{});
}

TEST(UnicastToThePriority, CallsTheOneRegisteredLastOfEqualPriorities) {
  Script script;
  Recorder& first = script.receive_as("a", 2);
  Recorder& last = script.receive_as("b", 2);
  script.send(notification("1", "n"));
  script.settle({"a", "b"});
  EXPECT_EQ(last.calls(), Lines{call_of("1", "n")});
  EXPECT_EQ(first.calls(), Lines{});
}

TEST(UnicastToThePriority, CallsNobodyOfAnotherNotification) {
  Script script;
  Recorder& other = script.receive_as("1", 9, "other");
  script.send(notification("1", "n"));
  EXPECT_EQ(script.next("notify"), notification("1", "n"));
  script.settle({"1"}, "other");
  EXPECT_EQ(other.calls(), Lines{});
}

TEST(Broadcast, CallsEverybodyWhateverNameAndPriority) {
  Script script;
  Recorder& first = script.receive_as("a", INT_MIN);
  Recorder& second = script.receive_as("b", 0);
  Recorder& third = script.receive_as("b", 7);
  script.send(notification("*", "n"));
  script.settle({"a", "b"});
  EXPECT_EQ(first.calls(), Lines{call_of("*", "n")});
  EXPECT_EQ(second.calls(), Lines{call_of("*", "n")});
  EXPECT_EQ(third.calls(), Lines{call_of("*", "n")});
}

TEST(Broadcast, GivesTheWholeParameterToEverybody) {
  Script script;
  Recorder& first = script.receive_as("a", 1);
  Recorder& last = script.receive_as("b", 1);
  script.send(R"({"flags":0,"from":"f","notification":"n","parameter":{"a":[1,"two"]},)"
              R"("to":"*","type":"notify"})");
  EXPECT_EQ(first.calls(1), Lines{R"(f>*:n {"a":[1,"two"]} 0)"});
  EXPECT_EQ(last.calls(1), Lines{R"(f>*:n {"a":[1,"two"]} 0)"});
}

TEST(Broadcast, CallsNobodyOfAnotherNotification) {
  Script script;
  Recorder& other = script.receive_as("a", 1, "other");
  script.send(notification("*", "n"));
  script.settle({"a"}, "other");
  EXPECT_EQ(other.calls(), Lines{});
}

TEST(Broadcast, WithoutATakerIsDropped) {
  Script script;
  script.receive_as("a", 1, "other");
  script.send(notification("*", "n"));
  expect_reader_ready(script.server());  // and nothing came back ahead of that
}

TEST(Delivered, CarriesEverythingThatWasSent) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  script.send(R"({"flags":7,"from":"printer","notification":"n","parameter":{"a":[1,"two",null]},)"
              R"("reference":1234,"to":"t","type":"notify"})");
  EXPECT_EQ(calls.calls(1), Lines{R"(printer>t:n {"a":[1,"two",null]} 7)"});
}

TEST(Delivered, KeepsAllBitsOfTheFlags) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  script.send(
      R"({"flags":-2147483647,"from":"f","notification":"n","parameter":1,"to":"t","type":"notify"})");
  EXPECT_EQ(calls.calls(1), Lines{"f>t:n 1 2147483649"});
}

TEST(Delivered, FindsTheTypeAmongOtherKeysAndSpace) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  script.send("  {\"type\" : \"notify\",\n \"extra\":{}, \"to\":\"t\", \"notification\":\"n\"} ");
  EXPECT_EQ(calls.calls(1), Lines{"null>t:n null 0"});
}

TEST(Delivered, ReadsNumbersAsNames) {
  Script script;
  Recorder& calls = script.receive_as("12", 1, "34");
  script.send(R"({"flags":"5","from":6,"notification":34,"to":12,"type":"notify"})");
  EXPECT_EQ(calls.calls(1), Lines{"6>12:34 null 5"});
}

TEST(Delivered, TakesANumberOneForThePriority) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  script.send(R"({"notification":"n","to":1,"type":"notify"})");
  EXPECT_EQ(calls.calls(1), Lines{"null>1:n null 0"});
}

TEST(Delivered, WithoutADestinationIsForTheNameNull) {
  Script script;
  Recorder& calls = script.receive_as("null", 1);
  script.send(R"({"notification":"n","type":"notify"})");
  EXPECT_EQ(calls.calls(1), Lines{"null>null:n null 0"});
}

TEST(UnicastError, CallsEverybodyWhateverTheNotification) {
  Script script;
  Recorder& first = immortal<Recorder>();
  Recorder& second = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &first), 0);
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &second), 0);
  Recorder& receiver = script.receive_as("t", 1);
  script.send(R"({"flags":3,"from":"me","notification":"n","parameter":[1],"reference":9,"to":"t",)"
              R"("type":"unicast_error"})");
  script.settle({"t"});
  EXPECT_EQ(first.calls(1), Lines{"me>t:n [1] 3"});
  EXPECT_EQ(second.calls(1), Lines{"me>t:n [1] 3"});
  EXPECT_EQ(receiver.calls(), Lines{});
}

TEST(UnicastError, WithoutACallbackIsDropped) {
  Script script;
  script.receive_as("t", 1);
  script.send(notification("t", "n", "unicast_error"));
  expect_reader_ready(script.server());
}

TEST(Observation, CallsEveryObserver) {
  Script script;
  Recorder& first = immortal<Recorder>();
  Recorder& second = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterObserver(Recorder::observed, &first), 0);
  ASSERT_EQ(ipcRegisterObserver(Recorder::observed, &second), 0);
  script.next("register_observer");
  script.next("register_observer");
  script.send(R"({"flags":-1,"from":"a","notification":"n","to":"b","type":"notify_observer"})");
  EXPECT_EQ(first.calls(1), Lines{"a>b:n 4294967295"});
  EXPECT_EQ(second.calls(1), Lines{"a>b:n 4294967295"});
}

TEST(Observation, CallsNoReceiver) {
  Script script;
  Recorder& receiver = script.receive_as("t", 1);
  script.send(observation("t", "n"));
  script.settle({"t"});
  EXPECT_EQ(receiver.calls(), Lines{});
}

TEST(Observation, WithoutAnObserverIsDropped) {
  Script script;
  script.receive_as("t", 1);
  script.send(observation("t", "n"));
  expect_reader_ready(script.server());
}

TEST(Ignored, AreOtherTypes) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  for (const char* type : {"register", "unregister", "register_observer", "unregister_observer",
                           "Notify", "notify ", "", "null"}) {
    script.send(notification("t", "n", type));
  }
  script.settle({"t"});
  EXPECT_EQ(calls.calls(), Lines{});
}

TEST(Ignored, IsWhatHasNoType) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  script.send(R"({"notification":"n","to":"t"})");
  script.settle({"t"});
  EXPECT_EQ(calls.calls(), Lines{});
}

TEST(Ignored, IsWhatIsNoObject) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  for (const char* text : {"", "null", "17", "\"notify\"", "[\"notify\"]", "{", "}", "\xff\xfe",
                           "{\"type\"", "{\"type\":", "[{\"type\":\"notify\"}]"}) {
    script.send(text);
  }
  script.settle({"t"});
  EXPECT_EQ(calls.calls(), Lines{});
}

TEST(Ignored, IsTheTagOfAFrame) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  script.server().send(frame(kNotifyFrame, 0xFFFFFFFF, notification("t", "n")));
  EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
}

TEST(Ignored, IsGarbageAheadOfAFrame) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  script.server().send("garbage" + frame(kNotifyFrame, 0, notification("t", "n")));
  EXPECT_EQ(calls.calls(1), Lines{call_of("t", "n")});
}
