// SPDX-License-Identifier: MIT
// Each public call logs as its layer, and leaves the thread's channel as it was.
#include <gtest/gtest.h>
#include <zedipc/notify.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "log/logging.h"
#include "support/raw_peer.h"
#include "support/scratch_dir.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kForeign = 77;  // a channel that no layer sets
const Environment kAll = {{"IPC_LOGMASK", "255"}, {"NFY_LOGMASK", "255"}};

void on_notification(void*, const std::string&, const std::string&, const std::string&,
                     const JSObject&, unsigned int) {}
void on_observed(void*, const std::string&, const std::string&, const std::string&, unsigned int) {}

// What a call writes when the thread's channel is not one of the layers', after which
// that has to be the thread's channel still.
std::string log_of_call(const std::function<void()>& call) {
  return log_of(kAll, [&] {
    dbg_log_channel() = kForeign;
    call();
    EXPECT_EQ(dbg_log_channel(), kForeign);
  });
}

using Names = std::set<std::string>;

// The channels of the lines.
Names channels(const std::string& text) {
  EXPECT_EQ(text.find("Invalid log channel"), std::string::npos) << text;
  Names result;
  for (const LogLine& line : parse_log(text)) result.insert(line.channel);
  return result;
}

const Names kIpcOnly = {"IPC"};

}  // namespace

// ---- Channels

TEST(ChannelEntryPoint, WriteLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] { TCP().write("x", 1); })), kIpcOnly);
}

TEST(ChannelEntryPoint, ReadLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] {
              char byte;
              TCP().read(&byte, 1, 0, 0);
            })),
            kIpcOnly);
}

TEST(ChannelEntryPoint, ReadWithOneTimeoutLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] {
              char byte;
              TCP().read(&byte, 1, 0);
            })),
            kIpcOnly);
}

TEST(ChannelEntryPoint, PollInLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] { TCP().poll_in(0); })), kIpcOnly);
}

TEST(ChannelEntryPoint, WriteMsgLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] { TCP().write_msg(1, 2, "x", 1); })), kIpcOnly);
}

TEST(ChannelEntryPoint, ReadMsgLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] {
              std::string text;
              int tag = 0;
              TCP().read_msg(1, tag, text, 10, 0);
            })),
            kIpcOnly);
}

TEST(ChannelEntryPoint, TcpListenLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] { TCP().listen(0, "127.0.0.1"); })), kIpcOnly);
}

TEST(ChannelEntryPoint, TcpConnectLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] { TCP().connect(nullptr, 1, 0); })), kIpcOnly);
}

TEST(ChannelEntryPoint, PipeListenLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] { Pipe().listen(nullptr); })), kIpcOnly);
}

TEST(ChannelEntryPoint, PipeConnectLogsAsIpc) {
  EXPECT_EQ(channels(log_of_call([] { Pipe().connect(nullptr); })), kIpcOnly);
}

TEST(ChannelEntryPoint, PipeAcceptLogsAsIpc) {
  const ScratchDir dir;
  EXPECT_EQ(channels(log_of_call([&] {
              Pipe listener;
              EXPECT_TRUE(listener.listen(dir.file("pipe").c_str()));
              const RawPeer peer = RawPeer::connect_pipe(dir.file("pipe"));
              delete listener.accept(10000);
            })),
            kIpcOnly);
}

TEST(ChannelEntryPoint, ThatLogsNothingLeavesTheChannelAloneToo) {
  const std::string text = log_of_call([] {
    auto channel = std::make_unique<TCP>();
    EXPECT_TRUE(channel->setFD(-1));
    EXPECT_EQ(channel->accept(0), nullptr);
    channel->close();
  });
  EXPECT_EQ(without_removals(log_messages(text)), std::vector<std::string>{});
}

TEST(ChannelEntryPoint, ServesAThreadThatHasNoChannel) {
  const std::string text = log_of(kAll, [] {
    std::thread([] {
      TCP().write("x", 1);
      EXPECT_EQ(dbg_log_channel(), -1);
    }).join();
  });
  EXPECT_EQ(channels(text), kIpcOnly);
}

// ---- The notification client, whose connection is made on the layer below

TEST(ClientEntryPoint, LogsAsClientAndItsConnectionAsIpc) {
  const std::string text =
      log_of_call([] { EXPECT_EQ(ipcNotify("to", "n", JSObject(), 0, "from"), -1); });
  std::vector<std::string> lines = log_messages(text, "error");
  lines.resize(2);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "IPC:error|TCP::connect(): failed to connect to 127.0.0.1:5899",
                       "NFYCL:error|init(): TCP connect() to server '127.0.0.1:5899' failed"}));
}

TEST(ClientEntryPoint, LeavesTheThreadsChannelAloneWithoutAServer) {
  const std::string text = log_of_call([] {
    ipcSetAppID("id");
    ipcGetAppID();
    EXPECT_EQ(dbg_log_channel(), kForeign);
    ipcNotify("to", "n");
    EXPECT_EQ(dbg_log_channel(), kForeign);
    ipcRegisterNotificationCB("n", on_notification);
    EXPECT_EQ(dbg_log_channel(), kForeign);
    ipcUnregisterNotificationCB("n", on_notification);
    EXPECT_EQ(dbg_log_channel(), kForeign);
    ipcRegisterObserver(on_observed);
    EXPECT_EQ(dbg_log_channel(), kForeign);
    ipcUnregisterObserver(on_observed);
    EXPECT_EQ(dbg_log_channel(), kForeign);
    ipcRegisterUnicastError(on_notification);
    EXPECT_EQ(dbg_log_channel(), kForeign);
    ipcUnregisterUnicastError(on_notification);
  });
  EXPECT_EQ(channels(text), (Names{"IPC", "NFYCL"}));
}

TEST(ClientEntryPoint, LeavesTheThreadsChannelAloneWithAServer) {
  const RawListener listener;
  const std::string text = log_of_call([] {
    ipcSetAppID("id");
    EXPECT_EQ(ipcRegisterNotificationCB("n", on_notification), 0);
    EXPECT_EQ(dbg_log_channel(), kForeign);
    EXPECT_EQ(ipcNotify("to", "n"), 0);
    EXPECT_EQ(dbg_log_channel(), kForeign);
    EXPECT_EQ(ipcUnregisterNotificationCB("n", on_notification), 0);
  });
  EXPECT_EQ(channels(text), (Names{"IPC", "NFYCL"}));
}

// ---- The notification server

TEST(ServerEntryPoint, LogsAsServerAndLeavesTheThreadsChannelAlone) {
  const ScratchDir dir;
  const std::string text = log_of_call([&] { ipcNotificationServer(dir.file("missing").c_str()); });
  EXPECT_EQ(log_messages(text).size(), 1U);
  EXPECT_EQ(channels(text), Names{"NFY"});
}

TEST(ServerEntryPoint, LogsItsListenerAsIpc) {
  const RawListener occupied;
  const std::string text = log_of_call([] { EXPECT_LT(ipcNotificationServer(), 0); });
  EXPECT_EQ(channels(text), (Names{"IPC", "NFY"}));
}
