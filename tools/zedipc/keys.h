// SPDX-License-Identifier: MIT
// Single keys that are typed on the terminal.
#pragma once

#include <termios.h>

namespace command {

// While it exists, keys come one by one, and are not shown. It does nothing unless standard
// input is a terminal, and this process the one in its foreground.
class Keys {
 public:
  Keys();
  ~Keys();
  Keys(const Keys&) = delete;
  Keys& operator=(const Keys&) = delete;

  // Whether keys can come.
  [[nodiscard]] bool active() const { return active_; }
  // Whether the key is among those that have been typed since the last call.
  bool typed(char key);

 private:
  bool active_ = false;
  bool changed_ = false;  // the terminal
  termios before_{};
};

}  // namespace command
