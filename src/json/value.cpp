// SPDX-License-Identifier: MIT
// Access, conversions, and the value that stands for what is not there. Most of what a value
// held as another kind stays in it, on purpose: a later lookup brings old members back.
#include <strings.h>

#include <cstdlib>

#include <zedipc/jsobject.h>

#include "base/number.h"

namespace zedipc {

JSObject JSObject::NullObject;

const char* JSObject::getVersion() {
  static const char kBanner[] = "$VER libzedjson 1.18.0 Apr 30 2021 09:42:01";
  return kBanner + sizeof "$VER " - 1;  // tools find the banner in a file by these letters
}

JSObject& JSObject::operator=(const JSObject& other) {
  JSObject copy(other);
  swap(copy);
  return *this;
}

std::vector<JSObject> JSObject::becomeObject() {
  std::vector<JSObject> former;
  if (kind() != kObject) {
    former.swap(elements_);
    setKind(kObject);
  }
  return former;
}

void JSObject::becomeArray() {
  if (kind() == kArray) return;
  members_.clear();
  setKind(kArray);
}

// Looks before it writes, so that threads that only read do not pass a cache line to and
// fro.
JSObject& JSObject::missing() {
  if (NullObject.kind() != kNull) NullObject.setKind(kNull);
  return NullObject;
}

JSObject& JSObject::operator()(const char* key) { return (*this)(std::string(key)); }

JSObject& JSObject::operator()(const std::string& key) {
  const std::vector<JSObject> former = becomeObject();  // the key may be a part of it
  return members_[key];
}

const JSObject& JSObject::operator()(const char* key) const { return (*this)(std::string(key)); }

const JSObject& JSObject::operator()(const std::string& key) const {
  if (kind() != kObject) return missing();
  const auto found = members_.find(key);
  return found == members_.end() ? missing() : found->second;
}

JSObject& JSObject::operator[](int index) {
  becomeArray();
  if (index < 0) return missing();
  const auto position = static_cast<std::size_t>(index);
  if (position >= elements_.size()) elements_.resize(position + 1);
  return elements_[position];
}

const JSObject& JSObject::operator[](int index) const {
  if (kind() != kArray || index < 0) return missing();
  const auto position = static_cast<std::size_t>(index);
  return position < elements_.size() ? elements_[position] : missing();
}

bool JSObject::exists(const char* key) const { return exists(std::string(key)); }

bool JSObject::exists(const std::string& key) const { return members_.count(key) != 0; }

void JSObject::erase(const char* key) { erase(std::string(key)); }

void JSObject::erase(const std::string& key) { members_.erase(key); }

void JSObject::resize(unsigned int size) {
  becomeArray();
  elements_.resize(size);
}

void JSObject::swap(JSObject& other) {
  if (&other == this) return;
  const Kind kind_here = kind();
  setKind(other.kind());
  other.setKind(kind_here);
  std::swap(bool_value_, other.bool_value_);
  string_value_.swap(other.string_value_);
  std::swap(double_value_, other.double_value_);
  std::swap(long_value_, other.long_value_);
  members_.swap(other.members_);
  elements_.swap(other.elements_);
}

std::string JSObject::getString() const { return kind() == kString ? string_value_ : dump(); }

const std::string* JSObject::getStringP() const {
  return kind() == kString ? &string_value_ : nullptr;
}

std::string* JSObject::getStringP() { return kind() == kString ? &string_value_ : nullptr; }

double JSObject::getNumber() const {
  switch (kind()) {
    case kBool:
      return bool_value_ ? 1.0 : 0.0;
    case kString:
      return std::strtod(string_value_.c_str(), nullptr);
    case kInteger:
      return long_value_;
    case kDouble:
      return double_value_;
    default:
      return 0.0;
  }
}

int JSObject::getInt() const {
  switch (kind()) {
    case kBool:
      return bool_value_ ? 1 : 0;
    case kString:
      return text_to_int32(string_value_.c_str());
    case kInteger:
      return long_value_;
    case kDouble:
      return double_to_integer<std::int32_t>(double_value_);
    default:
      return 0;
  }
}

long long JSObject::getInt64() const {
  switch (kind()) {
    case kBool:
      return bool_value_ ? 1 : 0;
    case kString:
      return std::strtoll(string_value_.c_str(), nullptr, 10);
    case kInteger:
      return long_value_;
    case kDouble:
      return double_to_integer<long long>(double_value_);
    default:
      return 0;
  }
}

bool JSObject::getBool() const {
  switch (kind()) {
    case kBool:
      return bool_value_;
    case kString:
      return strcasecmp(string_value_.c_str(), "true") == 0 || getNumber() != 0.0;
    case kInteger:
      return long_value_ != 0;
    case kDouble:
      return double_value_ != 0.0;
    default:
      return false;
  }
}

}  // namespace zedipc
