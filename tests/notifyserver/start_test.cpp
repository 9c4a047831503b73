// SPDX-License-Identifier: MIT
// How the server starts, and how it fails to.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <zedipc/notify.h>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/allocations.h"
#include "support/child.h"
#include "support/failing_threads.h"
#include "support/log_lines.h"
#include "support/raw_peer.h"
#include "support/scratch_dir.h"
#include "support/server_process.h"

using namespace zedipc;
using namespace zedipc::test;
using Lines = std::vector<std::string>;

namespace {

const Environment kEveryLine{{"NFY_LOGMASK", "255"}, {"IPC_LOGMASK", "255"}};

const char kStartedLocal[] =
    "NFY:info|ipcNotificationServer(): notification service started on local listen port 5899";
const char kStartedExternal[] =
    "NFY:info|ipcNotificationServer(): notification service started on external listen port 5899";
const char kNoLocalPort[] =
    "NFY:error|ipcNotificationServer(): couldn't open local listen port 5899";
const char kNoExternalPort[] =
    "NFY:error|ipcNotificationServer(): couldn't open external listen port 5899";

const char kAnyIPv6[] = "00000000000000000000000000000000";
const char kLoopback[] = "0100007F";

// The addresses, as the system prints them, on which something listens at the port.
Lines listening_addresses() {
  Lines result;
  for (const char* table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    std::ifstream in(table);
    std::string line;
    while (std::getline(in, line)) {
      std::istringstream fields(line);
      std::string number, local, remote, state;
      fields >> number >> local >> remote >> state;
      const std::size_t colon = local.find(':');
      if (state == "0A" && local.substr(colon + 1) == "170B") {
        result.push_back(local.substr(0, colon));
      }
    }
  }
  return result;
}

// The start of the server is logged at its very end, so this also waits for the port.
Lines wait_for_start(const Child& child) {
  EXPECT_TRUE(child.wait_for_err("notification service started"));
  return log_messages(child.err(), "", "NFY");
}

bool refuses(const std::string& address) {
  sockaddr_in target{};
  target.sin_family = AF_INET;
  target.sin_port = htons(kNotifyPort);
  EXPECT_EQ(inet_pton(AF_INET, address.c_str(), &target.sin_addr), 1);
  const RawPeer peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return ::connect(peer.fd(), reinterpret_cast<const sockaddr*>(&target), sizeof target) == -1;
}

// The number of descriptors that a process can have, for the life of the object.
class DescriptorLimit {
 public:
  DescriptorLimit(pid_t pid, rlim_t count) : pid_(pid) {
    EXPECT_EQ(prlimit(pid_, RLIMIT_NOFILE, nullptr, &usual_), 0);
    const rlimit limit{count, usual_.rlim_max};
    EXPECT_EQ(prlimit(pid_, RLIMIT_NOFILE, &limit, nullptr), 0);
  }
  ~DescriptorLimit() { EXPECT_EQ(prlimit(pid_, RLIMIT_NOFILE, &usual_, nullptr), 0); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  const pid_t pid_;
  rlimit usual_{};
};

// One byte from one process to another that was forked from it.
class Signal {
 public:
  Signal() { EXPECT_EQ(pipe(ends_), 0); }
  ~Signal() {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;
  void give() const { EXPECT_EQ(::write(ends_[1], "x", 1), 1); }
  void wait() const {
    char byte;
    EXPECT_EQ(::read(ends_[0], &byte, 1), 1);
  }

 private:
  int ends_[2];
};

}  // namespace

TEST(Start, WithoutRulesListensOnTheLoopbackAddressAlone) {
  const Child child(kAllLevels, [] { ipcNotificationServer(); });
  EXPECT_EQ(wait_for_start(child), Lines{kStartedLocal});
  EXPECT_EQ(listening_addresses(), Lines{kLoopback});
}

TEST(Start, WithANullFileIsOneWithoutRules) {
  const Child child(kAllLevels, [] { ipcNotificationServer(nullptr); });
  EXPECT_EQ(wait_for_start(child), Lines{kStartedLocal});
  EXPECT_EQ(listening_addresses(), Lines{kLoopback});
}

TEST(Start, WithoutRulesIsOutOfReachAtOtherAddresses) {
  const Child child(kAllLevels, [] { ipcNotificationServer(); });
  wait_for_start(child);
  EXPECT_TRUE(refuses("127.0.0.2"));
  EXPECT_FALSE(refuses("127.0.0.1"));
}

TEST(Start, WithAnInRuleListensOnAllInterfaces) {
  const ScratchDir dir;
  const std::string file = dir.write("rules", "in a b c\n");
  const Child child(kAllLevels, [&] { ipcNotificationServer(file.c_str()); });
  EXPECT_EQ(wait_for_start(child), Lines{kStartedExternal});
  EXPECT_EQ(listening_addresses(), Lines{kAnyIPv6});
}

TEST(Start, WithAnOutRuleListensOnAllInterfaces) {
  const ScratchDir dir;
  const std::string file = dir.write("rules", "out a b c\n");
  const Child child(kAllLevels, [&] { ipcNotificationServer(file.c_str()); });
  EXPECT_EQ(wait_for_start(child), Lines{kStartedExternal});
  EXPECT_FALSE(refuses("127.0.0.2"));
}

TEST(Start, WithAnOutRuleAloneLetsRemoteClientsRegisterAndSendNothing) {
  ServerProcess server("out * * *\n", kAllLevels);
  const RawPeer remote = join("far", "n", 1, kRemote);
  const int identity = settle(remote);
  remote.send_message(notification("far", "n"));
  EXPECT_EQ(remote.receive_message(), unicast_error("far", "n", identity));
  const RawPeer local = RawPeer::connect();
  local.send_message(notification("*", "n"));
  EXPECT_EQ(remote.receive_message(), notification("*", "n"));
}

TEST(Start, FailsWhenThePortIsTaken) {
  const RawListener other;
  const ChildResult result =
      run_in_child(kAllLevels, [] { EXPECT_EQ(ipcNotificationServer(), -3); });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(log_messages(result.err, "", "NFY"), Lines{kNoLocalPort});
}

TEST(Start, FailsWhenThePortIsTakenOnAllInterfaces) {
  const RawListener other("0.0.0.0");
  const ScratchDir dir;
  const std::string file = dir.write("rules", kOpen);
  const ChildResult result =
      run_in_child(kAllLevels, [&] { EXPECT_EQ(ipcNotificationServer(file.c_str()), -3); });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(log_messages(result.err, "", "NFY"), Lines{kNoExternalPort});
}

TEST(Start, MaySucceedOnceThePortIsFree) {
  const Child child(kAllLevels, [] {
    {
      const RawListener other;
      EXPECT_EQ(ipcNotificationServer(), -3);
    }
    ipcNotificationServer();
  });
  EXPECT_EQ(wait_for_start(child), (Lines{kNoLocalPort, kStartedLocal}));
  settle(RawPeer::connect());
}

TEST(Start, KeepsTheRulesWhenThePortIsTaken) {
  const ScratchDir dir;
  const std::string file = dir.write("rules", kOpen);
  const Child child(kAllLevels, [&] {
    {
      const RawListener other("0.0.0.0");
      EXPECT_EQ(ipcNotificationServer(file.c_str()), -3);
    }
    ipcNotificationServer();
  });
  EXPECT_EQ(wait_for_start(child), (Lines{kNoExternalPort, kStartedExternal}));
}

TEST(Start, OfASecondServerInTheProcessFailsWithoutAWord) {
  const ScratchDir dir;
  const std::string file = dir.write("rules", "bad");
  const Signal go;
  const Child child(kEveryLine, [&] {
    std::thread([] { ipcNotificationServer(); }).detach();
    go.wait();
    dprintf(STDERR_FILENO, "begin\n");
    const int results[] = {ipcNotificationServer(), ipcNotificationServer(nullptr),
                           ipcNotificationServer(file.c_str()),
                           ipcNotificationServer("/missing/file")};
    dprintf(STDERR_FILENO, "end: %d %d %d %d\n", results[0], results[1], results[2], results[3]);
    pause();
  });
  wait_for_start(child);
  go.give();
  EXPECT_TRUE(child.wait_for_err("end"));
  const std::string said = child.err().substr(child.err().find("begin"));
  EXPECT_NE(said.find("end: -3 -3 -3 -3\n"), std::string::npos) << said;
  EXPECT_EQ(log_messages(said), Lines{});
}

TEST(Start, OfASecondServerLeavesTheFirstAtWork) {
  const Signal go;
  const Child child(kAllLevels, [&] {
    std::thread([] { ipcNotificationServer(); }).detach();
    go.wait();
    dprintf(STDOUT_FILENO, "second: %d\n", ipcNotificationServer());
    pause();
  });
  wait_for_start(child);
  const RawPeer old = join("display", "n");
  go.give();
  EXPECT_TRUE(eventually([&] { return child.out() == "second: -3\n"; })) << child.out();
  const RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "n"));
  EXPECT_EQ(old.receive_message(), notification("*", "n"));
}

