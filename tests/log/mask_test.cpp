// SPDX-License-Identifier: MIT
// Which messages come out, by the masks in the environment.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "log/logging.h"

using namespace zedipc;
using namespace zedipc::test;
using Names = std::vector<std::string>;

namespace {

// The line that tells of the masks, without the process.
std::string choice(const std::string& text) {
  const std::size_t found = text.find(">: ");
  if (text.rfind("DBGLOG <PID ", 0) != 0 || found == std::string::npos) return text;
  return text.substr(found + 3, text.find('\n') - found - 3);
}

const Names kAllLevels = {"emerg",   "alert", "critical", "error",
                          "warning", "note",  "info",     "debug"};

Names all_levels_of(const std::string& channel) {
  Names result;
  for (const std::string& level : kAllLevels) result.push_back(channel + ":" + level);
  return result;
}

Names joined(Names first, const Names& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace

TEST(LogMask, WithoutVariablesNothingElseIsWritten) { EXPECT_EQ(log_of({}, log_everything), ""); }

TEST(LogMask, EightPrintsErrorsOfTheChannelsOnly) {
  EXPECT_EQ(names(log_of({{"IPC_LOGMASK", "8"}}, log_everything)), Names{"IPC:error"});
}

TEST(LogMask, OfTheNotificationsLeavesTheChannelsSilent) {
  EXPECT_EQ(names(log_of({{"NFY_LOGMASK", "255"}}, log_everything)),
            joined(all_levels_of("NFY"), all_levels_of("NFYCL")));
}

TEST(LogMask, OfTheChannelsLeavesTheNotificationsSilent) {
  EXPECT_EQ(names(log_of({{"IPC_LOGMASK", "255"}}, log_everything)), all_levels_of("IPC"));
}

TEST(LogMask, OfEachVariableCountsWhenBothAreSet) {
  EXPECT_EQ(names(log_of({{"IPC_LOGMASK", "1"}, {"NFY_LOGMASK", "128"}}, log_everything)),
            (Names{"IPC:emerg", "NFY:debug", "NFYCL:debug"}));
}

TEST(LogMask, EachBitStandsForTheLevelOfItsNumber) {
  for (unsigned level = 0; level < 8; ++level) {
    const std::string mask = std::to_string(1U << level);
    EXPECT_EQ(names(log_of({{"IPC_LOGMASK", mask}, {"NFY_LOGMASK", mask}}, log_everything)),
              (Names{"IPC:" + kAllLevels[level], "NFY:" + kAllLevels[level],
                     "NFYCL:" + kAllLevels[level]}));
  }
}

TEST(LogMask, MinusOnePrintsAllLevels) {
  const std::string text = log_of({{"IPC_LOGMASK", "-1"}}, log_everything);
  EXPECT_EQ(choice(text), "Use stderr for logging (IPC_LOGMASK=-1, NFY_LOGMASK=0)");
  EXPECT_EQ(names(text), all_levels_of("IPC"));
}

TEST(LogMask, SetButEmptyIsZero) {
  const std::string text = log_of({{"IPC_LOGMASK", ""}}, log_everything);
  EXPECT_EQ(choice(text), "Use stderr for logging (IPC_LOGMASK=0, NFY_LOGMASK=0)");
  EXPECT_EQ(names(text), Names{});
}

TEST(LogMask, OfLettersIsZero) {
  const std::string text = log_of({{"NFY_LOGMASK", "stderr"}}, log_everything);
  EXPECT_EQ(choice(text), "Use stderr for logging (IPC_LOGMASK=0, NFY_LOGMASK=0)");
  EXPECT_EQ(names(text), Names{});
}

TEST(LogMask, InHexadecimalEndsAtTheLetter) {
  const std::string text = log_of({{"IPC_LOGMASK", "0x10"}}, log_everything);
  EXPECT_EQ(choice(text), "Use stderr for logging (IPC_LOGMASK=0, NFY_LOGMASK=0)");
  EXPECT_EQ(names(text), Names{});
}

TEST(LogMask, WithALeadingZeroIsDecimal) {
  EXPECT_EQ(choice(log_of({{"IPC_LOGMASK", "010"}}, log_everything)),
            "Use stderr for logging (IPC_LOGMASK=10, NFY_LOGMASK=0)");
}

TEST(LogMask, TakesSpaceAndSignAheadAndLeavesWhatFollowsTheDigits) {
  EXPECT_EQ(choice(log_of({{"IPC_LOGMASK", " \t+8errors"}}, log_everything)),
            "Use stderr for logging (IPC_LOGMASK=8, NFY_LOGMASK=0)");
}

TEST(LogMask, AboveThe32BitRangeIsTheHighestNumber) {
  const std::string text = log_of({{"IPC_LOGMASK", "4294967295"}}, [] {
    log_on(kLogIpc, 30);
    log_on(kLogIpc, 31);
  });
  EXPECT_EQ(choice(text), "Use stderr for logging (IPC_LOGMASK=2147483647, NFY_LOGMASK=0)");
  EXPECT_EQ(names(text), Names{"IPC:info"});
}

TEST(LogMask, BelowThe32BitRangeIsTheLowestNumber) {
  const std::string text = log_of({{"NFY_LOGMASK", "-99999999999999999999"}}, log_everything);
  EXPECT_EQ(choice(text), "Use stderr for logging (IPC_LOGMASK=0, NFY_LOGMASK=-2147483648)");
  EXPECT_EQ(names(text), Names{});
}

TEST(LogMask, OfALevelAboveSevenIsTheBitOfItsTrueNumber) {
  EXPECT_EQ(names(log_of({{"IPC_LOGMASK", "512"}},
                         [] {
                           log_on(kLogIpc, 9);
                           log_on(kLogIpc, 1);
                         })),
            Names{"IPC:alert"});
}

TEST(LogMask, HasABitForLevel31) {
  EXPECT_EQ(names(log_of({{"IPC_LOGMASK", "-1"}}, [] { log_on(kLogIpc, 31); })),
            Names{"IPC:debug"});
}

TEST(LogMask, HasNoBitForLevelsFrom32) {
  EXPECT_EQ(names(log_of({{"IPC_LOGMASK", "-1"}},
                         [] {
                           log_on(kLogIpc, 32);
                           log_on(kLogIpc, 39);
                           log_on(kLogIpc, 0xFFFFFFFFU);
                           log_on(kLogIpc, 0);
                         })),
            Names{"IPC:emerg"});
}

// ---- The choice, made once

TEST(LogChoice, IsToldInFrontOfTheFirstLine) {
  const ChildResult result =
      run_in_child({{"IPC_LOGMASK", "8"}, {"NFY_LOGMASK", "24"}}, [] { log_on(kLogIpc, 3); });
  const std::vector<LogLine> lines = parse_log(result.err);
  ASSERT_EQ(lines.size(), 1U);
  const std::string expected = "DBGLOG <" + lines[0].process +
                               ">: Use stderr for logging (IPC_LOGMASK=8, NFY_LOGMASK=24)\nIPC|";
  EXPECT_EQ(result.err.substr(0, expected.size()), expected);
}

TEST(LogChoice, IsNotMadeBeforeTheFirstLogCall) {
  EXPECT_EQ(log_of({{"IPC_LOGMASK", "255"}}, [] { dbg_log_channel() = kLogIpc; }), "");
}

TEST(LogChoice, IsMadeByAMessageThatIsNotPrinted) {
  EXPECT_EQ(choice(log_of({{"IPC_LOGMASK", "8"}}, [] { log_on(kLogIpc, 7); })),
            "Use stderr for logging (IPC_LOGMASK=8, NFY_LOGMASK=0)");
}

TEST(LogChoice, IsMadeByTheLevelTestToo) {
  EXPECT_EQ(choice(log_of({{"NFY_LOGMASK", "8"}}, [] { dbg_log_enabled(3); })),
            "Use stderr for logging (IPC_LOGMASK=0, NFY_LOGMASK=8)");
}

TEST(LogChoice, IsMadeAheadOfTheComplaintAboutAChannel) {
  const std::string text = log_of({{"IPC_LOGMASK", "8"}}, [] { log_on(-1, 3); });
  EXPECT_LT(text.find("Use stderr"), text.find("Invalid log channel")) << text;
  EXPECT_NE(text.find("Invalid log channel"), std::string::npos) << text;
}

TEST(LogChoice, IsMadeAndToldOnceByManyThreads) {
  const std::string text = log_of({{"IPC_LOGMASK", "8"}}, [] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back([] { log_on(kLogIpc, 3); });
    for (std::thread& thread : threads) thread.join();
  });
  EXPECT_EQ(text.find("Use stderr"), text.rfind("Use stderr")) << text;
  EXPECT_EQ(names(text), Names(8, "IPC:error"));
}

TEST(LogChoice, KeepsTheMasksThoughTheEnvironmentChanges) {
  const std::string text = log_of({{"IPC_LOGMASK", "8"}}, [] {
    log_on(kLogIpc, 3);
    setenv("IPC_LOGMASK", "255", 1);
    setenv("NFY_LOGMASK", "255", 1);
    log_everything();
  });
  EXPECT_EQ(names(text), (Names{"IPC:error", "IPC:error"}));
}

TEST(LogChoice, StaysSilentThoughAVariableIsSetLater) {
  EXPECT_EQ(log_of({},
                   [] {
                     log_on(kLogIpc, 3);
                     setenv("IPC_LOGMASK", "255", 1);
                     log_everything();
                   }),
            "");
}

// ---- The level test

TEST(LogEnabled, FollowsTheMaskOfTheThreadsChannel) {
  log_of({{"IPC_LOGMASK", "8"}, {"NFY_LOGMASK", "64"}}, [] {
    for (unsigned level = 0; level < 8; ++level) {
      dbg_log_channel() = kLogIpc;
      EXPECT_EQ(dbg_log_enabled(level), level == 3) << level;
      dbg_log_channel() = kLogNotifyServer;
      EXPECT_EQ(dbg_log_enabled(level), level == 6) << level;
      dbg_log_channel() = kLogNotifyClient;
      EXPECT_EQ(dbg_log_enabled(level), level == 6) << level;
    }
  });
}

TEST(LogEnabled, IsFalseWithoutVariables) {
  log_of({}, [] {
    dbg_log_channel() = kLogNotifyServer;
    for (unsigned level = 0; level < 40; ++level) EXPECT_FALSE(dbg_log_enabled(level)) << level;
  });
}

TEST(LogEnabled, HasABitForLevel31AndNoneFrom32) {
  log_of({{"IPC_LOGMASK", "-1"}}, [] {
    dbg_log_channel() = kLogIpc;
    EXPECT_TRUE(dbg_log_enabled(31));
    EXPECT_FALSE(dbg_log_enabled(32));
    EXPECT_FALSE(dbg_log_enabled(35));
    EXPECT_FALSE(dbg_log_enabled(0x80000003U));
  });
}
