// SPDX-License-Identifier: MIT
// The demo: that it looks closely, says what it sees, and leaves nothing behind.
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zedipc/tcp.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "common/tcp_table.h"
#include "demo/ledger.h"
#include "demo/screen.h"
#include "examples/run.h"
#include "support/child.h"
#include "support/scratch_dir.h"

using namespace example::test;
using zedipc::test::eventually;
using zedipc::test::ScratchDir;

namespace {

namespace fs = std::filesystem;

// A directory with the demo and its programs, some of which a test replaces.
class Stage {
 public:
  Stage() {
    fs::copy_file(program("demo"), demo());
#ifdef EMULATED
    fs::copy_file(program("demo.emulated"), dir_.file("demo.emulated"));  // which "demo" runs
#endif
    for (const char* name : {"server", "display", "monitor", "printer"}) {
      fs::create_symlink(program(name), dir_.file(name));
    }
  }

  [[nodiscard]] std::string demo() const { return dir_.file("demo"); }

  void remove(const std::string& name) const { fs::remove(dir_.file(name)); }
  void replace(const std::string& name, const std::string& script) const {
    remove(name);
    fs::permissions(dir_.write(name, "#!/bin/sh\n" + script + "\n"), fs::perms::owner_all);
  }

 private:
  ScratchDir dir_;
};

std::vector<pid_t> children_of(pid_t pid) {
  const std::string text = std::to_string(pid);
  std::ifstream in("/proc/" + text + "/task/" + text + "/children");
  std::vector<pid_t> children;
  for (pid_t child; in >> child;) children.push_back(child);
  return children;
}

// Whether a process runs, one that has ended and was not waited for not counting.
bool runs(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(in, text);
  const std::size_t state = text.rfind(')');
  return state != std::string::npos && text.compare(state, 3, ") Z") != 0;
}

class Ended : public testing::TestWithParam<int> {};

std::string signal_name(const testing::TestParamInfo<int>& info) {
  return std::string("BySig") + sigabbrev_np(info.param);
}

// What a line of the demo looks like on a terminal; nothing where there can be none.
std::optional<std::string> on_terminal(bool no_color) {
  int terminal = -1;
  const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid == -1) return std::nullopt;
  if (pid == 0) {
    setenv("TERM", "xterm", 1);
    unsetenv("NO_COLOR");
    if (no_color) setenv("NO_COLOR", "", 1);
    demo::Screen().line("display", "text");
    _exit(0);
  }
  std::string text;
  char chunk[256];
  for (ssize_t count; (count = read(terminal, chunk, sizeof chunk)) > 0;) {
    text.append(chunk, static_cast<std::size_t>(count));
  }
  close(terminal);
  waitpid(pid, nullptr, 0);
  return text;
}

}  // namespace

TEST(Demo, NamesTheProcessThatHasThePort) {
  zedipc::TCP listener;
  ASSERT_TRUE(listener.listen(common::kPort, "127.0.0.1"));
  const Result result = run(program("demo"));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output.find("demo: port 5899, which the notification server needs, is taken by "
                               "process " +
                               std::to_string(getpid()) + " (" + demo::own_directory() +
                               "/examples_test"),
            0U)
      << result.output;
}

TEST(Demo, NamesTheProcessThatHasThePortOnAllAddresses) {
  zedipc::TCP listener;
  ASSERT_TRUE(listener.listen(common::kPort));
  const Result result = run(program("demo"));
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("process " + std::to_string(getpid()) + " ("), std::string::npos)
      << result.output;
}

TEST(Demo, SaysThatThePortBelongsToAnotherUser) {
  constexpr unsigned kNobody = 65534;
  if (geteuid() != 0) GTEST_SKIP() << "only root can be two users";
  zedipc::TCP listener;
  ASSERT_TRUE(listener.listen(common::kPort, "127.0.0.1"));
  const std::string path = program("demo");
  constexpr int kOutOfReach = 77;
  const auto result = zedipc::test::run_in_child({}, [&] {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(kOutOfReach);
    execl(path.c_str(), path.c_str(), nullptr);
    _exit(kOutOfReach);
  });
  if (result.status == kOutOfReach) GTEST_SKIP() << "other users cannot run " << path;
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("taken by a process that belongs to another user (root, uid 0)"),
            std::string::npos)
      << result.err;
}

TEST(Demo, SaysWhichNotificationIsMissingAndWhichTooMuch) {
  const Stage stage;
  // Two displays with one priority: what is sent to the highest goes to the wrong one.
  stage.replace("display", "exec '" + program("display") + "' \"$1\" 1");
  const Result result = run(stage.demo());
  EXPECT_EQ(result.status, 1);
  const auto says = [&result](const std::string& line) {
    return result.output.find(line) != std::string::npos;
  };
  EXPECT_TRUE(says("FAILED: something unexpected has arrived")) << result.output;
  EXPECT_TRUE(says("missing: display: got paper.out from printer to 1: {\"tray\":3}"))
      << result.output;
  // The story ends with the first of the two that arrives.
  EXPECT_TRUE(says("unexpected: display-spare: got paper.out from printer to 1: {\"tray\":3}") ||
              says("unexpected: monitor: saw paper.out from printer to display-spare"))
      << result.output;
}

