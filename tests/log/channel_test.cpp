// SPDX-License-Identifier: MIT
// The channel of a thread.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "log/logging.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// `text` with the process's number replaced.
std::string without_pid(std::string text) {
  const std::size_t start = text.find("<PID ");
  if (start == std::string::npos) return text;
  return text.replace(start, text.find('>', start) - start, "<PID");
}

}  // namespace

TEST(LogChannel, IsMinusOneInANewThread) {
  int channel = 0;
  std::thread([&] { channel = dbg_log_channel(); }).join();
  EXPECT_EQ(channel, -1);
}

TEST(LogChannel, KeepsItsValueBetweenCalls) {
  dbg_log_channel() = kLogNotifyClient;
  EXPECT_EQ(dbg_log_channel(), kLogNotifyClient);
  EXPECT_EQ(&dbg_log_channel(), &dbg_log_channel());
}

TEST(LogChannel, IsEachThreadsOwn) {
  dbg_log_channel() = kLogNotifyServer;
  std::thread([] { dbg_log_channel() = kLogIpc; }).join();
  EXPECT_EQ(dbg_log_channel(), kLogNotifyServer);
}

// What a thread leaves behind shows under a leak checker.
TEST(LogChannel, StartsAfreshInEachOfManyThreads) {
  for (int i = 0; i < 2000; ++i) {
    int channel = 0;
    std::thread([&] {
      channel = dbg_log_channel();
      dbg_log_channel() = kLogIpc;
    }).join();
    ASSERT_EQ(channel, -1);
  }
}

TEST(LogChannel, OfAThreadChoosesTheNameOfItsLines) {
  const std::string text = log_of({{"IPC_LOGMASK", "8"}, {"NFY_LOGMASK", "8"}}, [] {
    dbg_log_channel() = kLogNotifyServer;
    std::thread([] { log_on(kLogNotifyClient, kLogError); }).join();
    dbg_log(kModule, 1, kLogError, "text\n");
  });
  EXPECT_EQ(names(text), (std::vector<std::string>{"NFYCL:error", "NFY:error"}));
}

// ---- The scope that entry points use

TEST(LogChannelScope, SetsTheChannelAndRestoresTheOldValue) {
  dbg_log_channel() = kLogNotifyClient;
  {
    const LogChannelScope scope(kLogIpc);
    EXPECT_EQ(dbg_log_channel(), kLogIpc);
  }
  EXPECT_EQ(dbg_log_channel(), kLogNotifyClient);
}

TEST(LogChannelScope, RestoresTheValueOfAThreadWithoutChannel) {
  int channel = 0;
  std::thread([&] {
    { const LogChannelScope scope(kLogIpc); }
    channel = dbg_log_channel();
  }).join();
  EXPECT_EQ(channel, -1);
}

TEST(LogChannelScope, Nests) {
  dbg_log_channel() = 17;
  const LogChannelScope outer(kLogNotifyClient);
  {
    const LogChannelScope inner(kLogIpc);
    EXPECT_EQ(dbg_log_channel(), kLogIpc);
  }
  EXPECT_EQ(dbg_log_channel(), kLogNotifyClient);
}

TEST(LogChannelScope, RestoresTheOldValueWhenAnExceptionPasses) {
  dbg_log_channel() = kLogNotifyServer;
  try {
    const LogChannelScope scope(kLogIpc);
    throw std::runtime_error("passing");
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(dbg_log_channel(), kLogNotifyServer);
}

// ---- Threads on no channel

TEST(InvalidLogChannel, OfANewThreadLosesTheMessageAndSaysSo) {
  const std::string text = log_of(
      {}, [] { std::thread([] { dbg_log("src/ipc.cpp", 42, kLogError, "lost\n"); }).join(); });
  EXPECT_EQ(without_pid(text),
            "DBGLOG <PID>: Invalid log channel -1 !!! (module=src/ipc.cpp, line=42)\n");
}

TEST(InvalidLogChannel, IsToldWithTheProcess) {
  const ChildResult result = run_in_child({}, [] {
    log_on(-1, kLogError);
    char pid[32];
    std::printf("DBGLOG <%s>: Invalid", pid_text(pid));
  });
  EXPECT_EQ(without_missing_library(result.err).substr(0, result.out.size()), result.out);
}

TEST(InvalidLogChannel, IsToldForEveryMessage) {
  const std::string text = log_of({}, [] {
    for (int i = 0; i < 3; ++i) log_on(-1, kLogDebug);
  });
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
}

TEST(InvalidLogChannel, IsAnyOutsideTheTable) {
  for (const int channel : {3, 4, INT_MAX, INT_MIN, -1}) {
    const std::string text = log_of({}, [channel] { log_on(channel, kLogError, "lost"); });
    EXPECT_EQ(without_pid(text), "DBGLOG <PID>: Invalid log channel " + std::to_string(channel) +
                                     " !!! (module=src/ipc.cpp, line=1)\n");
  }
}

TEST(InvalidLogChannel, WithoutModuleShowsAnEmptyOne) {
  const std::string text = log_of({}, [] {
    dbg_log_channel() = 3;
    dbg_log(nullptr, 8, kLogError, "lost\n");
  });
  EXPECT_EQ(without_pid(text), "DBGLOG <PID>: Invalid log channel 3 !!! (module=, line=8)\n");
}

TEST(InvalidLogChannel, IsNoneForWhichALevelIsEnabled) {
  const std::string text = log_of({{"IPC_LOGMASK", "-1"}, {"NFY_LOGMASK", "-1"}}, [] {
    dbg_log_channel() = -1;
    EXPECT_FALSE(dbg_log_enabled(kLogError));
    dbg_log_channel() = 3;
    EXPECT_FALSE(dbg_log_enabled(kLogError));
  });
  EXPECT_EQ(names(text), std::vector<std::string>{});
}

TEST(InvalidLogChannel, IsToldByTheLevelTestWithoutAPlace) {
  const std::string text = log_of({}, [] {
    dbg_log_channel() = -1;
    dbg_log_enabled(kLogError);
  });
  EXPECT_EQ(without_pid(text), "DBGLOG <PID>: Invalid log channel -1 !!!\n");
}
