// SPDX-License-Identifier: MIT
// The command line: help, usage errors, and how the environment is used.
#include <gtest/gtest.h>

#include <string>

#include "support/server_process.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::ServerProcess;

namespace {

class Help : public testing::TestWithParam<std::string> {};
class WrongUsage : public testing::TestWithParam<Arguments> {};
class WithoutServer : public testing::TestWithParam<Arguments> {};

std::string numbered(const testing::TestParamInfo<Arguments>& info) {
  const std::string first = info.param.empty() ? "nothing" : info.param.front();
  return (first.find_first_of("-x") == 0 ? "option" : first) + "_" + std::to_string(info.index);
}

}  // namespace

TEST_P(Help, HasExamples) {
  const Result result = run({GetParam(), "--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(contains(result.out, "Examples:\n  zedipc " + GetParam())) << result.out;
}

INSTANTIATE_TEST_SUITE_P(Command, Help,
                         testing::Values("serve", "send", "listen", "observe", "top", "ping",
                                         "rules", "json"),
                         command_name);

TEST(Command, HelpListsAllCommands) {
  const Result result = run({"--help"});
  EXPECT_EQ(result.status, 0);
  for (const char* name : {"serve", "send", "listen", "observe", "top", "ping", "rules", "json"}) {
    EXPECT_TRUE(contains(result.out, "\n  " + std::string(name) + " ")) << name;
  }
}

TEST(Command, SaysItsVersion) {
  for (const Arguments& arguments : {Arguments{"--version"}, Arguments{"send", "--version"}}) {
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "zedipc " ZEDIPC_VERSION "\n");
  }
}

TEST_P(WrongUsage, GivesStatus2AndAHint) {
  const Result result = run(GetParam());
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err.find("zedipc: "), 0U) << result.err;
  EXPECT_TRUE(contains(result.err, "Try 'zedipc --help'")) << result.err;
}

INSTANTIATE_TEST_SUITE_P(
    Command, WrongUsage,
    testing::Values(
        Arguments{}, Arguments{"frob"}, Arguments{"--frob"}, Arguments{"--server"},
        Arguments{"--server", "", "observe"}, Arguments{"serve", "rules"},
        Arguments{"serve", "--rules", ""}, Arguments{"send"}, Arguments{"send", "display"},
        Arguments{"send", "", "n"}, Arguments{"send", "display", ""},
        Arguments{"send", "display", "n", "{}", "more"}, Arguments{"send", "--broadcast"},
        Arguments{"send", "--broadcast", "display", "n", "{}"},
        Arguments{"send", "--any", "display", "n", ""},
        Arguments{"send", "--broadcast", "--any", "n"},
        Arguments{"send", "--broadcast", "n", "--wait", "1"},
        Arguments{"send", "display", "n", "--from", ""},
        Arguments{"send", "display", "n", "--flags", "4294967296"},
        Arguments{"send", "display", "n", "--flags", "x"},
        Arguments{"send", "display", "n", "--count", "0"},
        Arguments{"send", "display", "n", "--every", "-1"},
        Arguments{"send", "display", "n", "--wait", "x"},
        Arguments{"send", "display", "n", "1", "--lines"},
        Arguments{"send", "display", "n", "--lines", "--count", "2"}, Arguments{"listen"},
        Arguments{"listen", ""}, Arguments{"listen", "n", ""}, Arguments{"listen", "n", "--frob"},
        Arguments{"listen", "n", "--as", ""}, Arguments{"listen", "n", "--as", "*"},
        Arguments{"listen", "n", "--as", "1"}, Arguments{"listen", "n", "--priority", "2147483648"},
        Arguments{"listen", "n", "--format", "xml"}, Arguments{"listen", "n", "--count", "-1"},
        Arguments{"listen", "n", "--timeout", "-1"}, Arguments{"listen", "n", "--exec", ""},
        Arguments{"listen", "n", "--shell"}, Arguments{"observe", "n"},
        Arguments{"observe", "--format", "TEXT"}, Arguments{"top", "--sort", "size"},
        Arguments{"top", "--interval", "0"}, Arguments{"ping", "--interval", "0"},
        Arguments{"rules"}, Arguments{"rules", "file", "--explain", "in", "a", "b"},
        Arguments{"rules", "file", "--explain", "up", "a", "b", "c"},
        Arguments{"json", "file", "more"}),
    numbered);

TEST(Command, NamesTheCommandThatThereIsNot) {
  EXPECT_TRUE(contains(run({"frob"}).err, "zedipc: there is no command 'frob'\n"));
}

TEST(Command, MakesAWrongArgumentHarmlessForTerminals) {
  EXPECT_TRUE(contains(run({"\033[2J"}).err, "'\\u001b[2J'"));
}

TEST_P(WithoutServer, SaysWhereItLookedAndWhatToDo) {
  const Result result = run(GetParam());
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "zedipc: no notification server answers at 127.0.0.1, port 5899. Start one with "
            "'zedipc serve', or name its host with --server HOST.\n");
}

INSTANTIATE_TEST_SUITE_P(Command, WithoutServer,
                         testing::Values(Arguments{"send", "display", "n"},
                                         Arguments{"listen", "n"}, Arguments{"observe"},
                                         Arguments{"top"}, Arguments{"ping"}),
                         numbered);

TEST(Command, TakesTheServerFromItsArguments) {
  EXPECT_TRUE(contains(run({"send", "d", "n", "--server", "127.0.0.9"}).err, "at 127.0.0.9, port"));
  EXPECT_TRUE(contains(run({"--server", "127.0.0.8", "send", "d", "n"}).err, "at 127.0.0.8, port"));
}

TEST(Command, TakesTheServerFromTheEnvironment) {
  const Environment environment{{"NOTIFY_SERVER", "127.0.0.7"}};
  EXPECT_TRUE(contains(run({"ping"}, "", environment).err, "at 127.0.0.7, port"));
}

TEST(Command, PrefersTheServerOfItsArguments) {
  const Environment environment{{"NOTIFY_SERVER", "127.0.0.7"}};
  EXPECT_TRUE(
      contains(run({"ping", "--server", "127.0.0.6"}, "", environment).err, "at 127.0.0.6, port"));
}

TEST(Command, DoesNotShowTheLibrarysLogToThoseWhoHaveNotAskedForIt) {
  const ServerProcess server;
  EXPECT_EQ(run({"send", "display", "n"}).err, "");
}

TEST(Command, ShowsTheLibrarysLogToThoseWhoHaveAskedForIt) {
  const ServerProcess server;
  for (const char* mask : {"IPC_LOGMASK", "NFY_LOGMASK"}) {
    const Result result = run({"send", "display", "n"}, "", {{mask, "255"}});
    EXPECT_TRUE(contains(result.err, "DBGLOG <PID ")) << mask;
    EXPECT_TRUE(contains(result.err, ":debug|") || contains(result.err, ":info|")) << mask;
  }
}
