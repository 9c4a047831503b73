// SPDX-License-Identifier: MIT
// How the device's log library is found, bound and kept, or done without.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "log/fake_log_library.h"
#include "log/logging.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

class LogLibrary : public LogLibraryTest {};

constexpr int kThreads = 8;

constexpr char kFound[] =
    "liblog opened\n"
    "DBGLOG <PID>: Found liblog (/home/svclog/lib/liblog.so.2), version: 2.16.8.\n";

// All kinds of log calls, after which no level may be enabled.
void log_into_silence() {
  log_everything();
  for (int channel = 0; channel < kLogChannels; ++channel) {
    dbg_log_channel() = channel;
    for (unsigned level = 0; level < 40; ++level) EXPECT_FALSE(dbg_log_enabled(level)) << level;
  }
}

// What a process writes that uses the log, and is to find it silent.
std::string err_of_silence(const Environment& environment = kGood) {
  return err_of(environment, log_into_silence);
}

void on_many_threads_at_once(void (*body)()) {
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      ++ready;
      while (ready != kThreads) std::this_thread::yield();
      body();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t result = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
    ++result;
  }
  return result;
}

}  // namespace

// ---- Missing

TEST_F(LogLibrary, ThatIsMissingIsToldOnceAndNothingElse) { EXPECT_EQ(err_of_silence(), kMissing); }

TEST_F(LogLibrary, ThatIsMissingIsToldOnceByManyThreads) {
  EXPECT_EQ(err_of(kGood, [] { on_many_threads_at_once(log_into_silence); }), kMissing);
}

TEST_F(LogLibrary, ThatCannotBeLoadedCountsAsMissing) {
  install_file("no library");
  EXPECT_EQ(err_of_silence(), kMissing);
}

TEST_F(LogLibrary, ThatIsInstalledAfterTheFirstMessageIsNotLookedFor) {
  const std::string text = err_of(kGood, [] {
    log_on(kLogIpc, kLogError);
    install();
    log_into_silence();
  });
  EXPECT_EQ(text, kMissing);
}

// ---- Bound

TEST_F(LogLibrary, IsBoundByTheFirstMessage) {
  install();
  EXPECT_EQ(err_of(kGood, [] { log_on(kLogIpc, kLogError, "first"); }),
            std::string(kBound) + "liblog got level 4 on 0x11 from src/ipc.cpp:1: first\n");
}

TEST_F(LogLibrary, IsBoundByTheFirstLevelTest) {
  install();
  const std::string text = err_of(kGood, [] {
    dbg_log_channel() = kLogIpc;
    dbg_log_enabled(kLogInfo);
  });
  EXPECT_EQ(text, std::string(kBound) + "liblog asked of level 7 on 0x11\n");
}

TEST_F(LogLibrary, IsNotBoundBeforeTheFirstLogCall) {
  install();
  EXPECT_EQ(err_of(kGood, [] { dbg_log_channel() = kLogIpc; }), "");
}

TEST_F(LogLibrary, IsBoundOnceForAllMessages) {
  install();
  const std::string text = err_of(kGood, log_everything);
  EXPECT_EQ(text.rfind(kBound, 0), 0U) << text;
  EXPECT_EQ(count(text, "DBGLOG"), 4U) << text;
  EXPECT_EQ(count(text, "liblog got"), 24U) << text;
}

TEST_F(LogLibrary, IsBoundOnceByManyThreads) {
  install();
  const std::string text = err_of(
      kGood, [] { on_many_threads_at_once([] { log_on(kLogNotifyServer, kLogError, "x"); }); });
  std::string expected = kBound;
  for (int i = 0; i < kThreads; ++i) {
    expected += "liblog got level 4 on 0x22 from src/ipc.cpp:1: x\n";
  }
  EXPECT_EQ(text, expected);
}

