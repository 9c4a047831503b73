// SPDX-License-Identifier: MIT
// The text of a line.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "log/fake_clock.h"
#include "log/logging.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

const Environment kAll = {{"IPC_LOGMASK", "-1"}, {"NFY_LOGMASK", "-1"}};

// What follows the line that tells of the masks.
std::string lines_of(const std::string& text) { return text.substr(text.find('\n') + 1); }

// The file part of a line that is logged for `module`.
std::string file_of(const char* module) {
  const std::string text = log_of(kAll, [module] {
    dbg_log_channel() = kLogIpc;
    dbg_log(module, 1, kLogError, "text\n");
  });
  const std::string line = lines_of(text);
  return line.substr(0, line.find(":1|"));
}

// The stamp of a line that is logged at this time.
std::string stamp_at(std::int64_t seconds, long nanoseconds) {
  const std::vector<LogLine> lines = parse_log(log_of(kAll, [=] {
    const FakeClock clock(seconds, nanoseconds);
    log_on(kLogIpc, kLogError);
  }));
  return lines.size() == 1 ? lines[0].stamp : "no line";
}

// What a line says, if this is one.
std::string after_head(const std::string& line) {
  return line.rfind("IPC|", 0) == 0 ? line.substr(line.rfind('|') + 1) : "no line: " + line;
}

// Takes the place of standard error, and keeps what is written there write by write.
class WritesToStandardError {
 public:
  WritesToStandardError() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends_), 0);
    EXPECT_EQ(dup2(ends_[0], STDERR_FILENO), STDERR_FILENO);
  }
  WritesToStandardError(const WritesToStandardError&) = delete;
  WritesToStandardError& operator=(const WritesToStandardError&) = delete;

  // What one write wrote; nothing if there was none.
  [[nodiscard]] std::string next() const {
    std::string text(200000, '\0');
    const ssize_t size = recv(ends_[1], &text[0], text.size(), MSG_DONTWAIT);
    text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return text;
  }

 private:
  int ends_[2];
};

}  // namespace

TEST(LogLine, HoldsItsFieldsInOrder) {
  const ChildResult result = run_in_child(kAll, [] {
    const FakeClock clock(12, 34567890);
    dbg_log_channel() = kLogNotifyClient;
    dbg_log("src/notifyclient.cpp", 77, kLogWarning, "sent %d of %s\n", 3, "four");
    std::printf("%d", static_cast<int>(getpid()));
  });
  EXPECT_EQ(lines_of(result.err),
            "IPC|notifyclient.cpp:77|PID " + result.out + "|12.034|NFYCL:warning|sent 3 of four\n");
}

TEST(LogLine, BeginsTheSameOnEveryChannel) {
  const std::string text = lines_of(log_of(kAll, [] {
    for (int channel = 0; channel < kLogChannels; ++channel) log_on(channel, kLogError);
  }));
  std::string starts;
  for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
    starts += text.substr(at, 12);
  }
  EXPECT_EQ(starts, "IPC|ipc.cpp:IPC|ipc.cpp:IPC|ipc.cpp:");
}

TEST(LogLine, NamesALevelAboveSevenByItsLowBits) {
  std::vector<std::string> expected;
  for (const char* level :
       {"emerg", "alert", "critical", "error", "warning", "note", "info", "debug"}) {
    expected.push_back(std::string("IPC:") + level);
  }
  EXPECT_EQ(names(log_of(kAll,
                         [] {
                           for (unsigned level = 8; level < 16; ++level) log_on(kLogIpc, level);
                         })),
            expected);
}

TEST(LogLine, GetsNoLineEndOfItsOwn) {
  const std::string text = lines_of(log_of(kAll, [] {
    const FakeClock clock(1, 0);
    dbg_log_channel() = kLogIpc;
    dbg_log("a", 1, kLogError, "first");
    dbg_log("b", 2, kLogError, "second");
  }));
  const std::size_t end = text.find("first") + 5;
  EXPECT_EQ(text.substr(end, 10), "IPC|b:2|PI");
  EXPECT_EQ(text.substr(text.size() - 6), "second");
}

TEST(LogLine, CarriesALongMessageWhole) {
  const std::string message(100000, 'x');
  const std::string text = log_of(kAll, [&] { log_on(kLogIpc, kLogError, message.c_str()); });
  EXPECT_EQ(text.substr(text.rfind('|') + 1), message + "\n");
}

// ---- The module

TEST(LogModule, IsCutToTheFileName) {
  EXPECT_EQ(file_of("src/ipc.cpp"), "IPC|ipc.cpp");
  EXPECT_EQ(file_of("/a/deep/path/file.cpp"), "IPC|file.cpp");
}

