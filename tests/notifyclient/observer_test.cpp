// SPDX-License-Identifier: MIT
// Registering and unregistering observers.
#include <gtest/gtest.h>

#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

int unused() { return ipcNotify("*", "marker", JSObject(), 0, "f"); }

// The number of observers' messages that a new connection is told.
int restored_observers(const RawListener& listener, RawPeer& server) {
  lose(server);
  EXPECT_EQ(unused(), 0);
  server = listener.accept();
  int count = 0;
  while (server.receive_message() == kObserverOn) ++count;
  return count;
}

}  // namespace

TEST(Observer, FirstOneTellsTheServer) {
  const RawListener listener;
  EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  EXPECT_EQ(listener.accept().receive_message(), R"({"type":"register_observer"})");
}

TEST(Observer, EachNewOneTellsTheServer) {
  const RawListener listener;
  EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  EXPECT_EQ(ipcRegisterObserver(ignore_observation, &first_data), 0);
  EXPECT_EQ(ipcRegisterObserver(ignore_observation_too, nullptr), 0);
  const RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(server.receive_message(), kObserverOn);
}

TEST(Observer, ThatIsThereAlreadyIsDoneInSilence) {
  const RawListener listener;
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, &first_data), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(ipcRegisterObserver(ignore_observation, &first_data), 0);
  expect_nothing_sent(server);
}

TEST(Observer, ThatIsThereAlreadyIsNotAddedAgain) {
  const RawListener listener;
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterObserver(Recorder::observed, &calls), 0);
  ASSERT_EQ(ipcRegisterObserver(Recorder::observed, &calls), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  server.send_message(observation("t", "n"));
  expect_reader_ready(server);
  ASSERT_EQ(ipcUnregisterObserver(nullptr, nullptr), 0);
  EXPECT_EQ(calls.calls(), Lines{"f>t:n 0"});
}

TEST(Observer, WithoutAServerIsNotRegistered) {
  EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), -1);
  const RawListener listener;
  ASSERT_EQ(unused(), 0);
  EXPECT_EQ(listener.accept().receive_message(), notification("*", "marker"));
}

TEST(Observer, OfARemoteClientWithoutAServerHasNoConnection) {
  setenv("NOTIFY_SERVER", "127.0.0.2", 1);
  EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), -1);
}

TEST(Observer, OfARemoteClientIsNotAdded) {
  const RawListener remote("127.0.0.2");
  setenv("NOTIFY_SERVER", "127.0.0.2", 1);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), -3);
  RawPeer server = remote.accept();
  EXPECT_EQ(restored_observers(remote, server), 0);
}

TEST(Observer, LeavingOthersTellsNothing) {
  const RawListener listener;
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation_too, nullptr), 0);
  RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  ASSERT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(ipcUnregisterObserver(ignore_observation, nullptr), 0);
  expect_nothing_sent(server);
  EXPECT_EQ(restored_observers(listener, server), 1);
}

TEST(Observer, LeavingLastTellsTheServer) {
  const RawListener listener;
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(ipcUnregisterObserver(ignore_observation, nullptr), 0);
  EXPECT_EQ(server.receive_message(), R"({"type":"unregister_observer"})");
  EXPECT_EQ(restored_observers(listener, server), 0);
}

TEST(Observer, LeavingWithNoneThereTellsTheServer) {
  const RawListener listener;
  ASSERT_EQ(unused(), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), notification("*", "marker"));
  EXPECT_EQ(ipcUnregisterObserver(ignore_observation, nullptr), 0);
  EXPECT_EQ(server.receive_message(), kObserverOff);
}

TEST(Observer, WithoutACallbackAllLeave) {
  const RawListener listener;
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, &first_data), 0);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation_too, nullptr), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  ASSERT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(ipcUnregisterObserver(nullptr, &second_data), 0);
  EXPECT_EQ(server.receive_message(), kObserverOff);
}

