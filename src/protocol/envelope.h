// SPDX-License-Identifier: MIT
// Reading a notification without a value for the whole of it.
#pragma once

#include <string>

namespace zedipc {

// What stands around the parameter of a notification. Nearly all are written by ipcNotify,
// member by member in the order of their keys, and are read here in a fraction of the time
// that their value takes; any other text is for JSObject.
struct Envelope {
  int flags = 0;
  std::string from;
  std::string notification;
  std::string to;
  const char* parameter = nullptr;  // in the text that was read
  const char* parameter_end = nullptr;
  bool has_reference = false;

  // False if the text is not written so. `end_of` gives the place behind the value that
  // begins at its argument, or null.
  template <typename Function>
  bool read(const std::string& text, Function end_of) {
    if (!read_head(text)) return false;
    parameter_end = end_of(parameter);
    return parameter_end != nullptr && read_tail(text);
  }

 private:
  bool read_head(const std::string& text);
  bool read_tail(const std::string& text);
};

}  // namespace zedipc