TEST(LogModule, WithoutADirectoryStaysWhole) { EXPECT_EQ(file_of("file.cpp"), "IPC|file.cpp"); }

TEST(LogModule, ThatEndsInASlashIsEmpty) { EXPECT_EQ(file_of("src/"), "IPC|"); }

// ---- The stamp

TEST(LogStamp, IsTheMonotonicClockInMilliseconds) {
  const ChildResult result = run_in_child(kAll, [] {
    timespec before;
    timespec after;
    monotonic_now(before);
    log_on(kLogIpc, kLogError);
    monotonic_now(after);
    std::printf("%jd %jd", static_cast<intmax_t>(before.tv_sec) * 1000 + before.tv_nsec / 1000000,
                static_cast<intmax_t>(after.tv_sec) * 1000 + after.tv_nsec / 1000000);
  });
  const std::vector<LogLine> lines = parse_log(result.err);
  ASSERT_EQ(lines.size(), 1U);
  intmax_t before = 0;
  intmax_t after = 0;
  ASSERT_EQ(std::sscanf(result.out.c_str(), "%jd %jd", &before, &after), 2);
  long seconds = 0;
  long msec = 0;
  ASSERT_EQ(std::sscanf(lines[0].stamp.c_str(), "%ld.%ld", &seconds, &msec), 2);
  EXPECT_GE(seconds * 1000 + msec, before);
  EXPECT_LE(seconds * 1000 + msec, after);
}

TEST(LogStamp, PadsTheMillisecondsToThreeDigits) {
  EXPECT_EQ(stamp_at(7, 5000000), "7.005");
  EXPECT_EQ(stamp_at(0, 50000000), "0.050");
}

TEST(LogStamp, CutsOffPartsOfAMillisecond) { EXPECT_EQ(stamp_at(7, 999999999), "7.999"); }

TEST(LogStamp, CountsOnWithoutASignBeyond31Bits) {
  EXPECT_EQ(stamp_at(2147483, 648000000), "2147483.648");
  EXPECT_EQ(stamp_at(4294967, 295999999), "4294967.295");
}

TEST(LogStamp, WrapsAt32Bits) {
  EXPECT_EQ(stamp_at(4294967, 296000000), "0.000");
  EXPECT_EQ(stamp_at(4294968, 0), "0.704");
}

TEST(LogStamp, WrapsTheSecondsTimes1000Too) {
  if (sizeof(time_t) < sizeof(std::int64_t)) GTEST_SKIP() << "seconds have 32 bits here";
  EXPECT_EQ(stamp_at(INT64_C(8589934592), 1000000), "0.001");
  EXPECT_EQ(stamp_at(INT64_C(8589934593), 0), "1.000");
}

// ---- Threads

TEST(LogLine, IsNotTornByOtherThreads) {
  const std::string text = log_of(kAll, [] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([i] {
        const std::string message(static_cast<std::size_t>(20 + i), static_cast<char>('a' + i));
        for (int n = 0; n < 200; ++n) log_on(i % kLogChannels, kLogError, message.c_str());
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  std::vector<int> count(8);
  std::size_t bytes = text.find('\n') + 1;
  for (const LogLine& line : parse_log(text)) {
    const int thread = line.message.empty() ? -1 : line.message[0] - 'a';
    ASSERT_GE(thread, 0);
    ASSERT_LT(thread, 8);
    EXPECT_EQ(line.message, std::string(static_cast<std::size_t>(20 + thread), line.message[0]));
    ++count[static_cast<std::size_t>(thread)];
    bytes += text.find('\n', bytes) - bytes + 1;
  }
  EXPECT_EQ(count, std::vector<int>(8, 200));
  EXPECT_EQ(bytes, text.size()) << "there are lines that are none of the log's";
}

// So that what others write to the same place cannot come in between.
TEST(LogLine, GoesOutAsOneWrite) {
  const ChildResult result = run_in_child(kAll, [] {
    const WritesToStandardError writes;
    log_on(kLogIpc, kLogError);
    EXPECT_EQ(writes.next().rfind("DBGLOG <", 0), 0U);
    EXPECT_EQ(after_head(writes.next()), "text\n");
    for (const std::size_t size : {0U, 400U, 1000U, 1024U, 3000U, 100000U}) {
      for (std::size_t length = size; length < size + 100; ++length) {
        const std::string message(length, 'x');
        log_on(kLogIpc, kLogError, message.c_str());
        EXPECT_EQ(after_head(writes.next()), message + "\n");
      }
    }
    log_on(kLogNoChannel, kLogError);
    EXPECT_EQ(writes.next().back(), '\n');
  });
  EXPECT_EQ(result.status, 0) << result.out;
}
