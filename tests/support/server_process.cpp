// SPDX-License-Identifier: MIT
#include "support/server_process.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <fstream>

#include <zedipc/notify.h>

#include "support/raw_peer.h"

namespace zedipc::test {

bool port_is_open(unsigned short port) {
  char local[16];
  std::snprintf(local, sizeof local, ":%04X ", port);
  for (const char* table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    std::ifstream in(table);
    std::string line;
    while (std::getline(in, line)) {
      // "0: 0100007F:170B 00000000:0000 0A ...": the state 0A is LISTEN.
      const std::size_t found = line.find(local);
      const std::size_t listening = line.find(":0000 0A");
      if (found < listening && listening != std::string::npos) return true;
    }
  }
  return false;
}

ServerProcess::ServerProcess(const Environment& environment) : environment_(environment) {
  start();
}

ServerProcess::ServerProcess(const std::string& rules, const Environment& environment)
    : rule_file_(dir_.write("rules", rules)), environment_(environment) {
  start();
}

void ServerProcess::start() {
  child_ = std::make_unique<Child>(environment_, [this] {
    const char* const config = rule_file_.empty() ? nullptr : rule_file_.c_str();
    std::fprintf(stderr, "server ended with %d\n", ipcNotificationServer(config));
  });
  ASSERT_TRUE(eventually([] { return port_is_open(kNotifyPort); })) << child_->err();
}

void ServerProcess::stop() {
  child_->kill(SIGKILL);
  child_->wait();
}

}  // namespace zedipc::test
