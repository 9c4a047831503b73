// SPDX-License-Identifier: MIT
#include "demo/screen.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>

namespace demo {

namespace {

constexpr int kNameWidth = 13;  // of the longest one, "display-spare"

constexpr char kPlain[] = "0";
constexpr char kBold[] = "1";
constexpr char kGrey[] = "90";
constexpr char kGreen[] = "1;32";
constexpr char kRed[] = "1;31";

const char* colour_of(const std::string& process) {
  static const std::map<std::string, const char*> colours{{"server", "35"},
                                                          {"display", "32"},
                                                          {"display-spare", "36"},
                                                          {"printer", "33"},
                                                          {"monitor", "34"}};
  const auto found = colours.find(process);
  return found != colours.end() ? found->second : kPlain;
}

bool wants_colour() {
  const char* const terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr &&
         (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

}  // namespace

Screen::Screen() : colour_(wants_colour()) {}

void Screen::scene(const std::string& title) {
  ++scenes_;
  std::putchar('\n');
  print("demo", kGrey, "== " + std::to_string(scenes_) + ". " + title + " ==", kBold);
}

void Screen::tell(const std::string& text) const { print("demo", kGrey, text, kGrey); }

void Screen::line(const std::string& process, const std::string& text) const {
  print(process, colour_of(process), text, kPlain);
}

void Screen::verdict(bool good, const std::string& text) const {
  print("demo", kGrey, text, good ? kGreen : kRed);
}

void Screen::print(const std::string& name, const char* name_colour, const std::string& text,
                   const char* text_colour) const {
  if (colour_) {
    std::printf("\033[%sm%-*s\033[0m | \033[%sm%s\033[0m\n", name_colour, kNameWidth, name.c_str(),
                text_colour, text.c_str());
  } else {
    std::printf("%-*s | %s\n", kNameWidth, name.c_str(), text.c_str());
  }
  if (std::fflush(stdout) != 0) {
    throw std::runtime_error(std::string("cannot write to standard output: ") +
                             std::strerror(errno));
  }
}

}  // namespace demo
