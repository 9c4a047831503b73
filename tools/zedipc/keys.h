// SPDX-License-Identifier: MIT
// Keys typed on the terminal, one at a time.
#pragma once

#include <termios.h>

namespace command {

// While it exists, each key arrives at once and is not echoed. It does nothing unless
// standard input is a terminal with this process in the foreground.
class Keys {
 public:
  Keys();
  ~Keys();
  Keys(const Keys&) = delete;
  Keys& operator=(const Keys&) = delete;

  // Whether keys can come.
  [[nodiscard]] bool active() const { return active_; }
  // Whether the key has been typed since the last call.
  bool typed(char key);

 private:
  bool active_ = false;
  bool changed_ = false;  // the terminal
  termios before_{};
};

}  // namespace command
