// SPDX-License-Identifier: MIT
// The seven messages between the notification server and its clients: the one place that
// knows their form. docs/protocol.md describes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <zedipc/jsobject.h>

#include "protocol/protocol.h"

namespace zedipc {

// A notification without its parameter. Refers to its strings, and must not outlive them.
struct Headline {
  const std::string& from;
  const std::string& to;
  const std::string& notification;
  unsigned int flags;
};

std::string notify_text(const Headline& headline, const JSObject& parameter);
std::string notify_observer_text(const Headline& headline);
std::string register_text(const std::string& to, const std::string& notification,
                          std::int32_t priority);
std::string unregister_text(const std::string& to, const std::string& notification);
std::string register_observer_text();
std::string unregister_observer_text();

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

  // Reads a text in canonical form. With a place for the parameter's value, this is read too,
  // whatever its form. False for any other text; the value is of no use then.
  bool read(const std::string& text, JSObject* parameter_value = nullptr);
};

// A message that came in. Most notifications are read without building a value for the whole
// text, all other texts with one; callers cannot tell the difference.
//
// Reading an absent member creates it, as null, and whatever is written from the message
// later then has it. So when a member is read is part of what peers see.
class Message {
 public:
  // To pass a notification on, its parameter can be left as text.
  enum class Parameter { kLeave, kRead };

  // Keeps a reference to the text, which stays unchanged for the message's life.
  Message(const std::string& text, Parameter parameter);
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  // Known from the start: "type" has been read.
  [[nodiscard]] const std::string& type() const { return type_; }
  [[nodiscard]] const std::string& received_text() const { return text_; }

  // Reads "from", "to", "notification" and "flags". The strings live as long as the message.
  Headline headline();
  std::string to();
  std::string notification();
  std::int32_t priority();

  // May be moved from by a caller that asks for nothing else afterwards.
  JSObject& parameter();
  std::string parameter_text();

  // The message with this type and a "reference", which is `identity` unless there is one
  // already, of whatever kind: what the receiver of a unicast gets, and what the sender gets
  // if nobody took it.
  std::string forward_text(const char* type, std::int32_t identity);
  // After forward_text: the session that the error is for.
  std::int32_t reference();

  // The message as its value is written.
  std::string text();

 private:
  [[nodiscard]] bool has_envelope() const { return is_canonical_ || parameter_.has_value(); }
  // The value of the whole text, built when it is first needed.
  JSObject& value();

  const std::string& text_;
  Envelope envelope_;
  bool is_canonical_ = false;          // the envelope was read, around a parameter that was left
  std::optional<JSObject> parameter_;  // or around this one
  std::optional<JSObject> value_;
  std::string type_;
};

}  // namespace zedipc
