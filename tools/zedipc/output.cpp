// SPDX-License-Identifier: MIT
// Colours where the terminal has them, and writes that may fail.
#include "zedipc/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace command {

namespace {

const char* code(Colour colour) {
  switch (colour) {
    case Colour::kBold:
      return "1";
    case Colour::kGrey:
      return "90";
    case Colour::kRed:
      return "1;31";
    case Colour::kGreen:
      return "32";
    case Colour::kYellow:
      return "33";
    case Colour::kCyan:
      return "36";
    default:
      return "0";
  }
}

bool wants_colour() {
  const char* const terminal = std::getenv("TERM");
  return std::getenv("NO_COLOR") == nullptr &&
         (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

}  // namespace

Output::Output() : terminal_(isatty(STDOUT_FILENO) == 1), colour_(terminal_ && wants_colour()) {}

void Output::write(const std::string& text) const {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno == EPIPE) {
      throw OutputClosed();
    } else if (errno != EINTR) {
      throw Failure(std::string("cannot write to standard output: ") + std::strerror(errno));
    }
  }
}

std::string Output::paint(Colour colour, const std::string& text) const {
  if (!colour_ || colour == Colour::kPlain || text.empty()) return text;
  return std::string("\033[") + code(colour) + "m" + text + "\033[0m";
}

void say(const std::string& text) { std::fprintf(stderr, "zedipc: %s\n", text.c_str()); }

}  // namespace command
