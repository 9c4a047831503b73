// SPDX-License-Identifier: MIT
// TCP::accept, where the system gives answers that a test cannot have it give.
#include <gtest/gtest.h>
#include <poll.h>
#include <zedipc/tcp.h>

#include <cerrno>
#include <cstdio>

#include "ipc/endpoints.h"
#include "ipc/setup_calls.h"
#include "ipc/system_calls.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

RawPeer connect_to(const Listening& listening) {
  return RawPeer::connect("127.0.0.1", port_in(listening.channel.local_addr()));
}

}  // namespace

TEST(TcpAcceptSystemCalls, EndWithoutALineWhenPollFails) {
  expect_logged([] {
    Listening listening;
    SystemCalls calls(listening.channel.getFD());
    calls.answer_poll({{-1, ENOMEM}});
    EXPECT_EQ(listening.channel.accept(-1), nullptr);
    EXPECT_TRUE(listening.channel.is_server());
    EXPECT_FALSE(listening.channel.error());
    std::printf("IPC:debug|TCP::listen(): listening on port 0 (ip=127.0.0.1), fd=%d\n",
                listening.channel.getFD());
  });
}

TEST(TcpAcceptSystemCalls, EndWithoutALineForABadDescriptor) {
  expect_logged([] {
    Listening listening;
    SystemCalls calls(listening.channel.getFD());
    calls.answer_poll({{1, 0, POLLNVAL | POLLIN}});
    EXPECT_EQ(listening.channel.accept(-1), nullptr);
    EXPECT_FALSE(listening.channel.error());
    std::printf("IPC:debug|TCP::listen(): listening on port 0 (ip=127.0.0.1), fd=%d\n",
                listening.channel.getFD());
  });
}

TEST(TcpAcceptSystemCalls, PollAgainInFullAfterASignal) {
  Listening listening;
  SystemCalls calls(listening.channel.getFD());
  calls.answer_poll({{-1, EINTR}});
  EXPECT_EQ(listening.channel.accept(30), nullptr);
  EXPECT_EQ(calls.poll_timeouts(), (std::vector<int>{30, 30}));
}

TEST(TcpAcceptSystemCalls, PollAgainWhenThereIsNoInput) {
  Listening listening;
  SystemCalls calls(listening.channel.getFD());
  calls.answer_poll({{1, 0, POLLHUP}, {1, 0, POLLERR}});
  EXPECT_EQ(listening.channel.accept(30), nullptr);
  EXPECT_EQ(calls.poll_timeouts(), (std::vector<int>{30, 30, 30}));
}

TEST(TcpAcceptSystemCalls, PollAgainWhenAcceptIsInterrupted) {
  Listening listening;
  const RawPeer peer = connect_to(listening);
  SetupCalls setup;
  setup.fail_accept_once(EINTR);
  const SystemCalls calls(listening.channel.getFD());
  const Session session(listening.channel.accept(10000));
  EXPECT_NE(session, nullptr);
  EXPECT_EQ(setup.accept_calls(), 2);
  EXPECT_EQ(calls.poll_timeouts(), (std::vector<int>{10000, 10000}));
}

TEST(TcpAcceptSystemCalls, EndForAPeerThatWentAwayMeanwhile) {
  expect_logged([] {
    Listening listening;
    const RawPeer peer = connect_to(listening);
    SetupCalls setup;
    setup.fail_accept_once(ECONNABORTED);
    EXPECT_EQ(listening.channel.accept(10000), nullptr);
    EXPECT_TRUE(listening.channel.is_server());
    std::printf("IPC:debug|TCP::listen(): listening on port 0 (ip=127.0.0.1), fd=%d\n",
                listening.channel.getFD());
    std::puts("IPC:error|TCP::accept(): accept() failed");
  });
}

TEST(TcpAcceptSystemCalls, LeaveTheOwnAddressEmptyIfTheSystemDoesNotTell) {
  Listening listening;
  const RawPeer peer = connect_to(listening);
  SetupCalls setup;
  setup.fail_getsockname(ENOBUFS);
  const Session session(listening.channel.accept(10000));
  ASSERT_NE(session, nullptr);
  EXPECT_STREQ(session->local_addr(), "");
  EXPECT_STRNE(session->remote_addr(), "");
}
