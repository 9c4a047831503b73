// SPDX-License-Identifier: MIT
// What a channel is made of, and how its state comes and goes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "ipc/channels.h"
#include "ipc/ipc_private.h"
#include "ipc/probe.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Tells what it is called with.
class Recorder : public IPC::IpcPrivate {
 public:
  explicit Recorder(std::vector<std::string>& calls) : calls_(calls) {}
  ~Recorder() override { calls_.push_back("destroyed"); }

  bool write(const void* data, int size) override {
    calls_.push_back("write " +
                     std::string(static_cast<const char*>(data), static_cast<std::size_t>(size)));
    return true;
  }
  int read(void*, int size, int timeout_msec, int next_timeout_msec, bool rearm) override {
    calls_.push_back("read " + std::to_string(size) + " " + std::to_string(timeout_msec) + " " +
                     std::to_string(next_timeout_msec) + (rearm ? " rearm" : ""));
    return 4;
  }
  bool poll_in(int timeout_msec) override {
    calls_.push_back("poll_in " + std::to_string(timeout_msec));
    return true;
  }
  void close() override {
    calls_.push_back("close");
    IpcPrivate::close();
  }

 private:
  std::vector<std::string>& calls_;
};

bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }

}  // namespace

TEST(ChannelState, IsClosedAndLockedWhenNew) {
  const IPC::IpcPrivate state;
  EXPECT_FALSE(state.eof_flag);
  EXPECT_FALSE(state.error_flag);
  EXPECT_STREQ(state.remote_addr, "");
  EXPECT_STREQ(state.local_addr, "");
  EXPECT_EQ(state.fd, -1);
  EXPECT_FALSE(state.listener);
  EXPECT_EQ(state.cb_state, 2);
}

TEST(ChannelState, DoesNotCloseItsSocketWhenDestroyed) {
  const int fd = dup(STDIN_FILENO);
  {
    IPC::IpcPrivate state;
    state.fd = fd;
  }
  EXPECT_TRUE(is_open(fd));
  close(fd);
}

TEST(ChannelState, CloseForgetsTheSocketWithoutTouchingIt) {
  const int fd = dup(STDIN_FILENO);
  IPC::IpcPrivate state;
  state.fd = fd;
  state.close();
  EXPECT_EQ(state.fd, -1);
  EXPECT_TRUE(is_open(fd));
  close(fd);
}

TEST(ChannelState, CloseClearsFlagsAndAddresses) {
  IPC::IpcPrivate state;
  state.listener = true;
  state.eof_flag = true;
  state.error_flag = true;
  std::strcpy(state.remote_addr, "remote");
  std::strcpy(state.local_addr, "local");
  state.close();
  EXPECT_FALSE(state.listener);
  EXPECT_FALSE(state.eof_flag);
  EXPECT_FALSE(state.error_flag);
  EXPECT_STREQ(state.remote_addr, "");
  EXPECT_STREQ(state.local_addr, "");
}

TEST(ChannelState, CloseLocksTheCallbackAndLeavesItsOtherBits) {
  IPC::IpcPrivate state;
  state.cb_state = CB_REGISTERED | CB_ARMED;
  state.close();
  EXPECT_EQ(state.cb_state, 7);
}

TEST(ChannelState, IsUnlockedByASocketAndLockedByClose) {
  AdoptedChannel<Probe> adopted;
  EXPECT_EQ(adopted.channel.inner().cb_state, 0);
  adopted.channel.close();
  EXPECT_EQ(adopted.channel.inner().cb_state, 2);
}

// ---- The plain channel

TEST(Channel, OwnsItsState) {
  std::vector<std::string> calls;
  { IPC channel(new Recorder(calls)); }
  EXPECT_EQ(calls, std::vector<std::string>{"destroyed"});
}

TEST(Channel, MayHaveNoState) {
  EXPECT_EQ(run_in_child({}, [] { delete new IPC(nullptr); }).status, 0);
}

TEST(Channel, DoesNotCloseWhenDestroyedAsTheBaseClass) {
  const int fd = dup(STDIN_FILENO);
  {
    auto* const state = new IPC::IpcPrivate;
    state->fd = fd;
    const IPC channel(state);
    EXPECT_EQ(channel.getFD(), fd);
  }
  EXPECT_TRUE(is_open(fd));
  close(fd);
}

TEST(Channel, AcceptsNobodyAsTheBaseClass) {
  std::vector<std::string> calls;
  IPC channel(new Recorder(calls));
  EXPECT_EQ(channel.accept(-1), nullptr);
  EXPECT_EQ(calls, std::vector<std::string>{});
}

TEST(Channel, PassesOperationsToItsState) {
  std::vector<std::string> calls;
  {
    IPC channel(new Recorder(calls));
    char data[8];
    EXPECT_TRUE(channel.write("abc", 3));
    EXPECT_EQ(channel.read(data, 8, 20, 30), 4);
    EXPECT_TRUE(channel.poll_in(40));
  }
  EXPECT_EQ(calls, (std::vector<std::string>{"write abc", "read 8 20 30 rearm", "poll_in 40",
                                             "destroyed"}));
}

TEST(Channel, ReadsWithOneTimeoutAsWithTwoEqualOnes) {
  std::vector<std::string> calls;
  IPC channel(new Recorder(calls));
  char data[8];
  EXPECT_EQ(channel.read(data, 8, 50), 4);
  EXPECT_EQ(calls, std::vector<std::string>{"read 8 50 50 rearm"});
}

TEST(Channel, ShowsTheFlagsOfItsState) {
  auto* const state = new IPC::IpcPrivate;
  IPC channel(state);
  EXPECT_FALSE(channel.eof());
  EXPECT_FALSE(channel.error());
  EXPECT_FALSE(channel.is_server());
  state->eof_flag = true;
  EXPECT_TRUE(channel.eof());
  EXPECT_FALSE(channel.error());
  state->error_flag = true;
  EXPECT_TRUE(channel.error());
  state->listener = true;
  EXPECT_TRUE(channel.is_server());
}

TEST(Channel, ShowsTheAddressFieldsThemselves) {
  auto* const state = new IPC::IpcPrivate;
  const IPC channel(state);
  EXPECT_EQ(channel.remote_addr(), state->remote_addr);
  EXPECT_EQ(channel.local_addr(), state->local_addr);
}

// ---- IPC::close

TEST(Close, HasTheStateForgetTheSocketAfterClosingIt) {
  std::vector<std::string> calls;
  auto* const state = new Recorder(calls);
  IPC channel(state);
  const int fd = dup(STDIN_FILENO);
  state->fd = fd;
  channel.close();
  EXPECT_EQ(calls, std::vector<std::string>{"close"});
  EXPECT_FALSE(is_open(fd));
  EXPECT_EQ(channel.getFD(), -1);
}

TEST(Close, WithoutASocketDoesNothing) {
  std::vector<std::string> calls;
  auto* const state = new Recorder(calls);
  IPC channel(state);
  state->eof_flag = true;
  state->error_flag = true;
  state->cb_state = 0;
  std::strcpy(state->remote_addr, "remote");
  channel.close();
  EXPECT_EQ(calls, std::vector<std::string>{});
  EXPECT_TRUE(channel.eof());
  EXPECT_TRUE(channel.error());
  EXPECT_EQ(state->cb_state, 0);
  EXPECT_STREQ(channel.remote_addr(), "remote");
}
