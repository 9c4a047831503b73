// SPDX-License-Identifier: MIT
// What the demo prints: lines that begin with the name of the process they are from.
#pragma once

#include <string>

namespace demo {

// What cannot be printed throws std::runtime_error.
class Screen {
 public:
  Screen();

  // The title of a scene, with a number.
  void scene(const std::string& title);
  // A line of the demo's own.
  void tell(const std::string& text) const;
  // A line of a process.
  void line(const std::string& process, const std::string& text) const;
  // The last word, good or bad.
  void verdict(bool good, const std::string& text) const;

 private:
  void print(const std::string& name, const char* name_colour, const std::string& text,
             const char* text_colour) const;

  bool colour_;
  int scenes_ = 0;
};

}  // namespace demo
