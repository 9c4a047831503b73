// SPDX-License-Identifier: MIT
// Callbacks that use the service themselves while the server is killed and started again.
#include <zedipc/jsobject.h>

#include <atomic>
#include <memory>

#include "integration/client_process.h"
#include "stress/stress.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kPlayers = 4;

struct State {
  std::atomic<bool> stop{false};
  std::atomic<int> passes{0};
  std::atomic<int> extras{0};
  std::atomic<int> errors{0};
  std::atomic<int> failures{0};  // results that say that there is no connection
  std::atomic<int> running{0};
  std::unique_ptr<Crew> crew;
};

// Of a client's process. Its callbacks run to the process's end.
State& state = *new State;

// Counts a result, which is one of the two.
void expect_valid(int result) {
  EXPECT_TRUE(result == 0 || result == -1) << result;
  if (result == -1) ++state.failures;
}

void extra(void*, const std::string&, const std::string&, const std::string&, const JSObject&,
           unsigned int) {
  ++state.extras;
}

void failed(void*, const std::string&, const std::string&, const std::string&, const JSObject&,
            unsigned int) {
  ++state.errors;
}

void ignored(void*, const std::string&, const std::string&, const std::string&, unsigned int) {}

// Passes the ball on, as often as it says, and comes and goes under another name.
void pass_on(const std::string& to, int left) {
  const std::string name = "extra" + std::to_string(left);
  JSObject next;
  next("left") = left - 1;
  expect_valid(ipcRegisterNotificationCB(name, extra, nullptr, left, to));
  if (left > 0) expect_valid(ipcNotify(to, "ball", next, 0, to));
  expect_valid(ipcNotify(to, name, next, 0, to));
  if (left % 2 == 0) expect_valid(ipcUnregisterNotificationCB(name, nullptr, nullptr, to));
  expect_valid(ipcRegisterObserver(ignored));
}

void caught(void*, const std::string&, const std::string& to, const std::string&,
            const JSObject& parameter, unsigned int) {
  ++state.running;
  // Whoever waits for callbacks to end must not be waited for by them.
  if (!state.stop) {
    pass_on(to, parameter("left").getInt());
    ++state.passes;
  }
  --state.running;
}

// Brings a ball into the game whenever there is none: with its server a ball is lost.
void play(const std::string& name) {
  JSObject ball;
  ball("left") = 9;
  while (!state.stop) {
    const int before = state.passes;
    expect_valid(ipcNotify(name, "ball", ball, 0, name));
    eventually([&] { return state.stop || state.passes >= before + 10; }, 50);
  }
}

int begin() {
  EXPECT_EQ(ipcRegisterUnicastError(failed), 0);
  for (int i = 0; i < kPlayers; ++i) {
    const std::string name = "player" + std::to_string(i);
    EXPECT_EQ(ipcRegisterNotificationCB("ball", caught, nullptr, 1, name), 0);
  }
  state.crew = std::make_unique<Crew>(
      kPlayers, [](int player, Random&) { play("player" + std::to_string(player)); });
  return 0;
}

// The game goes on.
int go_on() {
  const int passes = state.passes;
  const int extras = state.extras;
  return eventually([&] { return state.passes >= passes + 50 && state.extras >= extras + 10; },
                    20000)
             ? 0
             : 1;
}

// A call has found no server.
int miss_it() {
  const int failures = state.failures;
  return eventually([&] { return state.failures > failures; }, 20000) ? 0 : 1;
}

// Nothing happens any more when all have gone: who is sent to is an error.
int end() {
  state.stop = true;
  state.crew.reset();
  EXPECT_TRUE(eventually([] { return state.running == 0; }));
  for (int i = 0; i < kPlayers; ++i) {
    EXPECT_EQ(ipcUnregisterNotificationCB("ball", nullptr, nullptr, "player" + std::to_string(i)),
              0);
  }
  const int passes = state.passes;
  const int errors = state.errors;
  EXPECT_EQ(ipcNotify("player0", "ball", JSObject(), 0, "f"), 0);
  EXPECT_TRUE(eventually([&] { return state.errors > errors; }));
  EXPECT_EQ(state.passes, passes);
  return ::testing::Test::HasFailure() ? 1 : 0;
}

}  // namespace

TEST(Callbacks, UseTheServiceWhileTheServerIsRestarted) {
  const HangGuard guard;
  ServerProcess server;
  ClientProcess client("", {begin, go_on, miss_it, end});
  ASSERT_EQ(client.run(0), 0);
  Random random(0);
  for (int i = 0; i < amount(40); ++i) {
    ASSERT_EQ(client.run(1), 0);
    server.stop();
    if (random.one_in(2)) {
      ASSERT_EQ(client.run(2), 0);
    }
    server.start();
  }
  ASSERT_EQ(client.run(1), 0);
  ASSERT_EQ(client.run(3), 0) << client.process().out();
}
