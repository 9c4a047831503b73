// SPDX-License-Identifier: MIT
// What the command says: results on standard output, messages on standard error.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace command {

// The exit statuses of all commands.
constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

// Why a command failed, in words for its user.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The reader of standard output has gone, which ends a command silently.
class OutputClosed : public std::exception {};

enum class Colour { kPlain, kBold, kGrey, kRed, kGreen, kYellow, kCyan };

// Standard output. Each call writes at once, so that a reader sees whole lines. Throws
// OutputClosed, or Failure where the text cannot be written for another reason.
class Output {
 public:
  Output();

  void line(const std::string& text) const { write(text + '\n'); }
  void write(const std::string& text) const;

  // Whether it is a terminal.
  [[nodiscard]] bool terminal() const { return terminal_; }
  // The text, in colour if that is wanted: on a terminal, and without NO_COLOR.
  [[nodiscard]] std::string paint(Colour colour, const std::string& text) const;

 private:
  bool terminal_;
  bool colour_;
};

// Writes a message to standard error.
void say(const std::string& text);

}  // namespace command
