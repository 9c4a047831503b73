// SPDX-License-Identifier: MIT
// Reading a notification without building a value for all of it. For message.cpp alone.
#pragma once

#include <string>

#include <zedipc/jsobject.h>

namespace zedipc {

// What stands around a notification's parameter. ipcNotify writes nearly all notifications,
// with their members in the order of the keys, and reading those here takes a fraction of
// the time that a value takes. All other texts are left to JSObject.
struct Envelope {
  int flags = 0;
  std::string from;
  std::string notification;
  std::string to;
  const char* parameter = nullptr;  // where it is in the text
  const char* parameter_end = nullptr;
  bool has_reference = false;
  int reference = 0;

  // Reads a text that is in its entirety what would be written for its value. False for any
  // other.
  bool read(const std::string& text);

  // Reads a text of which that is true apart from the parameter, and parses the parameter,
  // which may be any value. False for any other text; the parameter is then of no use.
  bool read(const std::string& text, JSObject& parameter_value);

 private:
  bool read_head(const std::string& text);
  bool read_tail(const std::string& text);
};

}  // namespace zedipc
