// SPDX-License-Identifier: MIT
// Pipes, where the system gives answers that a test cannot have it give.
#include <gtest/gtest.h>
#include <poll.h>
#include <zedipc/pipe.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "ipc/endpoints.h"
#include "ipc/setup_calls.h"
#include "ipc/system_calls.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(PipeWithoutCredentials, ConnectsWithoutThem) {
  expect_logged([] {
    const ListeningPipe listening;
    SetupCalls calls;
    calls.fail_credentials(ENOPROTOOPT);
    Pipe channel;
    EXPECT_TRUE(channel.connect(listening.name.c_str()));
    EXPECT_STREQ(channel.remote_addr(), "");
    EXPECT_STREQ(channel.local_addr(), "");
    EXPECT_FALSE(channel.error());
    EXPECT_TRUE(channel.write("x", 1));
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
    std::printf("IPC:debug|Pipe::connect(): connected to pipe %s\n", listening.name.c_str());
  });
}

TEST(PipeWithoutCredentials, AcceptsWithoutThem) {
  expect_logged([] {
    ListeningPipe listening;
    const RawPeer peer = RawPeer::connect_pipe(listening.name);
    SetupCalls calls;
    calls.fail_credentials(ENOPROTOOPT);
    const Session session(listening.channel.accept(10000));
    EXPECT_STREQ(session->remote_addr(), "");
    EXPECT_STREQ(session->local_addr(), "");
    EXPECT_TRUE(session->write("x", 1));
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
    std::printf("IPC:debug|Pipe::accept(): accepted new session on pipe %s (afd=%d)!\n",
                listening.name.c_str(), session->getFD());
  });
}

TEST(PipeListenSystemCalls, LeaveAFileAloneUnlessItsNameIsTaken) {
  const ScratchDir dir;
  const std::string path = dir.write("pipe", "precious");
  SetupCalls calls;
  calls.fail_bind(EACCES);
  Pipe listener;
  EXPECT_FALSE(listener.listen(path.c_str()));
  EXPECT_TRUE(std::filesystem::is_regular_file(path));
}

TEST(PipeListenSystemCalls, RemoveTheirFileWhenListeningFails) {
  const ScratchDir dir;
  expect_logged([&] {
    SetupCalls calls;
    calls.fail_listen(EADDRINUSE);
    Pipe listener;
    const int fd = next_descriptor();
    EXPECT_FALSE(listener.listen(dir.file("pipe").c_str()));
    EXPECT_FALSE(is_open(fd));
    EXPECT_EQ(listener.getFD(), -1);
    EXPECT_FALSE(listener.is_server());
    EXPECT_FALSE(exists(dir.file("pipe")));
    std::printf("IPC:error|Pipe::listen(): bind()/listen() on pipe %s failed (fd=-1)\n",
                dir.file("pipe").c_str());
  });
}

TEST(PipeAcceptSystemCalls, EndWithoutALineWhenPollFails) {
  expect_logged([] {
    ListeningPipe listening;
    SystemCalls calls(listening.channel.getFD());
    calls.answer_poll({{-1, ENOMEM}});
    EXPECT_EQ(listening.channel.accept(-1), nullptr);
    EXPECT_FALSE(listening.channel.error());
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
  });
}

TEST(PipeAcceptSystemCalls, EndWithoutALineForABadDescriptor) {
  expect_logged([] {
    ListeningPipe listening;
    SystemCalls calls(listening.channel.getFD());
    calls.answer_poll({{1, 0, POLLNVAL}});
    EXPECT_EQ(listening.channel.accept(-1), nullptr);
    EXPECT_FALSE(listening.channel.error());
    std::printf("IPC:debug|Pipe::listen(): listening on pipe %s, fd=%d\n", listening.name.c_str(),
                listening.channel.getFD());
  });
}

TEST(PipeAcceptSystemCalls, PollAgainInFullAfterASignal) {
  ListeningPipe listening;
  SystemCalls calls(listening.channel.getFD());
  calls.answer_poll({{-1, EINTR}});
  EXPECT_EQ(listening.channel.accept(30), nullptr);
  EXPECT_EQ(calls.poll_timeouts(), (std::vector<int>{30, 30}));
}

TEST(PipeAcceptSystemCalls, PollAgainWhenThereIsNoInput) {
  ListeningPipe listening;
  SystemCalls calls(listening.channel.getFD());
  calls.answer_poll({{1, 0, POLLHUP}, {1, 0, POLLERR}});
  EXPECT_EQ(listening.channel.accept(30), nullptr);
  EXPECT_EQ(calls.poll_timeouts(), (std::vector<int>{30, 30, 30}));
}

TEST(PipeAcceptSystemCalls, PollAgainWhenAcceptIsInterrupted) {
  ListeningPipe listening;
  const RawPeer peer = RawPeer::connect_pipe(listening.name);
  SetupCalls setup;
  setup.fail_accept_once(EINTR);
  const SystemCalls calls(listening.channel.getFD());
  const Session session(listening.channel.accept(10000));
  EXPECT_NE(session, nullptr);
  EXPECT_EQ(setup.accept_calls(), 2);
  EXPECT_EQ(calls.poll_timeouts(), (std::vector<int>{10000, 10000}));
}
