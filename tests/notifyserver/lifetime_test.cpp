// SPDX-License-Identifier: MIT
// A server process over many sessions, and its end while they live.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <zedipc/notify.h>

#include "notifyserver/messages.h"
#include "notifyserver/stall.h"
#include "support/child.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// How many descriptors ("fd") or threads ("task") the process has.
std::ptrdiff_t count_of(pid_t pid, const std::string& what) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/" + what);
  return std::distance(begin(entries), end(entries));
}

// A server whose process ends by exit() when told to.
class EndingServer {
 public:
  EndingServer() {
    EXPECT_EQ(pipe(ends_), 0);
    child_ = std::make_unique<Child>(Environment{{"NFY_LOGMASK", "255"}}, [this] {
      std::thread([] { ipcNotificationServer(); }).detach();
      char byte;
      if (::read(ends_[0], &byte, 1) == 1) std::exit(0);
    });
    EXPECT_TRUE(child_->wait_for_err("notification service started"));
  }
  ~EndingServer() {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }
  EndingServer(const EndingServer&) = delete;
  EndingServer& operator=(const EndingServer&) = delete;

  // Has the process exit, and gives its status.
  int end() {
    EXPECT_EQ(::write(ends_[1], "x", 1), 1);
    return child_->wait();
  }
  [[nodiscard]] std::string err() const { return child_->err(); }

 private:
  int ends_[2];
  std::unique_ptr<Child> child_;
};

}  // namespace

TEST(Lifetime, SessionsLeaveNoDescriptorsOrThreadsBehind) {
  ServerProcess server;
  const pid_t pid = server.process().pid();
  const RawPeer staying = RawPeer::connect();
  settle(staying);
  const auto descriptors = count_of(pid, "fd");
  const auto threads = count_of(pid, "task");
  for (int i = 0; i < 300; ++i) {
    const std::string name = "n" + std::to_string(i);
    RawPeer peer = join("display", name);
    peer.send_message(kObserve);
    peer.send_message(notification("*", name));
    if (i % 2 == 0) peer.reset();
  }
  EXPECT_TRUE(eventually([&] { return count_of(pid, "fd") == descriptors; }))
      << count_of(pid, "fd") << " instead of " << descriptors;
  EXPECT_TRUE(eventually([&] { return count_of(pid, "task") == threads; }))
      << count_of(pid, "task") << " instead of " << threads;
}

TEST(Lifetime, TheProcessExitsWhileSessionsWait) {
  EndingServer server;
  std::vector<RawPeer> peers;
  for (int i = 0; i < 10; ++i) {
    peers.push_back(join("display", "n"));
    peers.back().send_message(kObserve);
    settle(peers.back());
  }
  EXPECT_EQ(server.end(), 0) << server.err();
}

TEST(Lifetime, TheProcessExitsWhileSessionsAreBusy) {
  EndingServer server;
  std::vector<RawPeer> peers;
  for (int i = 0; i < 4; ++i) peers.push_back(join("display", "n"));
  std::atomic<bool> ended{false};
  std::atomic<int> received{0};
  std::vector<std::thread> threads;
  for (const RawPeer& peer : peers) {
    threads.emplace_back([&] {
      const std::string text = frame(kNotifyFrame, 0, registration("display", "m")) +
                               frame(kNotifyFrame, 0, notification("*", "n")) +
                               frame(kNotifyFrame, 0, unregistration("display", "m"));
      char buffer[65536];
      while (!ended) {
        // A frame may be cut short here; the server then looks for the next one.
        static_cast<void>(::send(peer.fd(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
        while (::recv(peer.fd(), buffer, sizeof buffer, MSG_DONTWAIT) > 0) ++received;
      }
    });
  }
  EXPECT_TRUE(eventually([&] { return received > 200; }));
  EXPECT_EQ(server.end(), 0);
  ended = true;
  for (std::thread& thread : threads) thread.join();
}

TEST(Lifetime, TheProcessExitsWhileASessionIsStalled) {
  EndingServer server;
  const RawPeer narrow = join_narrow("narrow", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  EXPECT_EQ(server.end(), 0) << server.err();
}
