// SPDX-License-Identifier: MIT
// Notifications between two machines, in all combinations of server, sender and receiver.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "common/tcp_table.h"
#include "cross/machines.h"
#include "support/child.h"

using namespace example::test;
using zedipc::test::eventually;

namespace {

using Roles = std::tuple<Machine, Machine, Machine>;  // of the server, the sender, the receiver

class Notification : public testing::TestWithParam<Roles> {
 protected:
  Notification() : server_(program(std::get<0>(GetParam()), "server")) {}

  void SetUp() override {
    ASSERT_TRUE(eventually([this] { return common::listens(server_.pid()); }, kPatience));
  }

  // Sends until it is taken: the server may not be through with the registration at the first
  // attempt.
  static bool deliver(const std::string& parameter) {
    return eventually(
        [&] {
          return run(printer(), {"lobby", "paper.out", parameter}).status == 0;
        },
        kPatience);
  }

  static std::string printer() { return program(std::get<1>(GetParam()), "printer"); }
  static std::string display() { return program(std::get<2>(GetParam()), "display"); }

  static constexpr int kPatience = 30000;  // milliseconds

 private:
  Running server_;
};

std::string name_of_roles(const testing::TestParamInfo<Roles>& info) {
  const auto& [server, sender, receiver] = info.param;
  return name_of(sender) + "By" + name_of(server) + "To" + name_of(receiver);
}

}  // namespace

TEST_P(Notification, ArrivesWithEachKindOfValue) {
  Running receiver(display(), {"lobby", "1"});
  ASSERT_TRUE(receiver.prints("registered"));
  const std::string parameter =
      "{\"all\":[true,false,0,-1,2147483647,-2147483648,4294967296,0.1,-1.5e+300,\"\303\251\",{}]}";
  ASSERT_TRUE(deliver(parameter));
  EXPECT_TRUE(receiver.prints("lobby: got paper.out from printer to lobby: " + parameter + "\n"));
}

TEST_P(Notification, ArrivesWithALongParameter) {
  Running receiver(display(), {"lobby", "1"});
  ASSERT_TRUE(receiver.prints("registered"));
  const std::string parameter = "{\"text\":\"" + std::string(100000, 'x') + "\"}";
  ASSERT_TRUE(deliver(parameter));
  EXPECT_TRUE(receiver.prints(": " + parameter + "\n"));
}

TEST_P(Notification, ComesBackIfNobodyTakesIt) {
  Running receiver(display(), {"lobby", "1"});
  ASSERT_TRUE(receiver.prints("registered"));
  const Result result = run(printer(), {"hall", "paper.out", "{\"tray\":2}"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("printer: nobody took paper.out to hall: {\"tray\":2}\n"),
            std::string::npos)
      << result.output;
}

INSTANTIATE_TEST_SUITE_P(
    BetweenMachines, Notification,
    testing::Values(Roles{Machine::kNative, Machine::kEmulated, Machine::kNative},
                    Roles{Machine::kNative, Machine::kNative, Machine::kEmulated},
                    Roles{Machine::kNative, Machine::kEmulated, Machine::kEmulated},
                    Roles{Machine::kEmulated, Machine::kNative, Machine::kEmulated},
                    Roles{Machine::kEmulated, Machine::kEmulated, Machine::kNative},
                    Roles{Machine::kEmulated, Machine::kNative, Machine::kNative}),
    name_of_roles);
