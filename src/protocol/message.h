// SPDX-License-Identifier: MIT
// The seven messages between the notification server and its clients: the one place that
// knows their form. docs/protocol.md describes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <zedipc/jsobject.h>

#include "protocol/envelope.h"

namespace zedipc {

// What a notification says beside its parameter. Lives no longer than its strings.
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

enum class MessageType {
  kNotify,
  kRegister,
  kUnregister,
  kRegisterObserver,
  kUnregisterObserver,
  kNotifyObserver,
  kUnicastError,
  kUnknown
};

// A message that came in. Most notifications are read without a value for the whole of
// their text; of any other text a value is made. Nothing here tells the two apart.
//
// A member that is read and not there is made, as null: it stands in whatever is written
// from the message later. So readers ask for members where they are told to, and no earlier.
class Message {
 public:
  // Whoever passes a notification on leaves its parameter as text.
  enum class Parameter { kLeave, kRead };

  // Keeps a reference to the text, which stays unchanged for the message's life.
  Message(const std::string& text, Parameter parameter);
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  // Made from the text alone; reading it has made "type".
  [[nodiscard]] MessageType type() const { return type_; }
  [[nodiscard]] const std::string& received_text() const { return text_; }

  // Reads "from", "to", "notification" and "flags". The strings are the message's.
  Headline headline();
  std::string to();
  std::string notification();
  std::int32_t priority();

  // May be moved from, unless what follows is asked for later.
  JSObject& parameter();
  std::string parameter_text();

  // The text of a unicast on its way to a receiver: a message that came without a
  // "reference" gets `identity`; one that is there stays, whatever its kind.
  const std::string& forward_text(std::int32_t identity);
  // Makes an error of what forward_text gave, which it replaces.
  const std::string& unicast_error_text();
  // After forward_text: whom the error is for.
  std::int32_t reference();

  // The message written anew.
  std::string text();

 private:
  [[nodiscard]] bool has_envelope() const { return is_canonical_ || parameter_.has_value(); }
  // Of the whole text, made where it is needed.
  JSObject& value();

  const std::string& text_;
  Envelope envelope_;
  bool is_canonical_ = false;          // the envelope was read, around a parameter that was left
  std::optional<JSObject> parameter_;  // or around this one
  std::optional<JSObject> value_;
  std::string forward_text_;
  MessageType type_;
};

}  // namespace zedipc
