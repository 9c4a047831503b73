// SPDX-License-Identifier: MIT
// What ends the process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>
#include <zedipc/tcp.h>

#include <stdexcept>
#include <string>

#include "ipc/callbacks.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kAborted = 128 + SIGABRT;

void allow_descriptors() {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  ASSERT_GE(limit.rlim_max, 2U * FD_SETSIZE);
  limit.rlim_cur = 2 * FD_SETSIZE;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// Leaves no descriptor free up to this one.
void open_descriptors_to(int last) {
  for (int fd = -1; fd < last;) {
    fd = dup(STDERR_FILENO);
    ASSERT_NE(fd, -1);
  }
}

// A socket with this number, which select finds readable: it is not connected.
int socket_number(int number) {
  const RawPeer low(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int fd = fcntl(low.fd(), F_DUPFD_CLOEXEC, number);
  EXPECT_EQ(fd, number);
  return fd;
}

// Expects that the system library ended the process.
void expect_overflow(const std::function<void()>& body) {
  const ChildResult result = run_in_child({}, [&] {
    allow_descriptors();
    body();
  });
  EXPECT_EQ(result.status, kAborted) << result.out << result.err;
  EXPECT_NE(result.err.find("***: terminated"), std::string::npos) << result.err;
}

}  // namespace

TEST(Descriptor, BelowTheSizeOfASetIsWatched) {
  allow_descriptors();
  Callback callback;
  TCP channel;
  channel.setFD(socket_number(FD_SETSIZE - 1));
  ASSERT_TRUE(callback.set_on(channel));
  EXPECT_TRUE(callback.called());
}

TEST(Descriptor, BeyondTheSizeOfASetAborts) {
  expect_overflow([] {
    Callback callback;
    TCP channel;
    channel.setFD(socket_number(FD_SETSIZE));
    callback.set_on(channel);
  });
}

TEST(Descriptor, OfAConnectionBeyondTheSizeOfASetAborts) {
  expect_overflow([] {
    Callback callback;
    TCP channel;
    EXPECT_TRUE(callback.set_on(channel));
    channel.setFD(socket_number(FD_SETSIZE + 1));
  });
}

TEST(Descriptor, OfAListenerBeyondTheSizeOfASetIsNotWatched) {
  const ChildResult result = run_in_child({}, [] {
    allow_descriptors();
    Callback callback;
    TCP channel;
    ASSERT_TRUE(callback.set_on(channel));
    open_descriptors_to(FD_SETSIZE);
    ASSERT_TRUE(channel.listen(0, "127.0.0.1"));
    ASSERT_GT(channel.getFD(), FD_SETSIZE);
    settle();
    EXPECT_EQ(callback.calls(), 0);
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Descriptor, OfThePipeBeyondTheSizeOfASetAborts) {
  expect_overflow([] {
    open_descriptors_to(FD_SETSIZE - 1);
    Callback callback;
    TCP channel;
    callback.set_on(channel);
  });
}

TEST(Callback, ThatThrowsEndsTheProcess) {
  const ChildResult result = run_in_child({}, [] {
    Callback callback([](IPC&) { throw std::runtime_error("thrown by a callback"); });
    Adopted adopted;
    adopted.peer.send("x");
    callback.set_on(adopted.channel);
    pause();
  });
  EXPECT_EQ(result.status, kAborted) << result.out << result.err;
  EXPECT_NE(result.err.find("thrown by a callback"), std::string::npos) << result.err;
}
