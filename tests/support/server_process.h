// SPDX-License-Identifier: MIT
// The notification server as a process.
#pragma once

#include <memory>
#include <string>

#include "support/child.h"
#include "support/scratch_dir.h"

namespace zedipc::test {

// Whether something listens on this TCP port, on any address.
bool port_is_open(unsigned short port);

class ServerProcess {
 public:
  // Starts a server without rules, or with a rule file of this text, and waits until it
  // listens.
  explicit ServerProcess(const Environment& environment = {});
  ServerProcess(const std::string& rules, const Environment& environment);

  Child& process() { return *child_; }
  // What it has logged so far, as log_messages() gives it.
  [[nodiscard]] std::string err() const { return child_->err(); }

  // Kills the server and waits for its end.
  void stop();
  // Starts it again after stop().
  void start();

 private:
  ScratchDir dir_;
  std::string rule_file_;  // "" for none
  Environment environment_;
  std::unique_ptr<Child> child_;
};

}  // namespace zedipc::test