TEST(Start, OfASecondServerWaitsForTheFirst) {
  const ScratchDir dir;
  const std::string fifo = dir.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Signal go;
  const Child child(kAllLevels, [&] {
    std::thread([&] { ipcNotificationServer(fifo.c_str()); }).detach();
    go.wait();
    dprintf(STDOUT_FILENO, "called\n");
    dprintf(STDOUT_FILENO, "second: %d\n", ipcNotificationServer());
    pause();
  });
  // The first call now reads its file, for as long as this end stays open.
  int writer = -1;
  ASSERT_TRUE(eventually(
      [&] { return (writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) != -1; }));
  go.give();
  EXPECT_TRUE(eventually([&] { return child.out() == "called\n"; }));
  EXPECT_FALSE(eventually([&] { return child.out() != "called\n"; }, 200));
  ::close(writer);
  EXPECT_EQ(wait_for_start(child), Lines{kStartedLocal});
  EXPECT_TRUE(eventually([&] { return child.out() == "called\nsecond: -3\n"; })) << child.out();
}

TEST(Start, FailsWhenTheFileCannotBeOpened) {
  const ScratchDir dir;
  const std::string file = dir.file("missing");
  const ChildResult result =
      run_in_child(kEveryLine, [&] { EXPECT_EQ(ipcNotificationServer(file.c_str()), -4); });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(log_messages(result.err),
            Lines{"NFY:error|ipcNotificationServer(): couldn't open config file '" + file + "'"});
}

