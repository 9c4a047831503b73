// SPDX-License-Identifier: MIT
// Rule files as the server reads them. A file whose last line counts has been read whole.
#include <gtest/gtest.h>

#include <string>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/child.h"
#include "support/raw_peer.h"
#include "support/scratch_dir.h"
#include "support/server_process.h"

#include <zedipc/notify.h>

using namespace zedipc;
using namespace zedipc::test;

namespace {

// A comment and this last line, together of exactly this size.
std::string padded(std::size_t size, const std::string& last_line) {
  return "#" + std::string(size - last_line.size() - 2, '.') + "\n" + last_line;
}

// Whether the server that is given this file says "local" or "external".
std::string service_of(const std::string& file) {
  const Child child(kInfos, [&] { ipcNotificationServer(file.c_str()); });
  const std::string head = "notification service started on ";
  EXPECT_TRUE(child.wait_for_err(head)) << child.err();
  const std::string text = child.err();
  const std::size_t at = text.find(head) + head.size();
  return text.substr(at, text.find(' ', at) - at);
}

std::string service_with(const std::string& text) {
  const ScratchDir dir;
  return service_of(dir.write("rules", text));
}

// The result of a start with this text, which must fail.
int result_with(const std::string& text) {
  const ScratchDir dir;
  return ipcNotificationServer(dir.write("rules", text).c_str());
}

}  // namespace

TEST(ConfigFile, ThatIsEmptyMakesALocalService) { EXPECT_EQ(service_with(""), "local"); }

TEST(ConfigFile, OfCommentsOnlyMakesALocalService) {
  EXPECT_EQ(service_with("# in * * *\n\n   # out * * *\n"), "local");
}

TEST(ConfigFile, OfOneBlockIsReadWhole) {
  EXPECT_EQ(padded(4096, "out * * *").size(), 4096U);
  EXPECT_EQ(service_with(padded(4096, "out * * *")), "external");
}

TEST(ConfigFile, OfSeveralWholeBlocksIsReadWhole) {
  EXPECT_EQ(service_with(padded(3 * 4096, "out * * *\n")), "external");
}

TEST(ConfigFile, LargerThanABlockIsReadWhole) {
  EXPECT_EQ(service_with(padded(4097, "in * * *")), "external");
}

TEST(ConfigFile, HasNoLimitOfSize) {
  EXPECT_EQ(service_with(padded(3000001, "in * * *")), "external");
}

TEST(ConfigFile, OfAnySizeAroundABlocksEndIsReadToItsLastByte) {
  for (const std::size_t blocks : {1U, 2U, 5U}) {
    for (int off = -2; off <= 2; ++off) {
      const std::size_t size = static_cast<std::size_t>(static_cast<int>(blocks * 4096) + off);
      EXPECT_EQ(result_with(padded(size, "in a b c d")), -5) << size;
      EXPECT_EQ(result_with(padded(size, "in a b")), -5) << size;
    }
  }
}

TEST(ConfigFile, GoesOnBehindAZeroByte) {
  EXPECT_EQ(result_with(std::string("# \0\n\0\nbad line\n", 15)), -5);
}

TEST(ConfigFile, ThatCannotBeReadCountsAsEmpty) {
  const ScratchDir dir;
  EXPECT_EQ(service_of(dir.file("")), "local");
}

TEST(ConfigFile, MayHaveLinesThatEndInCarriageReturns) {
  ServerProcess server("# rules\r\nin * * *\r\n\r\nout * * n\r\n", {});
  const RawPeer remote = join("far", "n", 1, kRemote);
  remote.send_message(notification("*", "n"));
  EXPECT_EQ(remote.receive_message(), notification("*", "n"));
}