// The loader counts who has it open: with one more close than by the test it is gone.
TEST_F(LogLibrary, IsOpenedOnceAndKeptOpen) {
  install();
  const std::string text = err_of(kGood, [] {
    dbg_log_init();
    void* const library = dlopen("/home/svclog/lib/liblog.so.2", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    dlclose(library);
    std::fprintf(stderr, "still open\n");
    dlclose(library);
  });
  EXPECT_EQ(text, std::string(kBound) + "still open\n" + kClosed);
}

TEST_F(LogLibrary, StaysBoundThoughAMaskIsSetLater) {
  install();
  const std::string text = err_of(kGood, [] {
    dbg_log_init();
    setenv("IPC_LOGMASK", "255", 1);
    log_on(kLogIpc, kLogError, "later");
  });
  EXPECT_EQ(text, std::string(kBound) + "liblog got level 4 on 0x11 from src/ipc.cpp:1: later\n");
}

// ---- Not asked for

TEST_F(LogLibrary, IsNotOpenedWithAMaskEvenAnEmptyOne) {
  install();
  for (const char* variable : {"IPC_LOGMASK", "NFY_LOGMASK"}) {
    for (const char* mask : {"0", ""}) {
      EXPECT_EQ(err_of_silence(good_but(variable, mask)),
                "DBGLOG <PID>: Use stderr for logging (IPC_LOGMASK=0, NFY_LOGMASK=0)\n");
    }
  }
}

// ---- Symbols

TEST_F(LogLibrary, WithoutAVersionFunctionIsClosed) {
  install({"log_getVersion"});
  EXPECT_EQ(err_of_silence(),
            std::string(kOpened) +
                "DBGLOG <PID>: liblog missing symbol '_log_getVersion', logging disabled.\n" +
                kClosed);
}

TEST_F(LogLibrary, WithoutOneOfItsFunctionsIsClosed) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"LogAPI_Init2", "(nil),PTR,PTR"},
      {"LogAPI_LevelEnough2", "PTR,(nil),PTR"},
      {"LogAPI_vprintf2", "PTR,PTR,(nil)"}};
  for (const auto& [symbol, addresses] : cases) {
    install({symbol});
    EXPECT_EQ(without_addresses(err_of_silence()),
              std::string(kFound) + "DBGLOG <PID>: liblog missing symbol (" + addresses +
                  "), logging disabled.\n" + kClosed);
  }
}

TEST_F(LogLibrary, WithoutAnyOfItsFunctionsIsClosed) {
  install({"LogAPI_Init2", "LogAPI_LevelEnough2", "LogAPI_vprintf2"});
  EXPECT_EQ(err_of_silence(),
            std::string(kFound) +
                "DBGLOG <PID>: liblog missing symbol ((nil),(nil),(nil)), logging disabled.\n" +
                kClosed);
}

// ---- Channels that it refuses

TEST_F(LogLibrary, ThatRefusesEveryChannelIsClosed) {
  install();
  EXPECT_EQ(err_of_silence({{"LIBLOG_VERSION", "2.16.8"}}),
            std::string(kFound) +
                "DBGLOG <PID>: LogAPI_Init2(\"IPC\") returned (nil), "
                "liblog initialization for IPC failed.\n"
                "DBGLOG <PID>: LogAPI_Init2(\"NFY\") returned (nil), "
                "liblog initialization for NFY failed.\n"
                "DBGLOG <PID>: LogAPI_Init2(\"NFYCL\") returned (nil), "
                "liblog initialization for NFYCL failed.\n" +
                kClosed);
}

TEST_F(LogLibrary, ThatRefusesSomeChannelsSaysSoAndStaysOpen) {
  install();
  EXPECT_EQ(err_of(good_without("LIBLOG_NFY"), dbg_log_init),
            std::string(kFound) +
                "DBGLOG <PID>: LogAPI_Init2(\"IPC\") returned 0x11, "
                "liblog initialization for IPC successful.\n"
                "DBGLOG <PID>: LogAPI_Init2(\"NFY\") returned (nil), "
                "liblog initialization for NFY failed.\n"
                "DBGLOG <PID>: LogAPI_Init2(\"NFYCL\") returned 0x33, "
                "liblog initialization for NFYCL successful.\n");
}

TEST_F(LogLibrary, StaysOpenForTheLastChannelAlone) {
  install();
  const std::string text =
      err_of({{"LIBLOG_VERSION", "2.16.8"}, {"LIBLOG_NFYCL", "0x33"}}, log_everything);
  EXPECT_EQ(count(text, "liblog got"), 8U) << text;
  EXPECT_EQ(count(text, "on 0x33"), 8U) << text;
  EXPECT_EQ(count(text, kClosed), 0U) << text;
}

TEST_F(LogLibrary, StaysOpenForTheFirstChannelAlone) {
  install();
  const std::string text =
      err_of({{"LIBLOG_VERSION", "2.16.8"}, {"LIBLOG_IPC", "0x11"}}, log_everything);
  EXPECT_EQ(count(text, "liblog got"), 8U) << text;
  EXPECT_EQ(count(text, "on 0x11"), 8U) << text;
  EXPECT_EQ(count(text, kClosed), 0U) << text;
}
