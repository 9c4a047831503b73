// SPDX-License-Identifier: MIT
// A server program of another system, run for one measurement, with its own settings, where
// nobody else can reach it.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "demo/process.h"
#include "support/scratch_dir.h"

namespace bench {

// The measurement is not possible on this machine.
class NotInstalled : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Daemon {
 public:
  // A directory for what the program reads and writes.
  [[nodiscard]] const zedipc::test::ScratchDir& directory() const { return directory_; }

  // Starts a program found in PATH or /usr/sbin. Throws NotInstalled if there is none.
  pid_t start(const std::string& program, const std::vector<std::string>& arguments);

 private:
  zedipc::test::ScratchDir directory_;
  std::unique_ptr<demo::Process> process_;
};

// Whether a server listens on this port of 127.0.0.1, or on a local socket of this name.
bool port_answers(unsigned short port);
bool path_answers(const std::string& path);

}  // namespace bench
