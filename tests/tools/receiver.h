// SPDX-License-Identifier: MIT
// What the tests of zedipc send need: a receiver, and when it can be interrupted.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <string>

#include "support/raw_peer.h"
#include "tools/tool.h"

namespace command::test {

// A receiver named "display" of the notification "n", which the server knows.
class Receiver {
 public:
  Receiver() {
    peer_.send_message(R"({"type":"register","to":"display","notification":"n"})");
    // What is sent to nobody comes back when the registration has been read.
    peer_.send_message(R"({"type":"notify","from":"d","to":"nobody","notification":"n"})");
    EXPECT_TRUE(contains(peer_.receive_message(), "unicast_error"));
  }
  [[nodiscard]] std::string next() const { return peer_.receive_message(); }
  [[nodiscard]] const zedipc::test::RawPeer& peer() const { return peer_; }

 private:
  zedipc::test::RawPeer peer_ = zedipc::test::RawPeer::connect();
};

// Waits until the process ends by Ctrl-C in a way of its own.
inline bool catches_ctrl_c(pid_t pid) {
  return zedipc::test::eventually([pid] {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;) {
      if (word == "SigCgt:" && status >> word) {
        return (std::stoull(word, nullptr, 16) >> (SIGINT - 1) & 1U) != 0;
      }
    }
    return false;
  });
}

// What arrives there.
inline std::string message(const std::string& to, const std::string& parameter,
                           const std::string& from = "zedipc", const std::string& flags = "0") {
  const std::string reference = to == "*" ? "" : R"("reference":268435456,)";
  return R"({"flags":)" + flags + R"(,"from":")" + from + R"(","notification":"n","parameter":)" +
         parameter + "," + reference + R"("to":")" + to + R"(","type":"notify"})";
}

}  // namespace command::test
