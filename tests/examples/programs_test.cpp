// SPDX-License-Identifier: MIT
// The small programs, as somebody would start them by hand.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "common/tcp_table.h"
#include "echo_protocol.h"
#include "examples/run.h"
#include "support/child.h"
#include "support/scratch_dir.h"

using namespace example::test;
using zedipc::test::eventually;
using zedipc::test::ScratchDir;

namespace {

struct Arguments {
  std::string program;
  std::vector<std::string> arguments;
};

class WrongArguments : public testing::TestWithParam<Arguments> {};
class EchoServer : public testing::TestWithParam<std::string> {};
class WithoutServer : public testing::TestWithParam<Arguments> {};

std::string name_of(const testing::TestParamInfo<Arguments>& info) {
  return info.param.program + "_" + std::to_string(info.index);
}

// The server, listening.
class Server : public Running {
 public:
  Server() : Running(program("server")) {
    listening_ = eventually([this] { return common::listens(pid()); });
  }
  [[nodiscard]] bool listening() const { return listening_; }

 private:
  bool listening_;
};

// What an echo server sends back.
std::string echo(zedipc::Pipe& peer, const std::string& text) {
  std::string answer;
  int tag = 0;
  EXPECT_TRUE(peer.write_msg(example::kEchoFrame, 7, text));
  EXPECT_TRUE(peer.read_msg(example::kEchoFrame, tag, answer, example::kEchoLimit, 10000));
  EXPECT_EQ(tag, 7);
  return answer;
}

long threads_of(pid_t pid) {
  const std::filesystem::directory_iterator tasks("/proc/" + std::to_string(pid) + "/task");
  return std::distance(begin(tasks), end(tasks));
}

}  // namespace

TEST_P(WrongArguments, GiveTheUsageAndStatus2) {
  const Result result = run(program(GetParam().program), GetParam().arguments);
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.output.find("usage: " + GetParam().program), 0U) << result.output;
}

INSTANTIATE_TEST_SUITE_P(
    Programs, WrongArguments,
    testing::Values(Arguments{"demo", {"fast"}}, Arguments{"server", {"a", "b"}},
                    Arguments{"display", {}}, Arguments{"display", {"lobby"}},
                    Arguments{"display", {"lobby", "ten"}}, Arguments{"display", {"lobby", "1x"}},
                    Arguments{"display", {"lobby", "2147483648"}}, Arguments{"display", {"", "1"}},
                    Arguments{"display", {"*", "1"}}, Arguments{"display", {"1", "1"}},
                    Arguments{"monitor", {"x"}}, Arguments{"printer", {"lobby"}},
                    Arguments{"printer", {"lobby", "n", "{}", "more"}},
                    Arguments{"echo_server", {}}, Arguments{"echo_callbacks", {}},
                    Arguments{"echo_client", {"path"}}),
    name_of);

TEST_P(WithoutServer, SaysSoAndFails) {
  const Result result = run(program(GetParam().program), GetParam().arguments);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("no notification server answers at 127.0.0.1, port 5899"),
            std::string::npos)
      << result.output;
}

INSTANTIATE_TEST_SUITE_P(Programs, WithoutServer,
                         testing::Values(Arguments{"display", {"lobby", "1"}},
                                         Arguments{"monitor", {}},
                                         Arguments{"printer", {"lobby", "paper.out"}}),
                         name_of);

TEST(Server, SaysThatThePortIsTaken) {
  const Server first;
  ASSERT_TRUE(first.listening());
  const Result second = run(program("server"));
  EXPECT_EQ(second.status, 1);
  EXPECT_NE(second.output.find("server: cannot start: port 5899 cannot be opened"),
            std::string::npos)
      << second.output;
}

TEST(Server, SaysThatTheRuleFileCannotBeOpened) {
  const ScratchDir dir;
  const Result result = run(program("server"), {dir.file("none")});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("the rule file cannot be opened"), std::string::npos)
      << result.output;
}

TEST(Server, SaysThatTheRuleFileIsWrong) {
  const ScratchDir dir;
  const Result result = run(program("server"), {dir.write("rules", "sideways * * *\n")});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("a line that is no rule"), std::string::npos) << result.output;
}

TEST(Server, EndsWellWhileItServes) {
  Server server;
  ASSERT_TRUE(server.listening());
  Running display(program("display"), {"lobby", "1"});
  ASSERT_TRUE(display.prints("registered"));
  EXPECT_EQ(server.end(SIGTERM).status, 0);
}

TEST(Display, EndsWellOnCtrlC) {
  const Server server;
  ASSERT_TRUE(server.listening());
  Running display(program("display"), {"lobby", "1"});
  ASSERT_TRUE(display.prints("registered"));
  EXPECT_EQ(display.end(SIGINT).status, 0);
}

TEST(Printer, SucceedsWhenItsNotificationIsTaken) {
  const Server server;
  ASSERT_TRUE(server.listening());
  Running display(program("display"), {"lobby", "1"});
  ASSERT_TRUE(display.prints("registered"));
  const auto send = [] {
    return run(program("printer"), {"lobby", "paper.out", "{\"tray\":2}"}).status;
  };
  // The server may not be through with the registration at the first attempt.
  ASSERT_TRUE(eventually([&] { return send() == 0; }));
  EXPECT_TRUE(display.prints("lobby: got paper.out from printer to lobby: {\"tray\":2}"));
}

