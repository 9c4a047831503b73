// SPDX-License-Identifier: MIT
// zedipc serve.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <string>

#include "support/raw_peer.h"
#include "support/scratch_dir.h"
#include "support/server_process.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::Child;
using zedipc::test::kNotifyPort;
using zedipc::test::port_is_open;
using zedipc::test::ScratchDir;

namespace {

class EndedServer : public testing::TestWithParam<int> {};

std::string signal_name(const testing::TestParamInfo<int>& info) {
  return std::string("BySig") + sigabbrev_np(info.param);
}

// What the second of two servers says.
std::string says_when_taken(const Arguments& arguments) {
  const Result result = run(arguments);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  return result.err;
}

}  // namespace

TEST(Serve, SaysThatItServesThisMachine) {
  Tool server({"serve"});
  ASSERT_TRUE(server.prints("\n")) << server.err();
  EXPECT_EQ(server.out(), "serving this machine, on 127.0.0.1 port 5899 (local): no rules\n");
  EXPECT_TRUE(port_is_open(kNotifyPort));
}

TEST(Serve, SaysThatItServesOtherMachinesAndByHowManyRules) {
  const ScratchDir dir;
  Tool server({"serve", "--rules", dir.write("rules", "in * * *\nout a b c\nout a b d\n")});
  ASSERT_TRUE(server.prints("\n")) << server.err();
  EXPECT_EQ(server.out(),
            "serving other machines too, on port 5899 of all addresses (external): 1 rule for what "
            "comes in, 2 rules for what goes out\n");
  EXPECT_EQ(server.err(), "");
}

TEST(Serve, IsLocalWithAFileWithoutRules) {
  const ScratchDir dir;
  Tool server({"serve", "--rules", dir.write("rules", "# none\n")});
  ASSERT_TRUE(server.prints("\n")) << server.err();
  EXPECT_TRUE(contains(server.out(), "(local): 0 rules for what comes in")) << server.out();
}

TEST(Serve, WarnsOfRulesThatDoNothing) {
  const ScratchDir dir;
  Tool server({"serve", "--rules", dir.write("rules", "in a b c\nin a b c\n")});
  ASSERT_TRUE(server.prints("\n")) << server.err();
  EXPECT_TRUE(contains(server.err(), ":2: the same rule is in line 1\n")) << server.err();
}

TEST(Serve, SaysWhichProcessHasThePort) {
  Tool first({"serve"});
  ASSERT_TRUE(first.prints("\n"));
  EXPECT_EQ(says_when_taken({"serve"}),
            "zedipc: cannot start: port 5899 is taken by process " + std::to_string(first.pid()) +
                " (zedipc serve). If that is a notification server, clients find it already; if "
                "not, end it.\n");
}

TEST(Serve, SaysWhichProcessHasThePortOnAnotherAddress) {
  zedipc::TCP other;
  ASSERT_TRUE(other.listen(kNotifyPort, "127.0.0.5"));
  const ScratchDir dir;
  const std::string words = says_when_taken({"serve", "--rules", dir.write("rules", "in * * *\n")});
  EXPECT_TRUE(contains(words, "taken by process " + std::to_string(getpid()) + " (")) << words;
}

TEST(Serve, SaysThatTheRuleFileCannotBeOpened) {
  const ScratchDir dir;
  EXPECT_EQ(says_when_taken({"serve", "--rules", dir.file("none")}),
            "zedipc: cannot start: cannot open '" + dir.file("none") +
                "': No such file or directory. Name another file, or leave out --rules to serve "
                "this machine alone.\n");
}

TEST(Serve, SaysWhichLineOfTheRuleFileIsWrong) {
  const ScratchDir dir;
  const std::string file = dir.write("rules", "in * * *\nin * *\n");
  EXPECT_EQ(says_when_taken({"serve", "--rules", file})
                .find("zedipc: cannot start: " + file + ":2: a rule has three patterns"),
            0U);
}

TEST_P(EndedServer, EndsWithStatus0) {
  Tool server({"serve"});
  ASSERT_TRUE(server.prints("\n"));
  server.kill(GetParam());
  EXPECT_EQ(server.wait(), 0);
  EXPECT_EQ(server.err(), "");
}

INSTANTIATE_TEST_SUITE_P(Serve, EndedServer, testing::Values(SIGINT, SIGTERM, SIGHUP), signal_name);

TEST(Serve, ServesOnWhenItsReaderHasGone) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  Child server({}, [&] {
    dup2(ends[1], STDOUT_FILENO);
    become({"serve"});
  });
  close(ends[1]);
  char byte = 0;
  ASSERT_EQ(read(ends[0], &byte, 1), 1);  // it listens
  close(ends[0]);
  EXPECT_EQ(run({"ping", "--count", "1"}).status, 0);
}
