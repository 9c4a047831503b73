// SPDX-License-Identifier: MIT
// A command that is run for each notification.
#pragma once

#include <string>
#include <vector>

#include "zedipc/inbox.h"

namespace command {

// The notification's fields are in the environment of the command, as ZEDIPC_FROM,
// ZEDIPC_TO, ZEDIPC_NOTIFICATION and ZEDIPC_FLAGS; the parameter is JSON on its standard
// input. Nothing of a notification becomes a part of the command line.
class Execution {
 public:
  // Without a shell the command is words with blanks between them, and nothing in it has
  // a special meaning.
  Execution(const std::string& command, bool shell);

  // Runs it, and waits for its end; says how it failed, if it did. Throws Failure if it
  // cannot be started.
  void run(const Message& message) const;

 private:
  std::string command_;
  std::vector<std::string> words_;
};

}  // namespace command
