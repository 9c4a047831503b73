// SPDX-License-Identifier: MIT
// The device's log library, played by a fake at its fixed place.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "support/child.h"

namespace zedipc::test {

// What the fake writes when it is loaded and unloaded.
inline constexpr char kOpened[] = "liblog opened\n";
inline constexpr char kClosed[] = "liblog closed\n";

inline constexpr char kMissing[] =
    "DBGLOG <PID>: dlopen(/home/svclog/lib/liblog.so.2) returned 0, logging disabled.\n";

// What a process writes that finds a library that will do.
inline constexpr char kBound[] =
    "liblog opened\n"
    "DBGLOG <PID>: Found liblog (/home/svclog/lib/liblog.so.2), version: 2.16.8.\n"
    "DBGLOG <PID>: LogAPI_Init2(\"IPC\") returned 0x11, liblog initialization for IPC "
    "successful.\n"
    "DBGLOG <PID>: LogAPI_Init2(\"NFY\") returned 0x22, liblog initialization for NFY "
    "successful.\n"
    "DBGLOG <PID>: LogAPI_Init2(\"NFYCL\") returned 0x33, liblog initialization for NFYCL "
    "successful.\n";

// The answers of a library that will do.
inline const Environment kGood = {{"LIBLOG_VERSION", "2.16.8"},
                                  {"LIBLOG_IPC", "0x11"},
                                  {"LIBLOG_NFY", "0x22"},
                                  {"LIBLOG_NFYCL", "0x33"},
                                  {"LIBLOG_ENOUGH", "1"}};

inline Environment good_but(const std::string& name, const std::string& value) {
  Environment environment = kGood;
  environment[name] = value;
  return environment;
}

inline Environment good_without(const std::string& name) {
  Environment environment = kGood;
  environment.erase(name);
  return environment;
}

// What a process writes to standard error, with its number left out of "<PID 1234>".
inline std::string err_of(const Environment& environment, const std::function<void()>& body) {
  Child child(environment, body);
  const std::string pid = "<PID " + std::to_string(child.pid()) + ">";
  const int status = child.wait();
  std::string text = child.err();
  EXPECT_EQ(status, 0) << text;
  for (std::size_t at = 0; (at = text.find(pid)) != std::string::npos;) {
    text.replace(at, pid.size(), "<PID>");
  }
  return text;
}

// A test with the place of the log library for itself, which is empty at first.
class LogLibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (getenv("PRIVATE_HOME") == nullptr) {
      GTEST_SKIP() << "no mount namespaces here, in which to install a log library";
    }
    std::filesystem::remove(kPath);
    std::filesystem::create_directories(kPath.parent_path());
  }

  // Puts a file with these bytes there.
  static void install_file(const std::string& bytes) {
    std::ofstream(kPath, std::ios::binary) << bytes;
  }

  // Installs the fake, with these symbols under another name of the same length.
  static void install(const std::vector<std::string>& missing_symbols = {}) {
    std::ifstream file(FAKE_LOG_LIBRARY, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (const std::string& symbol : missing_symbols) {
      ASSERT_NE(bytes.find(symbol), std::string::npos);
      for (std::size_t at = 0; (at = bytes.find(symbol, at)) != std::string::npos;) bytes[at] = 'X';
    }
    install_file(bytes);
  }

 private:
  inline static const std::filesystem::path kPath = "/home/svclog/lib/liblog.so.2";
};

// The same with the fake installed.
class InstalledLogLibraryTest : public LogLibraryTest {
 protected:
  void SetUp() override {
    LogLibraryTest::SetUp();
    if (!IsSkipped()) install();
  }
};

}  // namespace zedipc::test
