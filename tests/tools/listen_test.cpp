// SPDX-License-Identifier: MIT
// zedipc listen, without --exec.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "support/raw_peer.h"
#include "support/server_process.h"
#include "tools/strict_json.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::Child;
using zedipc::test::RawPeer;
using zedipc::test::ServerProcess;

namespace {

int send(Arguments arguments) {
  arguments.insert(arguments.begin(), "send");
  return run(arguments).status;
}

// The end of the first line, after the time.
std::string without_time(const std::string& line) {
  EXPECT_EQ(line.substr(2, 1) + line.substr(5, 1) + line.substr(8, 1) + line.substr(12, 1), "::. ");
  return line.substr(13);
}

// What is shown of a message that is made by hand, whatever its bytes.
std::string shown(const std::string& format, const std::string& text) {
  const ServerProcess server;
  Ready tool({"listen", "n", "--as", "display", "--format", format, "--count", "1"});
  RawPeer::connect().send_message(text);
  EXPECT_EQ(tool.wait(), 0);
  return tool.out();
}

std::string from_bytes(const std::string& bytes) {
  return R"({"type":"notify","from":")" + bytes + R"(","to":"display","notification":"n",)" +
         R"("parameter":{")" + bytes + R"(":")" + bytes + R"("}})";
}

}  // namespace

TEST(Listen, PrintsALineForEach) {
  const ServerProcess server;
  Ready tool({"listen", "paper.out", "--as", "display", "--count", "2"});
  EXPECT_EQ(tool.err(), "zedipc: listening as display\n");
  EXPECT_EQ(send({"display", "paper.out", "{\"tray\":2}", "--from", "printer"}), 0);
  EXPECT_TRUE(tool.prints("\n"));
  EXPECT_EQ(send({"--broadcast", "paper.out", "--flags", "0xffffffff"}), 0);
  EXPECT_EQ(tool.wait(), 0);
  const auto printed = lines(tool.out());
  ASSERT_EQ(printed.size(), 2U);
  EXPECT_EQ(without_time(printed[0]), "paper.out printer -> display {\"tray\":2}");
  EXPECT_EQ(without_time(printed[1]), "paper.out zedipc -> * null flags=4294967295");
}

TEST(Listen, HearsOfAllTheNotificationsItIsGiven) {
  const ServerProcess server;
  Ready tool({"listen", "a", "[b,c]", "--as", "display", "--count", "2"});
  EXPECT_EQ(send({"display", "[b,c]"}), 0);
  EXPECT_EQ(send({"display", "a"}), 0);
  EXPECT_EQ(tool.wait(), 0);
}

TEST(Listen, HasAPrivateNameUnlessItIsGivenOne) {
  const ServerProcess server;
  Ready tool({"listen", "n", "--count", "1"});
  const std::string name = "zedipc.listen." + std::to_string(tool.pid());
  EXPECT_EQ(tool.err(), "zedipc: listening as " + name + "\n");
  EXPECT_EQ(send({name, "n"}), 0);
  EXPECT_EQ(tool.wait(), 0);
}

TEST(Listen, IsKnownToTheServerOnceItSaysSo) {
  const ServerProcess server;
  Ready tool({"listen", "n", "--as", "display", "--count", "1"});
  EXPECT_EQ(send({"display", "n", "--wait", "0"}), 0);
  EXPECT_EQ(tool.wait(), 0);
}

TEST(Listen, SaysNothingIfItShallBeQuiet) {
  const ServerProcess server;
  const Result result = run({"listen", "n", "--quiet", "--timeout", "0.1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
}

TEST(Listen, GetsWhatIsSentToTheHighestPriorityByItsPriority) {
  const ServerProcess server;
  Ready low({"listen", "n", "--as", "low", "--priority", "-1"});
  Ready high({"listen", "n", "--as", "high", "--priority", "7", "--count", "1"});
  Ready lower({"listen", "n", "--as", "lower", "--priority", "-2"});
  EXPECT_EQ(send({"--any", "n"}), 0);
  EXPECT_EQ(high.wait(), 0);
  EXPECT_EQ(low.out() + lower.out(), "");
}

TEST(Listen, EndsAfterItsTime) {
  const ServerProcess server;
  EXPECT_EQ(run({"listen", "n", "--timeout", "0.1"}).status, 0);
}

TEST(Listen, FailsIfItsTimeComesAheadOfItsCount) {
  const ServerProcess server;
  EXPECT_EQ(run({"listen", "n", "--count", "1", "--timeout", "0.1"}).status, 1);
}

TEST(Listen, PrintsJson) {
  const std::string line = shown(
      "json", R"({"type":"notify","from":"p","to":"display","notification":"n","parameter":[1],)"
              R"("flags":-1})");
  const std::string time = R"("time":"20)";
  EXPECT_EQ(line.substr(0, line.find(time)),
            R"({"flags":4294967295,"from":"p","notification":"n","parameter":[1],)");
  EXPECT_TRUE(contains(line, "Z\",\"to\":\"display\"}\n")) << line;
}

TEST(Listen, PrintsATextWithoutQuotesInTheRawFormat) {
  EXPECT_EQ(shown("raw", R"({"type":"notify","from":"p","to":"display","notification":"n",)"
                         R"("parameter":"a\"b\u001b"})"),
            "a\"b\033\n");
}