TEST(Start, FailsWhenTheFileHasNoName) {
  const ChildResult result =
      run_in_child(kAllLevels, [] { EXPECT_EQ(ipcNotificationServer(""), -4); });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(log_messages(result.err),
            Lines{"NFY:error|ipcNotificationServer(): couldn't open config file ''"});
}

TEST(Start, FailsWhenTheFileHasASyntaxError) {
  const ScratchDir dir;
  const std::string file = dir.write("rules", "in a b c\nin a b\n");
  const ChildResult result =
      run_in_child(kEveryLine, [&] { EXPECT_EQ(ipcNotificationServer(file.c_str()), -5); });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(log_messages(result.err),
            Lines{"NFY:error|ipcNotificationServer(): syntax error in config file '" + file + "'"});
}

TEST(Start, LeavesNoDescriptorsBehindWhenItFails) {
  const ScratchDir dir;
  const std::string bad = dir.write("bad", "bad");
  const std::string missing = dir.file("missing");
  const RawListener other;
  const ChildResult result = run_in_child({}, [&] {
    const int before = dup(0);
    for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(ipcNotificationServer(), -3);
      EXPECT_EQ(ipcNotificationServer(missing.c_str()), -4);
      EXPECT_EQ(ipcNotificationServer(bad.c_str()), -5);
    }
    // The system gives the lowest number that is free.
    EXPECT_EQ(dup(0), before + 1);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Start, UsesTheRulesAheadOfASyntaxErrorWhenCalledAgainWithoutAFile) {
  const ScratchDir dir;
  const std::string file = dir.write("rules", "in * * *\nout * * *\nbad\n");
  const Child child(kAllLevels, [&] {
    EXPECT_EQ(ipcNotificationServer(file.c_str()), -5);
    ipcNotificationServer();
  });
  EXPECT_EQ(wait_for_start(child).back(), kStartedExternal);
  EXPECT_EQ(listening_addresses(), Lines{kAnyIPv6});
  const RawPeer remote = join("far", "n", 1, kRemote);
  remote.send_message(notification("*", "n"));
  EXPECT_EQ(remote.receive_message(), notification("*", "n"));
}

TEST(Start, ForgetsTheRulesAheadOfASyntaxErrorWhenCalledAgainWithAFile) {
  const ScratchDir dir;
  const std::string bad = dir.write("bad", "in * * *\nbad\n");
  const std::string empty = dir.write("empty", "");
  const Child child(kAllLevels, [&] {
    EXPECT_EQ(ipcNotificationServer(bad.c_str()), -5);
    ipcNotificationServer(empty.c_str());
  });
  EXPECT_EQ(wait_for_start(child).back(), kStartedLocal);
}

TEST(Start, IsNotLoggedBelowTheLevel) {
  const Environment no_infos{{"NFY_LOGMASK", "191"}, {"IPC_LOGMASK", "0"}};
  ServerProcess server(no_infos);
  settle(RawPeer::connect());
  EXPECT_EQ(server.err().find("ipcNotificationServer()"), std::string::npos);
}

TEST(Listener, LogsEachSessionOnce) {
  ServerProcess server(kAllLevels);
  const RawPeer first = RawPeer::connect();
  const RawPeer second = RawPeer::connect();
  settle(first);
  settle(second);
  Lines accepted;
  for (const std::string& line : log_messages(server.err(), "", "NFY")) {
    if (line.find("ipcNotificationServer()") != std::string::npos) accepted.push_back(line);
  }
  EXPECT_EQ(accepted, (Lines{kStartedLocal,
                             "NFY:info|ipcNotificationServer(): accepted new session (ipc=PTR)",
                             "NFY:info|ipcNotificationServer(): accepted new session (ipc=PTR)"}));
}

TEST(Listener, GoesOnWhenAPeerCannotBeAccepted) {
  const Environment errors{{"IPC_LOGMASK", "8"}};
  ServerProcess server(errors);
  const RawPeer old = RawPeer::connect();
  settle(old);
  RawPeer waiting;
  {
    const DescriptorLimit limit(server.process().pid(), 3);
    waiting = RawPeer::connect();
    EXPECT_TRUE(server.process().wait_for_err("TCP::accept(): accept() failed"));
  }
  settle(waiting);
  settle(old);
}

TEST(Listener, PausesBetweenAttemptsWhileItHasNoDescriptors) {
  const Environment errors{{"IPC_LOGMASK", "8"}};
  ServerProcess server(errors);
  const DescriptorLimit limit(server.process().pid(), 3);
  const RawPeer waiting = RawPeer::connect();
  EXPECT_TRUE(server.process().wait_for_err("TCP::accept(): accept() failed"));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_LT(log_messages(server.err()).size(), 30U);
}

TEST(Listener, ClosesASessionThatGetsNoThread) {
  const Child child(kAllLevels, [] {
    fail_threads(1);
    ipcNotificationServer();
  });
  wait_for_start(child);
  EXPECT_TRUE(RawPeer::connect().at_end());
  const RawPeer served = RawPeer::connect();
  settle(served);
  EXPECT_EQ(log_messages(child.err(), "error", "NFY"),
            Lines{"NFY:error|ipcNotificationServer(): pthread_create() failed with error=" +
                  std::to_string(EAGAIN) + ", close session (ipc=PTR)"});
}

TEST(Listener, GoesOnWhenThereIsNoMemoryForASession) {
  const Child child(kAllLevels, [] {
    // The first call that starts fails with the allocation after that.
    for (int number = 1;; ++number) {
      fail_allocation(number);
      try {
        ipcNotificationServer();
      } catch (const std::bad_alloc&) {
      }
    }
  });
  wait_for_start(child);
  EXPECT_TRUE(RawPeer::connect().at_end());
  settle(RawPeer::connect());
}
