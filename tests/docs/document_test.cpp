// SPDX-License-Identifier: MIT
// What the documents say, tried out.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <fstream>
#include <string>
#include <vector>

#include "notifyserver/rules.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

std::vector<std::string> lines_of(const std::string& document) {
  std::ifstream in(std::string(SOURCE_DIR) + "/" + document);
  EXPECT_TRUE(in) << document;
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The lines of the code block that is marked as `what`.
std::vector<std::string> block(const std::string& document, const std::string& what) {
  const std::string mark = "<!-- document_test: " + what + " -->";
  std::vector<std::string> result;
  bool found = false;
  bool inside = false;
  for (const std::string& line : lines_of(document)) {
    const bool fence = line.rfind("```", 0) == 0;
    if (line == mark) found = true;
    if (inside && fence) return result;
    if (inside) result.push_back(line);
    if (found && fence) inside = true;
  }
  ADD_FAILURE() << "no " << mark << " in " << document;
  return result;
}

}  // namespace

TEST(Documents, ProtocolConversationIsWhatTheServerSays) {
  const ServerProcess server;
  const RawPeer peer = RawPeer::connect();
  int read = 0;
  for (const std::string& line : block("docs/protocol.md", "conversation")) {
    if (line.rfind("> ", 0) == 0) {
      peer.send_message(line.substr(2));
    } else {
      ASSERT_EQ(line.substr(0, 2), "< ");
      EXPECT_EQ(peer.receive_message(), line.substr(2));
      ++read;
    }
  }
  EXPECT_EQ(read, 2);
}

TEST(Documents, ProtocolShowsMessagesAsTheLibraryWritesThem) {
  int messages = 0;
  for (const std::string& line : lines_of("docs/protocol.md")) {
    if (line.rfind("{\"", 0) != 0) continue;
    JSObject message;
    EXPECT_EQ(message.parse(line.c_str()), static_cast<int>(line.size())) << line;
    EXPECT_EQ(message.dump(), line);
    ++messages;
  }
  EXPECT_EQ(messages, 8);
}

TEST(Documents, ReadmeRulesAreValidAndDoWhatTheTextSays) {
  std::string text;
  for (const std::string& line : block("README.md", "rules")) text += line + "\n";
  RuleSet inbound;
  RuleSet outbound;
  ASSERT_TRUE(parse_config(text, inbound, outbound));
  EXPECT_TRUE(rule_match("anybody", "display", "status.lid", inbound));
  EXPECT_FALSE(rule_match("anybody", "*", "status.lid", inbound));
  EXPECT_TRUE(rule_match("printer", "anybody", "job*done", outbound));
  EXPECT_FALSE(rule_match("printer", "anybody", "job.done", outbound));
}
