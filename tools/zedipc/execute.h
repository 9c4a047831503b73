// SPDX-License-Identifier: MIT
// A command that is run for each notification.
#pragma once

#include <string>
#include <vector>

#include "zedipc/inbox.h"

namespace command {

// The command finds the notification's fields in its environment, as ZEDIPC_FROM,
// ZEDIPC_TO, ZEDIPC_NOTIFICATION and ZEDIPC_FLAGS, and the parameter as JSON on standard
// input. No part of a notification gets into the command line.
class Execution {
 public:
  // Without a shell the command is split at blanks, and no character is special.
  Execution(const std::string& command, bool shell);

  // Runs it, waits for its end, and says how it failed if it did. Throws Failure if it
  // cannot be started.
  void run(const Message& message) const;

 private:
  std::string command_;
  std::vector<std::string> words_;
};

}  // namespace command
