// SPDX-License-Identifier: MIT
// zedipc send, and what comes on standard input.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/server_process.h"
#include "tools/receiver.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::Child;
using zedipc::test::ServerProcess;

namespace {

// The command, with a pipe as its standard input.
class OnAPipe {
 public:
  explicit OnAPipe(const Arguments& arguments, const std::string& input = "") {
    EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
    type(input);
    child_ = std::make_unique<Child>(Environment{}, [&] {
      dup2(ends_[0], STDIN_FILENO);
      become(arguments);
    });
    close(ends_[0]);
  }
  ~OnAPipe() { end_input(); }
  OnAPipe(const OnAPipe&) = delete;
  OnAPipe& operator=(const OnAPipe&) = delete;

  void type(const std::string& text) const {
    EXPECT_EQ(write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void end_input() {
    if (ends_[1] != -1) close(ends_[1]);
    ends_[1] = -1;
  }
  Child& process() { return *child_; }

 private:
  int ends_[2] = {-1, -1};
  std::unique_ptr<Child> child_;
};

}  // namespace

TEST(SendLines, SendsEachLine) {
  const ServerProcess server;
  const Receiver receiver;
  const Result result = run({"send", "--broadcast", "n", "--lines"}, "1\n{\"a\":[2 3]}\n\"x\"");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(receiver.next(), message("*", "1"));
  EXPECT_EQ(receiver.next(), message("*", R"({"a":[2,3]})"));
  EXPECT_EQ(receiver.next(), message("*", R"("x")"));
  EXPECT_TRUE(receiver.peer().silent(100));
}

TEST(SendLines, SendsLinesThatAreTexts) {
  const ServerProcess server;
  const Receiver receiver;
  EXPECT_EQ(run({"send", "--broadcast", "n", "--lines", "--string"}, "{\n\nb\n").status, 0);
  EXPECT_EQ(receiver.next(), message("*", R"("{")"));
  EXPECT_EQ(receiver.next(), message("*", R"("")"));
  EXPECT_EQ(receiver.next(), message("*", R"("b")"));
}

TEST(SendLines, SendsManyLines) {
  const ServerProcess server;
  const Receiver receiver;
  std::string lines;
  for (int i = 0; i < 20000; ++i) lines += std::to_string(i) + "\n";
  EXPECT_EQ(run({"send", "--broadcast", "n", "--lines"}, lines).status, 0);
  for (int i = 0; i < 20000; ++i) {
    const std::string expected = message("*", std::to_string(i));
    ASSERT_EQ(receiver.next(), expected);
  }
}

TEST(SendLines, SendsALineAsSoonAsItComes) {
  const ServerProcess server;
  const Receiver receiver;
  OnAPipe tool({"send", "--broadcast", "n", "--lines"});
  for (const char* line : {"1", "2"}) {
    tool.type(std::string(line) + "\n");
    EXPECT_EQ(receiver.next(), message("*", line));
  }
  tool.end_input();
  EXPECT_EQ(tool.process().wait(), 0);
}

TEST(SendLines, PausesBetweenTwo) {
  const ServerProcess server;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run({"send", "d", "n", "--lines", "--every", "150"}, "1\n2\n3\n").status, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
}

TEST(SendLines, NeedsNoServerForNoLines) {
  EXPECT_EQ(run({"send", "display", "n", "--lines"}).status, 0);
}

TEST(SendLines, EndsAtALineThatIsWrong) {
  const ServerProcess server;
  const Receiver receiver;
  const Result result = run({"send", "--broadcast", "n", "--lines"}, "1\n[2\n3\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err.find("zedipc: standard input:2:3: the JSON value is cut off here\n"), 0U)
      << result.err;
  EXPECT_EQ(receiver.next(), message("*", "1"));
  EXPECT_TRUE(receiver.peer().silent(100));
}

TEST(SendLines, RefusesAnEmptyLine) {
  EXPECT_EQ(run({"send", "display", "n", "--lines"}, "\n1\n").err,
            "zedipc: standard input:1: there is no JSON value\n");
}

TEST(SendLines, SaysThatNobodyTakesOneWhenItWaitsForThat) {
  const ServerProcess server;
  const Result result = run({"send", "nobody", "n", "--lines", "--wait", "20000"}, "1\n2\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "zedipc: nobody takes n for nobody\n");
}

TEST(SendLines, AreEndedByCtrlC) {
  const ServerProcess server;
  const Receiver receiver;
  OnAPipe tool({"send", "--broadcast", "n", "--lines"}, "1\n");
  EXPECT_EQ(receiver.next(), message("*", "1"));
  tool.process().kill(SIGINT);
  EXPECT_EQ(tool.process().wait(), 0);
  EXPECT_EQ(tool.process().err(), "");
}

TEST(SendLines, AreEndedAtOnceWhileTheServerDoesNotRead) {
  ServerProcess server;
  server.process().kill(SIGSTOP);
  OnAPipe tool({"send", "--broadcast", "n", "--lines"}, "1\n");
  ASSERT_TRUE(catches_ctrl_c(tool.process().pid()));
  tool.process().kill(SIGTERM);
  EXPECT_EQ(tool.process().wait(5), 1);
}

TEST(SendHint, TellsHowToSendWhatIsOnAPipe) {
  const ServerProcess server;
  OnAPipe tool({"send", "display", "n"}, "{\"tray\":2}\n");
  EXPECT_EQ(tool.process().wait(), 0);
  EXPECT_EQ(tool.process().err(),
            "zedipc: nothing of standard input was sent: give - as the parameter to send it\n");
}

TEST(SendHint, IsNotGivenWithAParameter) {
  const ServerProcess server;
  OnAPipe tool({"send", "display", "n", "1"}, "2\n");
  EXPECT_EQ(tool.process().wait(), 0);
  EXPECT_EQ(tool.process().err(), "");
}

TEST(SendHint, IsNotGivenForAnEmptyPipe) {
  const ServerProcess server;
  OnAPipe tool({"send", "display", "n"});
  EXPECT_EQ(tool.process().wait(), 0);
  EXPECT_EQ(tool.process().err(), "");
}
