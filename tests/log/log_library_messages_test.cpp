// SPDX-License-Identifier: MIT
// What the device's log library is given and asked.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include "log/fake_log_library.h"
#include "log/logging.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

class LogLibraryMessage : public InstalledLogLibraryTest {};
class LogLibraryLevel : public InstalledLogLibraryTest {};

// What a process writes once the library is bound.
std::string err_when_bound(const Environment& environment, const std::function<void()>& body) {
  const std::string text = err_of(environment, body);
  const std::size_t last = text.rfind("DBGLOG <PID>: LogAPI_Init2");
  if (last == std::string::npos) return text;
  return text.substr(text.find('\n', last) + 1);
}

void expect_enabled(const char* answer, bool enabled) {
  err_of(good_but("LIBLOG_ENOUGH", answer), [enabled] {
    dbg_log_channel() = kLogIpc;
    EXPECT_EQ(dbg_log_enabled(kLogInfo), enabled);
  });
}

}  // namespace

// ---- Messages

TEST_F(LogLibraryMessage, GoesToTheHandleOfTheThreadsChannel) {
  const std::string text = err_when_bound(kGood, [] {
    for (const int channel : {kLogNotifyClient, kLogIpc, kLogNotifyServer}) {
      log_on(channel, kLogError);
    }
  });
  EXPECT_EQ(text,
            "liblog got level 4 on 0x33 from src/ipc.cpp:1: text\n"
            "liblog got level 4 on 0x11 from src/ipc.cpp:1: text\n"
            "liblog got level 4 on 0x22 from src/ipc.cpp:1: text\n");
}

TEST_F(LogLibraryMessage, HasItsLevelCountedFromOne) {
  const std::string text = err_when_bound(kGood, [] {
    for (unsigned level = 0; level < 8; ++level) log_on(kLogIpc, level);
  });
  std::string expected;
  for (const char* level : {"1", "2", "3", "4", "5", "6", "7", "8"}) {
    expected += std::string("liblog got level ") + level + " on 0x11 from src/ipc.cpp:1: text\n";
  }
  EXPECT_EQ(text, expected);
}