TEST(Listen, PrintsJsonInTheRawFormatForWhatIsNoText) {
  EXPECT_EQ(shown("raw", R"({"type":"notify","from":"p","to":"display","notification":"n",)"
                         R"("parameter":{"a":[1]}})"),
            "{\"a\":[1]}\n");
}

TEST(Listen, PrintsOneValidJsonLineWhateverTheBytes) {
  const ServerProcess server;
  const RawPeer peer = RawPeer::connect();
  std::string all;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '"' && byte != '\\') all += static_cast<char>(byte);
  }
  const std::vector<std::string> cases{all,
                                       "\xC3",
                                       "\xE2\x80",
                                       "\xF0\x9F\x98",
                                       "\xED\xA0\x80",
                                       "\xC0\x80",
                                       "\\ud800",
                                       "\\udc00x",
                                       "\\u0000",
                                       "\\n\\q",
                                       "\xF4\x90\x80\x80",
                                       "\xC3\xA4\xFF",
                                       "\xE0\x80\xAF",
                                       "\\\\\xFF\\\"",
                                       "\n\r\t\x7F"};
  Ready tool({"listen", "n", "--as", "display", "--format", "json", "--count",
              std::to_string(2 * cases.size())});
  for (const std::string& bytes : cases) {
    peer.send_message(from_bytes(bytes));
    peer.send_message(R"({"type":"notify","from":"p","to":"*","notification":"n",)"
                      R"("parameter":[1e999,-1e999,")" +
                      bytes + R"("],"flags":1e999})");
  }
  EXPECT_EQ(tool.wait(), 0);
  const auto printed = lines(tool.out());
  EXPECT_EQ(printed.size(), 2 * cases.size());
  for (const std::string& line : printed) EXPECT_TRUE(StrictJson::is_valid(line)) << line;
}

TEST(Listen, MakesTextHarmlessForTerminals) {
  const std::string text =
      shown("text", from_bytes("\x1B[2J\n\x7F\xC2\x9B\xE2\x80\xAE\xFF\xE2\x80\x8B\xC3\xA4"));
  EXPECT_EQ(without_time(text),
            "n \\u001b[2J\\n\\u007f\\u009b\\u202e\\xff\\u200b\xC3\xA4 -> display "
            "{\"\\u001B[2J\\n\\u007f\\u009b\\u202e\\xff\\u200b\xC3\xA4\":"
            "\"\\u001B[2J\\n\\u007f\\u009b\\u202e\\xff\\u200b\xC3\xA4\"}\n");
}

TEST(Listen, UsesNoColourInAFile) {
  const std::string text = shown("text", from_bytes("p"));
  EXPECT_FALSE(contains(text, "\033"));
}

TEST(Listen, EndsOnCtrlC) {
  const ServerProcess server;
  Ready tool({"listen", "n"});
  EXPECT_EQ(tool.interrupt(), 0);
  EXPECT_EQ(tool.out(), "");
}

TEST(Listen, EndsWhenItsReaderHasGoneWithoutAWord) {
  const ServerProcess server;
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  Child tool({}, [&] {
    dup2(ends[1], STDOUT_FILENO);
    become({"listen", "n"});
  });
  close(ends[1]);
  ASSERT_TRUE(tool.wait_for_err("listening as"));
  close(ends[0]);
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_EQ(lines(tool.err()).size(), 1U) << tool.err();
}

TEST(Listen, GoesOnWhenTheServerHasBeenRestarted) {
  ServerProcess server;
  Ready tool({"listen", "n", "--as", "display", "--count", "1"});
  server.stop();
  server.start();
  // The client looks for the server ten seconds later.
  EXPECT_TRUE(zedipc::test::eventually(
      [] {
        return send({"display", "n", "--wait", "200"}) == 0;
      },
      40000));
  EXPECT_EQ(tool.wait(), 0);
}
