// SPDX-License-Identifier: MIT
// zedipc listen --exec.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/raw_peer.h"
#include "support/scratch_dir.h"
#include "support/server_process.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::RawPeer;
using zedipc::test::ScratchDir;
using zedipc::test::ServerProcess;

namespace {

// What comes of a command that is run for one message.
Result executed(const Arguments& more, const std::string& message) {
  const ServerProcess server;
  Arguments arguments{"listen", "n", "--as", "display", "--count", "1"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  Ready tool(arguments);
  RawPeer::connect().send_message(message);
  const int status = tool.wait();
  return {status, tool.out(), tool.err().substr(tool.err().find('\n') + 1)};
}

std::string from(const std::string& sender, const std::string& parameter = "null") {
  return R"({"type":"notify","from":")" + sender +
         R"(","to":"display","notification":"n","flags":-1,"parameter":)" + parameter + "}";
}

}  // namespace

TEST(Execute, HasTheFieldsInItsEnvironment) {
  const Result result = executed({"--exec", "env"}, from("printer"));
  EXPECT_EQ(result.status, 0);
  for (const char* line : {"ZEDIPC_FROM=printer\n", "ZEDIPC_TO=display\n",
                           "ZEDIPC_NOTIFICATION=n\n", "ZEDIPC_FLAGS=4294967295\n", "\nPATH="}) {
    EXPECT_TRUE(contains(result.out, line)) << line;
  }
}

TEST(Execute, HasNoFieldTwiceInItsEnvironment) {
  setenv("ZEDIPC_FROM", "somebody", 1);
  const Result result = executed({"--exec", "env"}, from("printer"));
  EXPECT_FALSE(contains(result.out, "somebody"));
}

TEST(Execute, HasTheParameterOnStandardInput) {
  EXPECT_EQ(executed({"--exec", "cat"}, from("p", R"({"tray":2})")).out, "{\"tray\":2}");
}

TEST(Execute, HasALongParameterOnStandardInput) {
  const std::string text = "\"" + std::string(300000, 'x') + "\"";
  EXPECT_EQ(executed({"--exec", "wc -c"}, from("p", text)).out, "300002\n");
}

TEST(Execute, NeedsNotReadTheParameter) {
  const std::string text = "\"" + std::string(300000, 'x') + "\"";
  const Result result = executed({"--exec", "true"}, from("p", text));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
}

TEST(Execute, GivesNothingToAShellByItself) {
  EXPECT_EQ(executed({"--exec", "echo $HOME;  `id` > /dev/null *"}, from("p")).out,
            "$HOME; `id` > /dev/null *\n");
}

TEST(Execute, GivesTheCommandToAShellIfAskedTo) {
  EXPECT_EQ(executed({"--shell", "--exec", "cat; echo \" $ZEDIPC_TO\""}, from("p", "1")).out,
            "1 display\n");
}

TEST(Execute, LetsNoNotificationBecomeAPartOfTheCommand) {
  const ScratchDir dir;
  const std::string evil = "$(touch " + dir.file("evil") + "); `touch " + dir.file("evil") + "`";
  const Result result =
      executed({"--shell", "--exec", "echo \"$ZEDIPC_FROM\""}, from(evil, "\"" + evil + "\""));
  EXPECT_EQ(result.out, evil + "\n");
  EXPECT_FALSE(std::filesystem::exists(dir.file("evil")));
}

TEST(Execute, ShowsAZeroByteInTheEnvironmentAsAnEscape) {
  EXPECT_TRUE(
      contains(executed({"--exec", "env"}, from("a\\u0000b")).out, "ZEDIPC_FROM=a\\u0000b\n"));
}

TEST(Execute, SaysHowTheCommandFailedAndGoesOn) {
  const Result result = executed({"--shell", "--exec", "exit 3"}, from("p"));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "zedipc: 'exit 3' ended with exit status 3\n");
}

TEST(Execute, SaysWhichSignalEndedTheCommand) {
  EXPECT_EQ(executed({"--shell", "--exec", "kill $$"}, from("p")).err,
            "zedipc: 'kill $$' ended with signal Terminated\n");
}

TEST(Execute, EndsIfTheCommandIsNotThere) {
  const Result result = executed({"--exec", "/none/such now"}, from("p"));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "zedipc: cannot run '/none/such now': No such file or directory\n");
}

TEST(Execute, PassesOverANotificationWhoseNamesAreTooLong) {
  const Result result = executed({"--exec", "env"}, from(std::string(200000, 'x')));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "zedipc: cannot run 'env' for n from " + std::string(40, 'x') +
                            ": its names are too long\n");
}

TEST(Execute, EndsThePipeOfACommandAsUsual) {
  // With SIGPIPE ignored `yes` would complain.
  const Result result =
      executed({"--shell", "--exec", "{ yes; echo $? >&2; } | head -n 1"}, from("p"));
  EXPECT_EQ(result.out, "y\n");
  EXPECT_FALSE(contains(result.err, "Broken pipe")) << result.err;
}

TEST(Execute, RefusesABlankCommand) {
  const ServerProcess server;
  const Result result = run({"listen", "n", "--exec", " "});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(contains(result.err, "zedipc: --exec has no command\n"));
}
