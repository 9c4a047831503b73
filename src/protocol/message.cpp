// SPDX-License-Identifier: MIT
// Writing and reading the seven messages.
#include "protocol/message.h"

#include <iterator>
#include <utility>

#include "json/escape.h"
#include "json/text_sink.h"
#include "protocol/keys.h"

namespace zedipc {

namespace {

// In the order of MessageType.
constexpr const char* kTypes[] = {
    kTypeNotify,           kTypeRegister,           kTypeUnregister,
    kTypeRegisterObserver, kTypeUnregisterObserver, kTypeNotifyObserver,
    kTypeUnicastError};

MessageType type_of(const std::string& name) {
  std::size_t type = 0;
  while (type < std::size(kTypes) && name != kTypes[type]) ++type;
  return static_cast<MessageType>(type);
}

// The bytes of a message with a small parameter.
constexpr std::size_t kTypicalText = 256;
// The most that "reference" adds to a text.
constexpr std::size_t kReferenceText = 32;

// Writes what a value with these members would give. The caller adds them in ascending order
// of their keys. Building that value would take a copy of the parameter, which may be large.
class MessageWriter {
 public:
  MessageWriter() { text_.reserve(kTypicalText); }

  void add(const char* key, const std::string& value) {
    begin(key);
    TextSink sink(text_);
    put_quoted(sink, value);
    sink.flush();
  }

  void add(const char* key, const JSObject& value) {
    begin(key);
    value.dump(text_);
  }

  std::string end(const char* type) {
    begin(kKeyType);
    text_.append("\"").append(type).append("\"}");
    return std::move(text_);
  }

 private:
  void begin(const char* key) {
    text_.append(text_.empty() ? "{\"" : ",\"").append(key).append("\":");
  }

  std::string text_;
};

}  // namespace

std::string notify_text(const Headline& headline, const JSObject& parameter) {
  MessageWriter message;
  message.add(kKeyFlags, headline.flags);
  message.add(kKeyFrom, headline.from);
  message.add(kKeyNotification, headline.notification);
  message.add(kKeyParameter, parameter);
  message.add(kKeyTo, headline.to);
  return message.end(kTypeNotify);
}

std::string notify_observer_text(const Headline& headline) {
  MessageWriter message;
  message.add(kKeyFlags, headline.flags);
  message.add(kKeyFrom, headline.from);
  message.add(kKeyNotification, headline.notification);
  message.add(kKeyTo, headline.to);
  return message.end(kTypeNotifyObserver);
}

std::string register_text(const std::string& to, const std::string& notification,
                          std::int32_t priority) {
  MessageWriter message;
  message.add(kKeyNotification, notification);
  message.add(kKeyPriority, priority);
  message.add(kKeyTo, to);
  return message.end(kTypeRegister);
}

std::string unregister_text(const std::string& to, const std::string& notification) {
  MessageWriter message;
  message.add(kKeyNotification, notification);
  message.add(kKeyTo, to);
  return message.end(kTypeUnregister);
}

std::string register_observer_text() { return MessageWriter().end(kTypeRegisterObserver); }

std::string unregister_observer_text() { return MessageWriter().end(kTypeUnregisterObserver); }

Message::Message(const std::string& text, Parameter parameter) : text_(text) {
  if (parameter == Parameter::kLeave) {
    is_canonical_ = envelope_.read(text);
  } else if (!envelope_.read(text, parameter_.emplace())) {
    parameter_.reset();
  }
  type_ = has_envelope() ? MessageType::kNotify : type_of(value()(kKeyType).getString());
}

JSObject& Message::value() {
  if (!value_.has_value()) value_.emplace().parse(text_.c_str());
  return *value_;
}

Headline Message::headline() {
  if (!has_envelope()) {
    envelope_.from = value()(kKeyFrom).getString();
    envelope_.to = value()(kKeyTo).getString();
    envelope_.notification = value()(kKeyNotification).getString();
    envelope_.flags = value()(kKeyFlags).getInt();
  }
  return {envelope_.from, envelope_.to, envelope_.notification,
          static_cast<unsigned int>(envelope_.flags)};
}

std::string Message::to() { return value()(kKeyTo).getString(); }

std::string Message::notification() { return value()(kKeyNotification).getString(); }

std::int32_t Message::priority() { return value()(kKeyPriority).getInt(); }

JSObject& Message::parameter() {
  return parameter_.has_value() ? *parameter_ : value()(kKeyParameter);
}

std::string Message::parameter_text() {
  if (is_canonical_) return {envelope_.parameter, envelope_.parameter_end};
  return parameter().dump();
}

const std::string& Message::forward_text(std::int32_t identity) {
  if (!is_canonical_) {
    if (!value().exists(kKeyReference)) value()(kKeyReference) = identity;
    return forward_text_ = text();
  }
  if (envelope_.has_reference) return text_;
  envelope_.reference = identity;
  forward_text_.clear();
  forward_text_.reserve(text_.size() + kReferenceText);
  const auto ahead = static_cast<std::size_t>(envelope_.parameter_end + 1 - text_.data());
  forward_text_.append(text_, 0, ahead).append("\"").append(kKeyReference).append("\":");
  return forward_text_.append(std::to_string(identity)).append(",").append(text_, ahead);
}

const std::string& Message::unicast_error_text() {
  if (!is_canonical_) {
    value()(kKeyType) = kTypeUnicastError;
    return forward_text_ = text();
  }
  if (envelope_.has_reference) forward_text_ = text_;
  constexpr std::size_t kType = sizeof kTypeNotify - 1;
  constexpr std::size_t kEnd = 2;  // a quote and a brace: "type" is the last member
  return forward_text_.replace(forward_text_.size() - kType - kEnd, kType, kTypeUnicastError);
}

std::int32_t Message::reference() {
  return is_canonical_ ? envelope_.reference : value()(kKeyReference).getInt();
}

std::string Message::text() { return value().dump(); }

}  // namespace zedipc