TEST(Printer, TellsBeforeItEndsThatNobodyTookIt) {
  const Server server;
  ASSERT_TRUE(server.listening());
  const Result result = run(program("printer"), {"lobby", "paper.out", "{\"tray\":2}"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("printer: nobody took paper.out to lobby: {\"tray\":2}\n"),
            std::string::npos)
      << result.output;
}

TEST(Printer, RefusesAParameterThatIsNoJson) {
  const Result result = run(program("printer"), {"lobby", "paper.out", "{\"tray\""});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("is no JSON: {\"tray\""), std::string::npos) << result.output;
}

TEST(Printer, GoesOnBehindALineThatItDoesNotUnderstand) {
  const Server server;
  ASSERT_TRUE(server.listening());
  Running printer(program("printer"));
  printer.send_line("lobby");
  printer.send_line("* paper.out {\"tray\":2}");
  EXPECT_TRUE(printer.prints("a line is TO NOTIFICATION [PARAMETER], not: lobby"));
  EXPECT_TRUE(printer.prints("printer: sending paper.out to *: {\"tray\":2}"));
}

TEST(Monitor, SaysThatARemoteClientMayNotObserve) {
  const Server server;
  ASSERT_TRUE(server.listening());
  setenv("NOTIFY_SERVER", "127.0.0.2", 1);  // of this machine, but not as the library counts
  const Result unreachable = run(program("monitor"));
  EXPECT_NE(unreachable.output.find("answers at 127.0.0.2"), std::string::npos)
      << unreachable.output;
  setenv("NOTIFY_SERVER", "127.1", 1);
  const Result remote = run(program("monitor"));
  EXPECT_EQ(remote.status, 1);
  EXPECT_NE(remote.output.find("NOTIFY_SERVER is \"127.1\""), std::string::npos) << remote.output;
}

TEST_P(EchoServer, SendsEachTextBack) {
  const ScratchDir dir;
  Running server(program(GetParam()), {dir.file("socket")});
  ASSERT_TRUE(server.prints("listening"));
  const Result result = run(program("echo_client"), {dir.file("socket"), "one", "", "two words"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "echo_client: one\necho_client: \necho_client: two words\n");
}

TEST_P(EchoServer, GoesOnAfterAFrameAboveTheLimit) {
  const ScratchDir dir;
  Running server(program(GetParam()), {dir.file("socket")});
  ASSERT_TRUE(server.prints("listening"));
  zedipc::Pipe peer;
  ASSERT_TRUE(peer.connect(dir.file("socket").c_str()));
  ASSERT_TRUE(peer.write_msg(example::kEchoFrame, 1, std::string(example::kEchoLimit + 1, 'x')));
  EXPECT_EQ(echo(peer, "short"), "short");
}

TEST_P(EchoServer, RemovesTheSocketFileAtTheEnd) {
  const ScratchDir dir;
  Running server(program(GetParam()), {dir.file("socket")});
  ASSERT_TRUE(server.prints("listening"));
  const Result result = server.end(SIGTERM);
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.output.find(GetParam() + ": ended"), std::string::npos) << result.output;
  EXPECT_FALSE(std::filesystem::exists(dir.file("socket")));
}

TEST_P(EchoServer, EndsWhilePeersAreConnected) {
  const ScratchDir dir;
  Running server(program(GetParam()), {dir.file("socket")});
  ASSERT_TRUE(server.prints("listening"));
  zedipc::Pipe peer;
  ASSERT_TRUE(peer.connect(dir.file("socket").c_str()));
  EXPECT_EQ(echo(peer, "text"), "text");
  EXPECT_EQ(server.end(SIGTERM).status, 0);
}

TEST_P(EchoServer, SaysThatThePathIsTaken) {
  const ScratchDir dir;
  Running first(program("echo_server"), {dir.file("socket")});
  ASSERT_TRUE(first.prints("listening"));
  const Result second = run(program(GetParam()), {dir.file("socket")});
  EXPECT_EQ(second.status, 1);
  EXPECT_NE(second.output.find(GetParam() + ": cannot listen on " + dir.file("socket")),
            std::string::npos)
      << second.output;
}

INSTANTIATE_TEST_SUITE_P(Programs, EchoServer, testing::Values("echo_server", "echo_callbacks"),
                         [](const auto& server) { return server.param; });

TEST(EchoCallbacks, ServesManyPeersWithoutAThreadForEach) {
  const ScratchDir dir;
  Running server(program("echo_callbacks"), {dir.file("socket")});
  ASSERT_TRUE(server.prints("listening"));
  long with_one_peer = 0;
  {
    std::vector<std::unique_ptr<zedipc::Pipe>> peers;
    for (int i = 0; i < 30; ++i) {
      peers.push_back(std::make_unique<zedipc::Pipe>());
      ASSERT_TRUE(peers.back()->connect(dir.file("socket").c_str()));
      EXPECT_EQ(echo(*peers.back(), "text"), "text");
      if (i == 0) with_one_peer = threads_of(server.pid());
    }
    for (int round = 0; round < 3; ++round) {
      for (const auto& peer : peers)
        EXPECT_EQ(echo(*peer, round == 1 ? "" : "text"), round == 1 ? "" : "text");
    }
    EXPECT_EQ(threads_of(server.pid()), with_one_peer);
  }
  EXPECT_TRUE(eventually([&] { return threads_of(server.pid()) == with_one_peer - 1; }));
}

TEST(Echo, SaysThatNobodyListens) {
  const ScratchDir dir;
  const Result result = run(program("echo_client"), {dir.file("socket"), "text"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("nobody listens there"), std::string::npos) << result.output;
}
