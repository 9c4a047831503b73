// SPDX-License-Identifier: MIT
// A process may end at any time, whatever its client's threads are doing.
#include <gtest/gtest.h>

#include "delivery_script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Sends a message again and again until the client has gone.
void flood(const RawPeer& server, const std::string& message) {
  const std::string bytes = frame(kNotifyFrame, 0, message);
  while (::send(server.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
  }
}

// The end of a client that ends while messages keep coming.
void expect_clean_exit_under_fire(const Environment& environment) {
  const RawListener listener;
  Child child(environment, [] {
    Recorder& calls = immortal<Recorder>();
    EXPECT_EQ(ipcRegisterNotificationCB("n", Recorder::notified, &calls, 1, "t"), 0);
    EXPECT_EQ(calls.calls(20).size() >= 20, true);
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  const RawPeer server = listener.accept();
  ASSERT_EQ(server.receive_message(), registration("t", "n", 1));
  flood(server, R"({"notification":"n","parameter":{"a":[1,{"b":"c"}]},"to":"t","type":"notify"})");
  EXPECT_EQ(child.wait(), 0) << child.out();
}

}  // namespace

TEST(Exit, IsCleanWhileTheReaderWaits) {
  const ChildResult result = run_in_child({}, [] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    expect_reader_ready(script.server());
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Exit, IsCleanWhileCallbacksRun) {
  const ChildResult result = run_in_child({}, [] {
    Script& script = immortal<Script>();
    Blocker& blocker = script.block_as("t", 1);
    for (int i = 0; i < 5; ++i) script.send(notification("t", "n"));
    EXPECT_TRUE(blocker.entered(5));
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Exit, IsCleanWhileACallIsBlocked) {
  const ChildResult result = run_in_child({}, [] {
    Script& script = immortal<Script>();
    Blocker& blocker = script.block_as("t", 1);
    script.send(notification("t", "n"));
    EXPECT_TRUE(blocker.entered());
    const Task& task =
        *new Task([] { return ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"); });
    EXPECT_TRUE(task.blocked());
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Exit, IsCleanWhileTheConnectionIsLost) {
  const ChildResult result = run_in_child({}, [] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    lose(script.server());
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Exit, IsCleanWhileMessagesKeepComing) { expect_clean_exit_under_fire({}); }

TEST(Exit, IsCleanWhileMessagesKeepComingAndAreLogged) { expect_clean_exit_under_fire(kAllLevels); }
