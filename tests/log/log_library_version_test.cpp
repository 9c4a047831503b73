// SPDX-License-Identifier: MIT
// Which versions of the device's log library will do.
#include <gtest/gtest.h>

#include <string>

#include "log/fake_log_library.h"
#include "log/logging.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

class LogLibraryVersion : public InstalledLogLibraryTest {};

std::string found(const std::string& version) {
  return std::string(kOpened) +
         "DBGLOG <PID>: Found liblog (/home/svclog/lib/liblog.so.2), version: " + version + ".\n";
}

std::string wrong_format(const std::string& version) {
  return "DBGLOG <PID>: liblog wrong version format '" + version +
         "' returned, logging disabled.\n" + kClosed;
}

std::string too_old(const std::string& version) {
  return "DBGLOG <PID>: liblog '" + version + "' too old (<2.16.8), logging disabled.\n" + kClosed;
}

// What a process writes that logs.
std::string err_with(const std::string& version) {
  return err_of(good_but("LIBLOG_VERSION", version), log_everything);
}

void expect_good(const std::string& version) {
  const std::string text = err_with(version);
  const std::string start = found(version) + "DBGLOG <PID>: LogAPI_Init2(\"IPC\") returned 0x11";
  EXPECT_EQ(text.substr(0, start.size()), start);
  EXPECT_NE(text.find("liblog got"), std::string::npos) << text;
  EXPECT_EQ(text.find(kClosed), std::string::npos) << text;
}

}  // namespace

TEST_F(LogLibraryVersion, OfTheFirstGoodReleaseWillDo) { expect_good("2.16.8"); }

TEST_F(LogLibraryVersion, OfALaterReleaseWillDo) {
  for (const char* version :
       {"2.16.9", "2.16.100", "2.17.0", "2.100.0", "3.0.0", "10.0.0", "4294967295.0.0"}) {
    expect_good(version);
  }
}

TEST_F(LogLibraryVersion, MayGoOnAfterTheThreeNumbers) {
  expect_good("2.16.8-rc1");
  expect_good("2.16.8.1");
}

TEST_F(LogLibraryVersion, BeforeTheFirstGoodReleaseIsTooOld) {
  for (const char* version : {"2.16.7", "2.16.0", "2.15.99", "2.0.0", "1.99.99", "1.16.8", "1.17.0",
                              "0.99.99", "0.0.0", "2.16.07", "2.16.7-rc8"}) {
    EXPECT_EQ(err_with(version), found(version) + too_old(version));
  }
}

TEST_F(LogLibraryVersion, WithoutThreeNumbersHasAWrongFormat) {
  for (const char* version :
       {"2.16", "x", "", "2", "2.16.", "2.16.x", "3..0", "v2.16.8", "2,16,8", "3-0-0"}) {
    EXPECT_EQ(err_with(version), found(version) + wrong_format(version));
  }
}

TEST_F(LogLibraryVersion, ThatIsNullHasAWrongFormat) {
  EXPECT_EQ(err_of(good_without("LIBLOG_VERSION"), log_everything),
            found("none") + wrong_format("null"));
}
