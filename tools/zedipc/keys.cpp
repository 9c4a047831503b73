// SPDX-License-Identifier: MIT
// The terminal without line editing, as long as keys are wanted.
#include "zedipc/keys.h"

#include <poll.h>
#include <unistd.h>

namespace command {

namespace {

// A process in the background is stopped if it touches the terminal.
bool in_foreground() { return tcgetpgrp(STDIN_FILENO) == getpgrp(); }

}  // namespace

Keys::Keys() {
  if (isatty(STDIN_FILENO) != 1 || !in_foreground()) return;
  if (tcgetattr(STDIN_FILENO, &before_) != 0) return;
  termios single = before_;
  single.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  active_ = changed_ = tcsetattr(STDIN_FILENO, TCSANOW, &single) == 0;
}

Keys::~Keys() {
  if (changed_ && in_foreground()) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

bool Keys::typed(char key) {
  pollfd waited{STDIN_FILENO, POLLIN, 0};
  while (active_ && in_foreground() && poll(&waited, 1, 0) == 1) {
    char typed = 0;
    if (read(STDIN_FILENO, &typed, 1) != 1) active_ = false;  // the terminal has gone
    if (typed == key) return true;
  }
  return false;
}

}  // namespace command
