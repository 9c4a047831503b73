// SPDX-License-Identifier: MIT
// What a channel is made of, and how its state comes and goes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "ipc/channels.h"
#include "ipc/ipc_private.h"
#include "ipc/probe.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Tells that it has gone.
class Mortal : public IPC::IpcPrivate {
 public:
  explicit Mortal(bool& gone) : gone_(gone) {}
  ~Mortal() override { gone_ = true; }

 private:
  bool& gone_;
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
  bool gone = false;
  { const IPC channel(new Mortal(gone)); }
  EXPECT_TRUE(gone);
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
  IPC channel(new IPC::IpcPrivate);
  EXPECT_EQ(channel.accept(-1), nullptr);
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
  auto* const state = new IPC::IpcPrivate;
  IPC channel(state);
  const int fd = dup(STDIN_FILENO);
  state->fd = fd;
  state->error_flag = true;
  channel.close();
  EXPECT_FALSE(is_open(fd));
  EXPECT_EQ(channel.getFD(), -1);
  EXPECT_FALSE(channel.error());
}

TEST(Close, WithoutASocketDoesNothing) {
  auto* const state = new IPC::IpcPrivate;
  IPC channel(state);
  state->eof_flag = true;
  state->error_flag = true;
  state->cb_state = 0;
  std::strcpy(state->remote_addr, "remote");
  channel.close();
  EXPECT_TRUE(channel.eof());
  EXPECT_TRUE(channel.error());
  EXPECT_EQ(state->cb_state, 0);
  EXPECT_STREQ(channel.remote_addr(), "remote");
}