TEST(Demo, SaysWhichProgramEndedByItself) {
  const Stage stage;
  stage.replace("monitor", "exit 3");
  const Result result = run(stage.demo());
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("monitor ended by itself: exit status 3"), std::string::npos)
      << result.output;
}

TEST(Demo, GivesUpOnAProgramThatSaysNothing) {
  const Stage stage;
  stage.replace("display", "exec sleep 1000");
  const Result result = run(stage.demo());
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("waited in vain until display has registered"), std::string::npos)
      << result.output;
}

TEST(Demo, GivesUpOnAMonitorThatSeesNothing) {
  const Stage stage;
  stage.replace("monitor", "echo monitor: observing; exec '" + program("display") + "' blind 0");
  const Result result = run(stage.demo());
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("until display-spare gets something and the monitor sees it"),
            std::string::npos)
      << result.output;
}

TEST(Demo, SaysWhichProgramIsNotThere) {
  const Stage stage;
  stage.remove("server");
  const Result result = run(stage.demo());
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("/server: No such file or directory"), std::string::npos)
      << result.output;
}

TEST_P(Ended, LeavesNothingRunning) {
  Running demo(program("demo"));
  ASSERT_TRUE(demo.prints("they look for the server by themselves"));
  const std::vector<pid_t> children = children_of(demo.pid());
  ASSERT_EQ(children.size(), 5U);
  EXPECT_EQ(demo.end(GetParam()).status, GetParam() == SIGKILL ? -1 : 1);
  for (const pid_t child : children) {
    EXPECT_TRUE(eventually([child] { return !runs(child); })) << child;
  }
}

INSTANTIATE_TEST_SUITE_P(Demo, Ended, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGKILL),
                         signal_name);

TEST(Demo, SaysThatItWasInterrupted) {
  Running demo(program("demo"));
  ASSERT_TRUE(demo.prints("they look for the server by themselves"));
  const Result result = demo.end(SIGINT);
  EXPECT_NE(result.output.find("FAILED: interrupted"), std::string::npos) << result.output;
}

TEST(Demo, FailsWhenItCannotPrint) {
  const Result result = run("/bin/sh", {"-c", "exec '" + program("demo") + "' > /dev/full"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "demo: cannot write to standard output: No space left on device\n");
}

TEST(Screen, UsesColourOnATerminal) {
  const std::optional<std::string> text = on_terminal(false);
  if (!text) GTEST_SKIP() << "there are no pseudo terminals here";
  EXPECT_NE(text->find("\033[32mdisplay"), std::string::npos);
}

TEST(Screen, UsesNoColourOnATerminalWithNoColorSet) {
  const std::optional<std::string> text = on_terminal(true);
  if (!text) GTEST_SKIP() << "there are no pseudo terminals here";
  EXPECT_EQ(*text, "display       | text\r\n");
}

TEST(Ledger, MissesWhatIsExpectedTwiceAndArrivedOnce) {
  const demo::Arrival arrival{"display", "got it"};
  demo::Ledger ledger;
  ledger.expect(arrival);
  ledger.expect(arrival);
  ledger.record(arrival);
  EXPECT_EQ(ledger.missing(), std::vector<demo::Arrival>{arrival});
}

TEST(Ledger, FindsASecondArrivalUnexpected) {
  const demo::Arrival arrival{"display", "got it"};
  demo::Ledger ledger;
  ledger.expect(arrival);
  ledger.record(arrival);
  ledger.record(arrival);
  EXPECT_EQ(ledger.unexpected(), std::vector<demo::Arrival>{arrival});
}

TEST(Ledger, TellsReceiversApart) {
  demo::Ledger ledger;
  ledger.expect({"display", "got it"});
  ledger.record({"display-spare", "got it"});
  EXPECT_EQ(ledger.missing().size(), 1U);
  EXPECT_EQ(ledger.unexpected().size(), 1U);
}

TEST(Ledger, DoesNotMissWhatIsOnlyAllowed) {
  demo::Ledger ledger;
  ledger.allow({"display", "got it"});
  EXPECT_TRUE(ledger.missing().empty());
}

TEST(Ledger, FindsWhatIsNoLongerAllowedUnexpected) {
  const demo::Arrival arrival{"display", "got it"};
  demo::Ledger ledger;
  ledger.allow(arrival);
  ledger.disallow(arrival);
  ledger.record(arrival);
  EXPECT_EQ(ledger.unexpected(), std::vector<demo::Arrival>{arrival});
}