TEST(Observer, WithoutDataAllOfTheCallbackLeave) {
  const RawListener listener;
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, &first_data), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  ASSERT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(ipcUnregisterObserver(ignore_observation, nullptr), 0);
  EXPECT_EQ(server.receive_message(), kObserverOff);
}

TEST(Observer, WithDataThatOneAloneLeaves) {
  const RawListener listener;
  Recorder& first = immortal<Recorder>();
  Recorder& second = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterObserver(Recorder::observed, &first), 0);
  ASSERT_EQ(ipcRegisterObserver(Recorder::observed, &second), 0);
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  ASSERT_EQ(server.receive_message(), kObserverOn);
  EXPECT_EQ(ipcUnregisterObserver(Recorder::observed, &first), 0);
  server.send_message(observation("t", "n"));
  EXPECT_EQ(second.calls(1), Lines{"f>t:n 0"});
  EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), 0);  // waits for all calls
  EXPECT_EQ(first.calls(), Lines{});
}

TEST(Observer, LeavesWithoutAServerToo) {
  RawListener listener;
  ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
  RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), kObserverOn);
  listener.close();
  lose(server);
  EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), -1);
  const RawListener again;
  ASSERT_EQ(unused(), 0);
  EXPECT_EQ(again.accept().receive_message(), notification("*", "marker"));
}

TEST(Observer, LogsWhatItDid) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    immortal<RawListener>();
    ASSERT_EQ(unused(), 0);
    ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
    ASSERT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
    ASSERT_EQ(ipcRegisterObserver(ignore_observation, &first_data), 0);
    ASSERT_EQ(ipcUnregisterObserver(ignore_observation, nullptr), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  Lines lines = client_log(result.err);
  ASSERT_GE(lines.size(), 3U);
  lines.erase(lines.begin(), lines.begin() + 3);  // the connection and the first message
  EXPECT_EQ(
      lines,
      (Lines{"NFYCL:info|ipcRegisterObserver(): observer callback registered (cb=PTR, data(nil))",
             "NFYCL:note|ipcRegisterObserver(): observer callback already registered (cb=PTR, "
             "data(nil))",
             "NFYCL:info|ipcRegisterObserver(): observer callback registered (cb=PTR, dataPTR)",
             "NFYCL:info|ipcUnregisterObserver(): observer callback unregistered (cb=PTR, "
             "data(nil))",
             "NFYCL:info|ipcUnregisterObserver(): observer callback unregistered (cb=PTR, "
             "data(nil))",
             "NFYCL:info|ipcRegisterObserver(): client unregistered in server"}));
}

TEST(Observer, LogsTheArgumentsOfTheCallThatRemoves) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "64"}}, [] {
    immortal<RawListener>();
    ASSERT_EQ(ipcRegisterObserver(ignore_observation, &first_data), 0);
    ASSERT_EQ(ipcUnregisterObserver(nullptr, nullptr), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  const Lines lines = client_log(result.err);
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[2],
            "NFYCL:info|ipcUnregisterObserver(): observer callback unregistered (cb=(nil), "
            "data(nil))");
}

TEST(Observer, LogsThatItIsNotForRemoteClients) {
  const ChildResult result =
      run_in_child({{"NFY_LOGMASK", "8"}, {"NOTIFY_SERVER", "127.0.0.2"}}, [] {
        const RawListener& listener = *new RawListener("127.0.0.2");
        EXPECT_TRUE(listener.port() != 0);
        EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), -3);
      });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            Lines{"NFYCL:error|ipcRegisterObserver(): not permitted to register an observer as "
                  "remote client"});
}

TEST(Observer, LogsThatThereWasNoConnectionToLeave) {
  const ChildResult result =
      run_in_child(kAllLevels, [] { EXPECT_EQ(ipcUnregisterObserver(nullptr, nullptr), -1); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            Lines{"NFYCL:error|ipcUnregisterObserver(): write_msg() on ipc=(nil) failed (NO IPC), "
                  "msg={\"type\":\"unregister_observer\"}"});
}
