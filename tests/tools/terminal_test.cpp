// SPDX-License-Identifier: MIT
// The command on a terminal: colour, and the table that is drawn in place.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "support/raw_peer.h"
#include "support/server_process.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::RawPeer;
using zedipc::test::ServerProcess;

namespace {

// The command on a pseudo terminal of so many lines.
class OnTerminal {
 public:
  explicit OnTerminal(const Arguments& arguments, const Environment& environment = {},
                      unsigned short rows = 24) {
    winsize size{};
    size.ws_row = rows;
    size.ws_col = 80;
    pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (pid_ != 0) return;
    setenv("TERM", "xterm", 1);
    unsetenv("NO_COLOR");
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    become(arguments);
  }
  ~OnTerminal() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(terminal_);
  }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;

  // False where there are no pseudo terminals.
  [[nodiscard]] bool started() const { return pid_ > 0; }

  // Reads until the terminal has shown `text` that often.
  bool shows(const std::string& text, int times = 1) {
    for (;;) {
      int found = 0;
      for (std::size_t at = 0; (at = text_.find(text, at)) != std::string::npos; ++at) ++found;
      if (found >= times) return true;
      pollfd waited{terminal_, POLLIN, 0};
      char chunk[4096];
      if (poll(&waited, 1, 20000) != 1) return false;
      const ssize_t count = read(terminal_, chunk, sizeof chunk);
      if (count <= 0) {
        ended_ = true;
        return false;
      }
      text_.append(chunk, static_cast<std::size_t>(count));
    }
  }

  void type(char key) const { EXPECT_EQ(write(terminal_, &key, 1), 1); }
  // Types Ctrl-C.
  void interrupt() const { type(3); }

  // Whether the terminal shows what is typed, as it did at the start.
  [[nodiscard]] bool echoes() const {
    termios settings{};
    return tcgetattr(terminal_, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
  }

  // Waits for the end: the exit status, -1 after a signal.
  int wait() {
    shows("whatever is not shown, up to the end");
    if (!ended_) kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    close(terminal_);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  int terminal_ = -1;
  pid_t pid_;
  std::string text_;
  bool ended_ = false;
};

void deliver(const RawPeer& peer, const std::string& notification) {
  peer.send_message(R"({"type":"register","to":"display","notification":")" + notification +
                    R"("})");
  peer.send_message(R"({"type":"notify","from":"p","to":"display","notification":")" +
                    notification + R"("})");
}

// What one line of `observe` looks like; nothing where there are no pseudo terminals.
std::optional<std::string> observed(const Environment& environment) {
  const ServerProcess server;
  OnTerminal tool({"observe", "--count", "1"}, environment);
  if (!tool.started()) return std::nullopt;
  EXPECT_TRUE(tool.shows("observing"));
  const RawPeer peer = RawPeer::connect();
  deliver(peer, "n");
  EXPECT_EQ(tool.wait(), 0);
  return tool.text();
}

}  // namespace

TEST(Terminal, GetsColour) {
  const auto text = observed({});
  if (!text) GTEST_SKIP() << "there are no pseudo terminals here";
  EXPECT_TRUE(contains(*text, "\033[1mn\033[0m \033[36mp\033[0m -> ")) << *text;
}

TEST(Terminal, GetsNoColourWithNoColorSet) {
  const auto text = observed({{"NO_COLOR", ""}});
  if (!text) GTEST_SKIP() << "there are no pseudo terminals here";
  EXPECT_FALSE(contains(*text, "\033")) << *text;
}

TEST(Terminal, GetsNoColourIfItIsDumb) {
  const auto text = observed({{"TERM", "dumb"}});
  if (!text) GTEST_SKIP() << "there are no pseudo terminals here";
  EXPECT_FALSE(contains(*text, "\033")) << *text;
}

TEST(Terminal, ShowsTopInPlace) {
  const ServerProcess server;
  OnTerminal top({"top", "--interval", "0.1"});
  if (!top.started()) GTEST_SKIP() << "there are no pseudo terminals here";
  ASSERT_TRUE(top.shows("observing"));
  const RawPeer peer = RawPeer::connect();
  deliver(peer, "lid.open");
  ASSERT_TRUE(top.shows("lid.open"));
  // Each further table begins by going up over the three lines of the one before.
  EXPECT_TRUE(top.shows("\033[3F\033[J1 deliveries", 2));
  top.interrupt();
  EXPECT_EQ(top.wait(), 0);
}

TEST(Terminal, ShowsNoMoreOfTopThanFits) {
  const ServerProcess server;
  OnTerminal top({"top", "--interval", "0.1", "--sort", "name"}, {}, 6);
  if (!top.started()) GTEST_SKIP() << "there are no pseudo terminals here";
  ASSERT_TRUE(top.shows("observing"));
  const RawPeer peer = RawPeer::connect();
  for (const char* name : {"n1", "n2", "n3", "n4", "n5"}) deliver(peer, name);
  // Five of the six lines: the two of the heading, and three rows.
  EXPECT_TRUE(top.shows("\033[5F\033[J5 deliveries", 2));
  EXPECT_TRUE(contains(top.text(), "n3"));
  EXPECT_FALSE(contains(top.text(), "n4"));
  top.interrupt();
  EXPECT_EQ(top.wait(), 0);
}

TEST(Terminal, EndsTopByQ) {
  const ServerProcess server;
  OnTerminal top({"top", "--interval", "3600"});
  if (!top.started()) GTEST_SKIP() << "there are no pseudo terminals here";
  ASSERT_TRUE(top.shows("observing; q ends it"));
  top.type('x');
  EXPECT_FALSE(top.echoes());
  top.type('q');
  // It has gone once the terminal is as it was.
  EXPECT_TRUE(zedipc::test::eventually([&] { return top.echoes(); }));
  EXPECT_EQ(top.wait(), 0);
  EXPECT_FALSE(contains(top.text(), "x"));
}

TEST(Terminal, EndsListenByCtrlC) {
  const ServerProcess server;
  OnTerminal tool({"listen", "n"});
  if (!tool.started()) GTEST_SKIP() << "there are no pseudo terminals here";
  ASSERT_TRUE(tool.shows("listening"));
  tool.interrupt();
  EXPECT_EQ(tool.wait(), 0);
}
