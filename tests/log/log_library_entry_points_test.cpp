// SPDX-License-Identifier: MIT
// The messages of the public calls in the device's log library.
#include <gtest/gtest.h>
#include <zedipc/notify.h>
#include <zedipc/tcp.h>

#include <functional>
#include <regex>
#include <string>

#include "log/fake_log_library.h"
#include "support/scratch_dir.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

class LogLibraryEntryPoint : public LogLibraryTest {};

// Whether a process that makes this call gives the log library a message which matches
// this pattern, from "level" on.
void expect_logged(const std::function<void()>& call, const std::string& pattern) {
  const std::string text = err_of(kGood, call);
  EXPECT_EQ(text.rfind(kBound, 0), 0U) << text;
  EXPECT_TRUE(std::regex_search(text, std::regex("liblog got " + pattern + "\n"))) << text;
}

}  // namespace

TEST_F(LogLibraryEntryPoint, OfAChannelLogsAsItsLayer) {
  install();
  expect_logged([] { TCP().write("x", 1); },
                "level 4 on 0x11 from src/ipc\\.cpp:[0-9]+: 0x[0-9a-f]+->IpcPrivate::write\\(\\): "
                "no connection");
}

TEST_F(LogLibraryEntryPoint, OfTheServerLogsAsItsLayer) {
  install();
  const ScratchDir dir;
  expect_logged([&] { ipcNotificationServer(dir.file("missing").c_str()); },
                "level 4 on 0x22 from src/notifyserver\\.cpp:[0-9]+: ipcNotificationServer\\(\\): "
                "couldn't open config file '.*missing'");
}

TEST_F(LogLibraryEntryPoint, OfTheClientLogsAsItsLayer) {
  install();
  expect_logged([] { ipcNotify("to", "n"); },
                "level 4 on 0x33 from src/notifyclient\\.cpp:[0-9]+: ipcNotify\\(\\): "
                "no parameter 'from' passed and no appID set for notification 'n'");
}

TEST_F(LogLibraryEntryPoint, AsksWhetherToBuildALongText) {
  install();
  const std::string text = err_of(kGood, [] { ipcNotify("to", "n"); });
  EXPECT_NE(text.find("liblog asked of level 7 on 0x33\n"), std::string::npos) << text;
}

TEST_F(LogLibraryEntryPoint, IsSilentWithoutALibraryButForOneLine) {
  const std::string text = err_of(kGood, [] {
    for (int i = 0; i < 3; ++i) {
      TCP().write("x", 1);
      ipcNotify("to", "n");
      ipcNotificationServer("/dev/null/missing");
    }
  });
  EXPECT_EQ(text, kMissing);
}