TEST_F(LogLibraryMessage, OfALevelAboveSevenHasLevelZero) {
  for (const unsigned level : {8U, 9U, 31U, 32U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(err_when_bound(kGood, [level] { log_on(kLogIpc, level); }),
              "liblog got level 0 on 0x11 from src/ipc.cpp:1: text\n");
  }
}

TEST_F(LogLibraryMessage, HasItsModuleWhole) {
  const std::string text = err_when_bound(kGood, [] {
    dbg_log_channel() = kLogIpc;
    dbg_log("/a/deep/path/file.cpp", 4711, kLogNote, "text\n");
  });
  EXPECT_EQ(text, "liblog got level 6 on 0x11 from /a/deep/path/file.cpp:4711: text\n");
}

TEST_F(LogLibraryMessage, WithoutModuleHasNone) {
  const std::string text = err_when_bound(kGood, [] {
    dbg_log_channel() = kLogIpc;
    dbg_log(nullptr, 1, kLogNote, "text\n");
  });
  EXPECT_EQ(text, "liblog got level 6 on 0x11 from null:1: text\n");
}

TEST_F(LogLibraryMessage, HasItsArguments) {
  const std::string text = err_when_bound(kGood, [] {
    dbg_log_channel() = kLogIpc;
    dbg_log(kModule, 1, kLogInfo, "%s=%d %.2f %llx%%\n", "name", -5, 2.5, 0xFEDCBA9876543210ULL);
  });
  EXPECT_EQ(text,
            "liblog got level 7 on 0x11 from src/ipc.cpp:1: name=-5 2.50 fedcba9876543210%\n");
}

TEST_F(LogLibraryMessage, GetsNoLineEndOfItsOwn) {
  const std::string text = err_when_bound(kGood, [] {
    dbg_log_channel() = kLogIpc;
    dbg_log(kModule, 1, kLogInfo, "text");
  });
  EXPECT_EQ(text, "liblog got level 7 on 0x11 from src/ipc.cpp:1: text");
}

TEST_F(LogLibraryMessage, IsGivenWithoutAskingForItsLevel) {
  EXPECT_EQ(err_when_bound(good_but("LIBLOG_ENOUGH", "0"), [] { log_on(kLogIpc, kLogDebug); }),
            "liblog got level 8 on 0x11 from src/ipc.cpp:1: text\n");
}

TEST_F(LogLibraryMessage, OfARefusedChannelIsLost) {
  const std::string text = err_when_bound(good_without("LIBLOG_NFY"), [] {
    for (int channel = 0; channel < kLogChannels; ++channel) log_on(channel, kLogError);
  });
  EXPECT_EQ(text,
            "liblog got level 4 on 0x11 from src/ipc.cpp:1: text\n"
            "liblog got level 4 on 0x33 from src/ipc.cpp:1: text\n");
}

TEST_F(LogLibraryMessage, OfAThreadWithoutChannelIsLost) {
  EXPECT_EQ(err_when_bound(kGood, [] { log_on(kLogNoChannel, kLogError); }),
            "DBGLOG <PID>: Invalid log channel -1 !!! (module=src/ipc.cpp, line=1)\n");
}

// ---- The level test

TEST_F(LogLibraryLevel, IsEnabledByAnyAnswerButZero) {
  expect_enabled("0", false);
  expect_enabled("1", true);
  expect_enabled("-1", true);
  expect_enabled("256", true);
}

TEST_F(LogLibraryLevel, IsAskedForOnTheHandleOfTheThreadsChannel) {
  const std::string text = err_when_bound(kGood, [] {
    for (const int channel : {kLogNotifyClient, kLogIpc, kLogNotifyServer}) {
      dbg_log_channel() = channel;
      dbg_log_enabled(kLogInfo);
    }
  });
  EXPECT_EQ(text,
            "liblog asked of level 7 on 0x33\n"
            "liblog asked of level 7 on 0x11\n"
            "liblog asked of level 7 on 0x22\n");
}

TEST_F(LogLibraryLevel, IsCountedFromOneAndZeroAboveSeven) {
  const std::string text = err_when_bound(kGood, [] {
    dbg_log_channel() = kLogIpc;
    for (const unsigned level : {0U, 7U, 8U, 0xFFFFFFFFU}) dbg_log_enabled(level);
  });
  EXPECT_EQ(text,
            "liblog asked of level 1 on 0x11\n"
            "liblog asked of level 8 on 0x11\n"
            "liblog asked of level 0 on 0x11\n"
            "liblog asked of level 0 on 0x11\n");
}

TEST_F(LogLibraryLevel, OfARefusedChannelIsNotEnabled) {
  const std::string text = err_when_bound(good_without("LIBLOG_NFY"), [] {
    dbg_log_channel() = kLogNotifyServer;
    for (unsigned level = 0; level < 40; ++level) EXPECT_FALSE(dbg_log_enabled(level)) << level;
  });
  EXPECT_EQ(text, "");
}

TEST_F(LogLibraryLevel, OfAThreadWithoutChannelIsNotEnabled) {
  const std::string text = err_when_bound(kGood, [] {
    dbg_log_channel() = kLogNoChannel;
    EXPECT_FALSE(dbg_log_enabled(kLogError));
  });
  EXPECT_EQ(text, "DBGLOG <PID>: Invalid log channel -1 !!!\n");
}

// ---- Threads

// Neither of the two gets on without the other.
TEST_F(LogLibraryMessage, IsGivenWhileAnotherThreadIsInTheLibrary) {
  err_of(good_but("LIBLOG_MEETING", "1"), [] {
    std::thread other([] { log_on(kLogIpc, kLogError); });
    log_on(kLogIpc, kLogError);
    other.join();
  });
}

TEST_F(LogLibraryLevel, IsAskedForWhileAnotherThreadIsInTheLibrary) {
  err_of(good_but("LIBLOG_MEETING", "1"), [] {
    std::thread other([] { log_on(kLogIpc, kLogError); });
    dbg_log_channel() = kLogNotifyClient;
    EXPECT_TRUE(dbg_log_enabled(kLogInfo));
    other.join();
  });
}
