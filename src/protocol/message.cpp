// SPDX-License-Identifier: MIT
// Writing and reading the seven messages.
#include "protocol/message.h"

#include "json/escape.h"
#include "json/text_sink.h"

namespace zedipc {

namespace {

// The bytes of a message with a small parameter.
constexpr std::size_t kTypicalText = 256;
// The most that "reference" and another type add to a text.
constexpr std::size_t kAddedText = 40;

void add(std::string& text, const char* key, const std::string& value) {
  text.append(key);
  TextSink sink(text);
  put_quoted(sink, value);
  sink.flush();
}

// Writes what a value with these members would give. Building that value would take a copy
// of the parameter, which may be large.
std::string headline_text(const char* type, const Headline& headline, const JSObject* parameter) {
  std::string text;
  text.reserve(kTypicalText);
  text.append(R"({"flags":)").append(std::to_string(static_cast<std::int32_t>(headline.flags)));
  add(text, R"(,"from":)", headline.from);
  add(text, R"(,"notification":)", headline.notification);
  if (parameter != nullptr) parameter->dump(text.append(R"(,"parameter":)"));
  add(text, R"(,"to":)", headline.to);
  add(text, R"(,"type":)", type);
  return text.append("}");
}

}  // namespace

std::string notify_text(const Headline& headline, const JSObject& parameter) {
  return headline_text(kTypeNotify, headline, &parameter);
}

std::string notify_observer_text(const Headline& headline) {
  return headline_text(kTypeNotifyObserver, headline, nullptr);
}

std::string register_text(const std::string& to, const std::string& notification,
                          std::int32_t priority) {
  JSObject message;
  message("notification") = notification;
  message("priority") = priority;
  message("to") = to;
  message("type") = kTypeRegister;
  return message.dump();
}

std::string unregister_text(const std::string& to, const std::string& notification) {
  JSObject message;
  message("notification") = notification;
  message("to") = to;
  message("type") = kTypeUnregister;
  return message.dump();
}

std::string register_observer_text() { return R"({"type":"register_observer"})"; }

std::string unregister_observer_text() { return R"({"type":"unregister_observer"})"; }

Message::Message(const std::string& text, Parameter parameter) : text_(text) {
  if (parameter == Parameter::kLeave) {
    is_canonical_ = envelope_.read(text);
  } else if (!envelope_.read(text, &parameter_.emplace())) {
    parameter_.reset();
  }
  type_ = has_envelope() ? kTypeNotify : value()("type").getString();
}

JSObject& Message::value() {
  if (!value_.has_value()) value_.emplace().parse(text_.c_str());
  return *value_;
}

Headline Message::headline() {
  if (!has_envelope()) {
    envelope_.from = value()("from").getString();
    envelope_.to = value()("to").getString();
    envelope_.notification = value()("notification").getString();
    envelope_.flags = value()("flags").getInt();
  }
  return {envelope_.from, envelope_.to, envelope_.notification,
          static_cast<unsigned int>(envelope_.flags)};
}

std::string Message::to() { return value()("to").getString(); }

std::string Message::notification() { return value()("notification").getString(); }

std::int32_t Message::priority() { return value()("priority").getInt(); }

JSObject& Message::parameter() {
  return parameter_.has_value() ? *parameter_ : value()("parameter");
}

std::string Message::parameter_text() {
  if (is_canonical_) return {envelope_.parameter, envelope_.parameter_end};
  return parameter().dump();
}

std::string Message::forward_text(const char* type, std::int32_t identity) {
  if (!is_canonical_) {
    if (!value().exists("reference")) value()("reference") = identity;
    value()("type") = type;
    return text();
  }
  constexpr std::size_t kLastText = sizeof kTypeNotify - 1 + 2;  // a quote and a brace
  const auto ahead = static_cast<std::size_t>(envelope_.parameter_end + 1 - text_.data());
  std::string result;
  result.reserve(text_.size() + kAddedText);
  result.append(text_, 0, ahead);
  if (!envelope_.has_reference) {
    envelope_.reference = identity;
    result.append(R"("reference":)").append(std::to_string(identity)).append(",");
  }
  result.append(text_, ahead, text_.size() - ahead - kLastText);
  return result.append(type).append("\"}");
}

std::int32_t Message::reference() {
  return is_canonical_ ? envelope_.reference : value()("reference").getInt();
}

std::string Message::text() { return value().dump(); }

}  // namespace zedipc
