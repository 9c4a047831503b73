// SPDX-License-Identifier: MIT
// zedipc serve.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <zedipc/tcp.h>

#include <array>
#include <cstddef>
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

// The socket of a service manager, whose name begins with '@' if it is no file.
class Manager {
 public:
  explicit Manager(const std::string& name) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    if (name[0] == '@') address.sun_path[0] = '\0';
    const std::size_t length = offsetof(sockaddr_un, sun_path) + name.size();
    EXPECT_EQ(
        bind(fd_, reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(length)), 0);
  }
  ~Manager() { close(fd_); }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  // What it is told within `msec`; "" for nothing.
  [[nodiscard]] std::string told(int msec) const {
    pollfd waited{fd_, POLLIN, 0};
    if (poll(&waited, 1, msec) != 1) return "";
    char text[64];
    const ssize_t count = recv(fd_, text, sizeof text, 0);
    return {text, static_cast<std::size_t>(count)};
  }

 private:
  int fd_;
};

// A server that logs all it does, and the end from which its log can be read.
class LoggingServer {
 public:
  LoggingServer() {
    EXPECT_TRUE(port_is_open_soon());
    close(ends_[1]);
  }
  ~LoggingServer() { close_log(); }
  LoggingServer(const LoggingServer&) = delete;
  LoggingServer& operator=(const LoggingServer&) = delete;

  Child& process() { return child_; }

  void close_log() {
    if (ends_[0] != -1) close(ends_[0]);
    ends_[0] = -1;
  }

  // Reads the log until `text` has come.
  [[nodiscard]] bool logs(const std::string& text) const {
    std::string log;
    char chunk[65536];
    while (log.find(text) == std::string::npos) {
      pollfd waited{ends_[0], POLLIN, 0};
      if (poll(&waited, 1, 10000) != 1) return false;
      const ssize_t count = read(ends_[0], chunk, sizeof chunk);
      if (count <= 0) return false;
      log.append(chunk, static_cast<std::size_t>(count));
    }
    return true;
  }

 private:
  static bool port_is_open_soon() {
    return zedipc::test::eventually([] { return port_is_open(kNotifyPort); });
  }

  // A small pipe, which is soon full.
  static std::array<int, 2> make_pipe() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    return ends;
  }

  std::array<int, 2> ends_ = make_pipe();
  Child child_{{{"IPC_LOGMASK", "255"}, {"NFY_LOGMASK", "255"}}, [this] {
                 dup2(ends_[1], STDERR_FILENO);
                 become({"serve"});
               }};
};

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

TEST(Serve, TellsTheServiceManagerOnceItListens) {
  const ScratchDir dir;
  const Manager manager(dir.file("notify"));
  const Tool server({"serve"}, "", {{"NOTIFY_SOCKET", dir.file("notify")}});
  EXPECT_EQ(manager.told(20000), "READY=1");
  EXPECT_TRUE(port_is_open(kNotifyPort));
}

TEST(Serve, TellsAServiceManagerWhoseSocketIsNoFile) {
  const std::string name = "@zedipc-test-" + std::to_string(getpid());
  const Manager manager(name);
  const Tool server({"serve"}, "", {{"NOTIFY_SOCKET", name}});
  EXPECT_EQ(manager.told(20000), "READY=1");
}

TEST(Serve, TellsTheServiceManagerNothingIfItCannotStart) {
  Tool first({"serve"});
  ASSERT_TRUE(first.prints("\n"));
  const ScratchDir dir;
  const Manager manager(dir.file("notify"));
  EXPECT_EQ(run({"serve"}, "", {{"NOTIFY_SOCKET", dir.file("notify")}}).status, 1);
  EXPECT_EQ(manager.told(0), "");
}

TEST(Serve, ServesOnWhenTheServiceManagerCannotBeTold) {
  const ScratchDir dir;
  Tool server({"serve"}, "", {{"NOTIFY_SOCKET", dir.file("none")}});
  EXPECT_TRUE(server.wait_for_err("cannot tell the service manager"));
  EXPECT_EQ(run({"ping", "--count", "1"}).status, 0);
}

TEST(Serve, ServesOnWhenTheReaderOfItsLogHasGone) {
  LoggingServer server;
  server.close_log();
  EXPECT_EQ(run({"ping", "--count", "3", "--interval", "10"}).status, 0);
}

TEST(Serve, ServesOnWhileNobodyReadsItsLog) {
  const LoggingServer server;
  EXPECT_EQ(run({"send", "nobody", "n", "--count", "1500"}).status, 0);
  EXPECT_EQ(run({"ping", "--count", "1"}).status, 0);
}

TEST(Serve, SaysHowMuchOfItsLogNobodyRead) {
  const LoggingServer server;
  EXPECT_EQ(run({"send", "nobody", "n", "--count", "1500"}).status, 0);
  EXPECT_TRUE(server.logs(" lines of the log are missing here"));
}

TEST(Serve, EndsWhileNobodyReadsItsLog) {
  LoggingServer server;
  EXPECT_EQ(run({"send", "nobody", "n", "--count", "1500"}).status, 0);
  server.process().kill(SIGTERM);
  EXPECT_EQ(server.process().wait(10), 0);
}

TEST(Serve, PassesOnTheWholeLogToAReader) {
  LoggingServer server;
  EXPECT_EQ(run({"send", "nobody", "the.last", "--from", "the.sender"}).status, 0);
  server.process().kill(SIGTERM);
  EXPECT_TRUE(server.logs("the.last"));
  EXPECT_EQ(server.process().wait(), 0);
}

TEST(Serve, ServesAlthoughNobodyHearsItsFirstWords) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  const Child server({}, [&] {
    dup2(ends[1], STDOUT_FILENO);
    become({"serve"});
  });
  close(ends[1]);
  EXPECT_TRUE(zedipc::test::eventually([] { return port_is_open(kNotifyPort); }));
  const Result result = run({"ping", "--count", "3", "--interval", "100"});
  EXPECT_TRUE(contains(result.out, "3 received")) << result.out;
}
