// SPDX-License-Identifier: MIT
// A link that dies without a word, as a cable does that is pulled: how long an end takes to
// notice is the kernel's to say.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zedipc/tcp.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "support/child.h"
#include "support/own_namespace.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

bool set_loopback(short flags) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = flags;
  const bool done = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  ::close(fd);
  return done;
}

bool set_kernel(const std::string& name, int value) {
  const std::string path = "/proc/sys/net/ipv4/" + name;
  write_file(path.c_str(), std::to_string(value));
  int now = -1;
  std::ifstream(path) >> now;
  return now == value;
}

// Keep-alive is given up after two seconds without an answer, data after three.
bool set_short_times() {
  return set_kernel("tcp_keepalive_time", 1) && set_kernel("tcp_keepalive_intvl", 1) &&
         set_kernel("tcp_keepalive_probes", 1) && set_kernel("tcp_retries2", 3);
}

// Runs `body` with the two ends of a connection, in a network of its own, which it cuts.
void with_connection(const std::function<void(IPC& one, IPC& other)>& body) {
  const ChildResult result = run_in_child({}, [&] {
    if (!enter_namespace(CLONE_NEWNET) || !set_loopback(IFF_UP) || !set_short_times()) _exit(77);
    TCP listener;
    ASSERT_TRUE(listener.listen(5899, "127.0.0.1"));
    TCP one;
    ASSERT_TRUE(one.connect("127.0.0.1", 5899, -1));
    const std::unique_ptr<IPC> other(listener.accept(-1));
    ASSERT_NE(other, nullptr);
    body(one, *other);
  });
  if (result.status == 77) GTEST_SKIP() << "the kernel's times cannot be set here";
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

using Clock = std::chrono::steady_clock;

}  // namespace

TEST(DeadLink, IsNoticedByAReaderWhenTheKernelsKeepaliveGivesUp) {
  with_connection([](IPC& reader, IPC&) {
    ASSERT_TRUE(set_loopback(0));
    const auto start = Clock::now();
    char byte;
    EXPECT_EQ(reader.read(&byte, 1, 30000), 0);
    EXPECT_TRUE(reader.error());
    EXPECT_GT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
  });
}

TEST(DeadLink, HoldsAWriterUntilTheKernelHasTriedOftenEnough) {
  with_connection([](IPC& writer, IPC&) {
    ASSERT_TRUE(set_loopback(0));
    const auto start = Clock::now();
    const std::string block(1 << 16, 'x');
    while (writer.write(block.data(), static_cast<int>(block.size()))) {
    }
    EXPECT_TRUE(writer.error());
    EXPECT_GT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
  });
}
