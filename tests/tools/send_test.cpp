// SPDX-License-Identifier: MIT
// zedipc send.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>

#include "support/server_process.h"
#include "tools/receiver.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::ServerProcess;

namespace {

std::ptrdiff_t threads(pid_t pid) {
  std::error_code ignored;
  return std::distance(
      std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", ignored), {});
}

// What arrives of a notification that is sent with these arguments.
std::string sent(Arguments arguments, const std::string& input = "") {
  const ServerProcess server;
  const Receiver receiver;
  arguments.insert(arguments.begin(), "send");
  const Result result = run(arguments, input);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  return receiver.next();
}

}  // namespace

TEST(Send, SendsToAName) {
  const std::string text = sent({"display", "n", "{\"tray\":2}"});
  EXPECT_EQ(text.substr(0, text.find(",\"reference\"")),
            R"({"flags":0,"from":"zedipc","notification":"n","parameter":{"tray":2})");
  EXPECT_TRUE(contains(text, R"("to":"display","type":"notify"})")) << text;
}

TEST(Send, SendsNullWithoutAParameter) {
  EXPECT_TRUE(contains(sent({"display", "n"}), R"("parameter":null)"));
}

TEST(Send, BroadcastsInPlaceOfAName) {
  EXPECT_EQ(sent({"--broadcast", "n", "1"}), message("*", "1"));
}

TEST(Send, SendsToTheHighestPriorityInPlaceOfAName) {
  EXPECT_TRUE(contains(sent({"--any", "n"}), R"("to":"1")"));
}

TEST(Send, TakesTheSendersName) {
  EXPECT_EQ(sent({"--broadcast", "n", "--from", "printer"}), message("*", "null", "printer"));
}

TEST(Send, TakesFlags) {
  EXPECT_EQ(sent({"--broadcast", "n", "--flags", "0x11"}), message("*", "null", "zedipc", "17"));
}

TEST(Send, TakesATextThatIsNoJson) {
  EXPECT_EQ(sent({"--broadcast", "n", "--string", "[a,\"b]"}), message("*", R"("[a,\"b]")"));
}

TEST(Send, TakesAnEmptyText) {
  EXPECT_EQ(sent({"--broadcast", "n", "--string", ""}), message("*", R"("")"));
}

TEST(Send, TakesAnArray) {
  EXPECT_EQ(sent({"--broadcast", "n", "[1,\"a\"]"}), message("*", R"([1,"a"])"));
}

TEST(Send, TakesANegativeNumber) {
  EXPECT_EQ(sent({"--broadcast", "n", "-5"}), message("*", "-5"));
}

TEST(Send, ReadsJsonFromStandardInput) {
  EXPECT_EQ(sent({"--broadcast", "n", "-"}, "{\"a\":[1 2]}\n"), message("*", R"({"a":[1,2]})"));
}

TEST(Send, ReadsATextFromStandardInput) {
  EXPECT_EQ(sent({"--broadcast", "n", "--string", "-"}, "{\n"), message("*", R"("{\n")"));
}

TEST(Send, SendsSeveralTimes) {
  const ServerProcess server;
  const Receiver receiver;
  EXPECT_EQ(run({"send", "--broadcast", "n", "--count", "3"}).status, 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(receiver.next(), message("*", "null"));
  EXPECT_TRUE(receiver.peer().silent(100));
}

TEST(Send, PausesBetweenTwo) {
  const ServerProcess server;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run({"send", "d", "n", "--count", "3", "--every", "150"}).status, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
}

TEST(Send, SucceedsWhenNobodyTakesItUnlessItWaitsForThat) {
  const ServerProcess server;
  const Result result = run({"send", "nobody", "n"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
}

TEST(Send, SaysThatNobodyTakesItWhenItWaitsForThat) {
  const ServerProcess server;
  const Result result = run({"send", "nobody", "paper\033.out", "--wait", "20000"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "zedipc: nobody takes paper\\u001b.out for nobody\n");
}

TEST(Send, SaysThatNobodyHasTheHighestPriority) {
  const ServerProcess server;
  EXPECT_EQ(run({"send", "--any", "n", "--wait", "20000"}).err, "zedipc: nobody takes n for 1\n");
}

TEST(Send, SucceedsWhenItHasWaitedAndSomebodyTookIt) {
  const ServerProcess server;
  const Receiver receiver;
  EXPECT_EQ(run({"send", "display", "n", "--wait", "50"}).status, 0);
}

TEST(Send, RefusesAParameterThatIsCutOff) {
  const ServerProcess server;
  const Receiver receiver;
  const Result result = run({"send", "display", "n", "{\"tray\":2"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "zedipc: the parameter:1:10: the JSON value is cut off here\n"
            "  {\"tray\":2\n"
            "           ^\n");
  EXPECT_TRUE(receiver.peer().silent(100));
}

TEST(Send, RefusesAParameterWithSomethingAfterIt) {
  const Result result = run({"send", "display", "n", "-"}, "{}\n{}");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "zedipc: standard input:2:1: a JSON value ends before this, and nothing may follow "
            "it\n  {}\n  ^\n");
}

TEST(Send, RefusesAMessageThatTheServerWouldPassOver) {
  const ServerProcess server;
  const Result result = run({"send", "display", "n", "--string", "-"}, std::string(524288, 'x'));
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(contains(result.err, "the parameter is too long")) << result.err;
}

TEST(Send, SendsTheLongestMessageThatItTakes) {
  const ServerProcess server;
  const Receiver receiver;
  const std::string around = message("display", R"("")", "zedipc", "0");
  const std::size_t reference = std::string(R"("reference":268435456,)").size();
  // Besides there is room for what the server adds.
  const std::string text(524288 - 25 - (around.size() - reference), 'x');
  EXPECT_EQ(run({"send", "display", "n", "--string", "-"}, text + "x").status, 1);
  EXPECT_EQ(run({"send", "display", "n", "--string", "-"}, text).status, 0);
  EXPECT_TRUE(contains(receiver.next(), text));
}

TEST(Send, RefusesAnEmptyParameter) {
  const Result result = run({"send", "display", "n", ""});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "zedipc: the parameter: there is no JSON value\n");
}

TEST(Send, RefusesANumberThatTheServerWouldPassOver) {
  const ServerProcess server;
  const Result result = run({"send", "display", "n", "{\"a\":[-1e999]}"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(contains(result.err, "the parameter has a number that is too large")) << result.err;
}

TEST(Send, EndsASeriesByCtrlC) {
  const ServerProcess server;
  const Receiver receiver;
  Tool tool({"send", "display", "n", "--count", "2", "--every", "600000"});
  EXPECT_TRUE(contains(receiver.next(), "\"n\""));
  EXPECT_TRUE(catches_ctrl_c(tool.pid()));
  EXPECT_EQ(tool.interrupt(), 0);
  EXPECT_EQ(tool.err(), "");
}

TEST(Send, SaysThatCtrlCLeftItOpenWhetherAnybodyTookIt) {
  const ServerProcess server;
  const Receiver receiver;
  Tool tool({"send", "display", "n", "--wait", "600000"});
  EXPECT_TRUE(contains(receiver.next(), "\"n\""));
  EXPECT_TRUE(catches_ctrl_c(tool.pid()));
  EXPECT_EQ(tool.interrupt(), 1);
  EXPECT_EQ(tool.err(),
            "zedipc: interrupted before it was known whether anybody takes n for display\n");
}

TEST(Send, EndsAtOnceBySigtermWhileTheServerDoesNotRead) {
  ServerProcess server;
  server.process().kill(SIGSTOP);
  Tool tool({"send", "d", "n", "--count", "100000", "--string", "-"}, std::string(100000, 'x'));
  ASSERT_TRUE(catches_ctrl_c(tool.pid()));
  tool.kill(SIGTERM);
  EXPECT_EQ(tool.wait(5), 1);
  EXPECT_EQ(tool.err(), "zedipc: interrupted before the server had taken all that was sent\n");
}

TEST(Send, EndsAtOnceByCtrlCInAPauseWhileTheServerDoesNotRead) {
  ServerProcess server;
  server.process().kill(SIGSTOP);
  Tool tool({"send", "d", "n", "--count", "2", "--every", "600000"});
  ASSERT_TRUE(catches_ctrl_c(tool.pid()));
  tool.kill(SIGINT);
  EXPECT_EQ(tool.wait(5), 1);
  EXPECT_EQ(tool.err(), "zedipc: interrupted before the server had taken all that was sent\n");
}

TEST(Send, EndsAtOnceBySigtermBeforeTheServerHasReadTheOnlyOne) {
  ServerProcess server;
  server.process().kill(SIGSTOP);
  Tool tool({"send", "d", "n"});
  // It waits in the connection's thread and in its own.
  ASSERT_TRUE(zedipc::test::eventually([&] { return threads(tool.pid()) > 1; }));
  tool.kill(SIGTERM);
  EXPECT_EQ(tool.wait(5), 128 + SIGTERM);
}

TEST(Send, WaitsAlsoIfNobodyReadsItsOutput) {
  const ServerProcess server;
  const Receiver receiver;
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  const auto begin = std::chrono::steady_clock::now();
  zedipc::test::Child child({}, [&] {
    dup2(ends[1], STDOUT_FILENO);
    become({"send", "display", "n", "--wait", "300"});
  });
  EXPECT_EQ(child.wait(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
  close(ends[1]);
}

TEST(Send, RemembersARefusalThatComesInAPause) {
  const ServerProcess server(Environment{{"NFY_LOGMASK", "255"}});
  Tool tool({"send", "display", "n", "--count", "2", "--every", "2000", "--wait", "0"});
  EXPECT_TRUE(
      zedipc::test::eventually([&] { return contains(server.err(), "sent unicast error"); }));
  const Receiver receiver;
  EXPECT_TRUE(contains(receiver.next(), "\"n\""));
  EXPECT_EQ(tool.wait(), 1);
  EXPECT_EQ(tool.err(), "zedipc: nobody takes n for display\n");
}

TEST(Send, SaysThatTheServerDoesNotAnswer) {
  ServerProcess server;
  server.process().kill(SIGSTOP);
  const Result result = run({"send", "display", "n"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "zedipc: the notification server at 127.0.0.1 does not answer. A client that has "
            "stopped reading holds it up, or it is stopped.\n");
}
