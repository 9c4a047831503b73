// SPDX-License-Identifier: MIT
// A process may end at any time, whatever its client, and its server, are doing.
#include <zedipc/jsobject.h>
#include <zedipc/tcp.h>

#include <atomic>
#include <set>

#include "notifyclient/script.h"
#include "stress/exits.h"
#include "stress/stress.h"
#include "support/server_process.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kExits = 170;
constexpr int kExitsOfServers = 80;  // one at a time, since there is one port
constexpr int kBalls = 4;

// What a client's callbacks share, and its name.
struct Game {
  Ending ending;
  const std::string name = "p" + std::to_string(getpid());
};

// Sends the next one, so that there is always something on its way.
void notified(void* data, const std::string&, const std::string&, const std::string& notification,
              const JSObject& parameter, unsigned int flags) {
  Game& game = *static_cast<Game*>(data);
  EXPECT_EQ(parameter("missing")("too").getInt(), 0);
  EXPECT_EQ(parameter("there")[0].getInt(), 7);
  EXPECT_EQ(ipcNotify(game.name, notification, parameter, flags, game.name), 0);
  game.ending.called();
}

void observed(void* data, const std::string&, const std::string&, const std::string&,
              unsigned int) {
  static_cast<Game*>(data)->ending.called();
}

// A client with balls in play and registrations that come and go.
[[noreturn]] void run_client(ExitFrom from, int after) {
  auto& game = *new Game{Ending(from, after)};
  EXPECT_EQ(ipcRegisterNotificationCB("ball", notified, &game, 1, game.name), 0);
  EXPECT_EQ(ipcRegisterObserver(observed, &game), 0);
  EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
  JSObject parameter;
  parameter("there")[0] = 7;
  for (int i = 0; i < kBalls; ++i) {
    EXPECT_EQ(ipcNotify(game.name, "ball", parameter, 0, game.name), 0);
  }
  run_for_ever([&game] {
    ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, game.name);
    ipcNotify(game.name, "n", JSObject(), 0, game.name);
    ipcUnregisterNotificationCB("n", nullptr, nullptr, game.name);
    ipcNotify(game.name, "n", JSObject(), 0, game.name);  // an error
  });
  game.ending.wait();
}

// The server and its only client in one process.
[[noreturn]] void run_server_and_client(ExitFrom from, int after) {
  std::thread([] { ipcNotificationServer(); }).detach();
  EXPECT_TRUE(eventually([] { return port_is_open(kNotifyPort); }));
  run_client(from, after);
}

void expect_clean_exits_of_clients(ExitFrom from) {
  const HangGuard guard;
  const ServerProcess server;
  expect_clean_exits(amount(kExits), 8, [&](int after) { run_client(from, after); });
}

void expect_clean_exits_of_servers(ExitFrom from) {
  const HangGuard guard;
  expect_clean_exits(amount(kExitsOfServers), 1,
                     [&](int after) { run_server_and_client(from, after); });
}

}  // namespace

TEST(ExitWithAClient, IsCleanInMain) { expect_clean_exits_of_clients(ExitFrom::kMain); }

TEST(ExitWithAClient, IsCleanInANotificationsCallback) {
  expect_clean_exits_of_clients(ExitFrom::kCallback);
}

TEST(ExitWithAServer, IsCleanInMain) { expect_clean_exits_of_servers(ExitFrom::kMain); }

TEST(ExitWithAServer, IsCleanInANotificationsCallback) {
  expect_clean_exits_of_servers(ExitFrom::kCallback);
}
