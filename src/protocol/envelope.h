// SPDX-License-Identifier: MIT
// Reading a notification without building a value for all of it. For message.cpp alone.
#pragma once

#include <string>

#include <zedipc/jsobject.h>

namespace zedipc {

// What stands around the parameter of a notification. ipcNotify writes nearly all of them,
// in canonical form: they are read here in a fraction of the time that their value takes.
// Any other text is for JSObject.
struct Envelope {
  int flags = 0;
  std::string from;
  std::string notification;
  std::string to;
  const char* parameter = nullptr;  // where it is in the text
  const char* parameter_end = nullptr;
  bool has_reference = false;
  int reference = 0;

  // Reads a text in canonical form. False for any other.
  bool read(const std::string& text);

  // Reads a text in canonical form but for the parameter, which is read too, whatever its
  // form. False for any other; the parameter is of no use then.
  bool read(const std::string& text, JSObject& parameter_value);

 private:
  bool read_head(const std::string& text);
  bool read_tail(const std::string& text);
};

}  // namespace zedipc
