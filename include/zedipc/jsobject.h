// SPDX-License-Identifier: MIT
/// @file
/// A dynamic JSON value that converts instead of failing.
#ifndef ZEDIPC_JSOBJECT_H
#define ZEDIPC_JSOBJECT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <zedipc/export.h>

namespace zedipc {

/// A JSON value of any kind: null, bool, string, integer, double, object or
/// array.
///
/// Members of an object are reached with `value("key")`, elements of an array
/// with `value[index]`. On a non-const value both create what they reach; on a
/// const value both give `NullObject` for what is not there. The getters
/// convert between kinds: a missing value reads as null, and null reads as
/// zero, false or the text "null".
///
/// @code
/// zedipc::JSObject status;
/// status("tray") = 2;
/// status("open")[0] = "lid";
/// std::string text = status.dump();  // {"open":["lid"],"tray":2}
/// @endcode
///
/// Integers have 32 bits on every host; any other number is a double. Keys are
/// kept, and written, in ascending order of their bytes.
///
/// NaN and infinities have no text in JSON. They are written as printf writes
/// them ("nan", "inf", "-nan", "-inf"), and no text that holds one reads back: on
/// its own it reads as nothing, or as 0 if it has a sign; in an object or array
/// it makes `parse` fail there, and what comes after it is lost.
///
/// An instance holds a place for every kind at once. Assigning a scalar sets
/// the kind and that one place and leaves the others: a former object that was
/// assigned a string still holds its members, `exists` still finds them, and a
/// later non-const `operator()` turns the value back into that object.
///
/// Threads: an instance has no lock. Several threads may read one instance, and
/// `NullObject` too, through const operations; everything else, the non-const
/// `operator()` and `operator[]` included, is a write and needs the caller's own
/// lock. A write to `NullObject` also races with every lookup that misses on
/// another thread.
///
/// Errors: nothing is reported. What cannot be converted gives the zero of its
/// type. Only the standard library's exceptions pass through (no memory, a null
/// key or text pointer).
///
/// Depth: parsing, writing, copying and destroying take a bounded amount of
/// stack, however deeply a value is nested.
class ZEDIPC_EXPORT JSObject {
 public:
  /// Chooses members for `logdump`: gets the plain key, gives true to hide it.
  using Filter = bool (*)(const std::string& key);

  /// What stands for anything that is not there: one null value, which the whole
  /// process shares and nobody should write to. What is written all the same, by
  /// name or through a negative index, shows on every thread, also through
  /// references that lookups gave before, until the next lookup that misses, on
  /// any thread, sets its kind back to null. The kind alone: a text, members and
  /// elements stay in it, where `exists` and copies find them.
  static JSObject NullObject;

  /// A null value.
  JSObject() : kind_(kNull), bool_value_(false), double_value_(0.0), long_value_(0) {}

  /// A deep copy, with everything `other` holds, of whatever kind it is.
  JSObject(const JSObject& other);
  /// Takes over what `other` holds; `other` becomes a null value.
  JSObject(JSObject&& other) noexcept
      : kind_(other.kind_.load(std::memory_order_relaxed)),
        bool_value_(other.bool_value_),
        string_value_(std::move(other.string_value_)),
        double_value_(other.double_value_),
        long_value_(other.long_value_),
        members_(std::move(other.members_)),
        elements_(std::move(other.elements_)) {
    other.kind_.store(kNull, std::memory_order_relaxed);
  }

  /// @name Building from a plain value
  /// A whole number outside 32 bits becomes a double, as it does when it is
  /// parsed; an `unsigned int` keeps its 32 bits instead and reads as a
  /// negative integer from 2147483648 on, so that bit masks survive.
  /// @{
  JSObject(const char* text) : JSObject() { *this = text; }
  JSObject(const std::string& text) : JSObject() { *this = text; }
  JSObject(bool value) : JSObject() { *this = value; }
  JSObject(int value) : JSObject() { *this = value; }
  JSObject(unsigned int value) : JSObject() { *this = value; }
  JSObject(long value) : JSObject() { *this = value; }
  JSObject(unsigned long value) : JSObject() { *this = value; }
  JSObject(long long value) : JSObject() { *this = value; }
  JSObject(unsigned long long value) : JSObject() { *this = value; }
  JSObject(double value) : JSObject() { *this = value; }
  /// A pointer to an object is no value; without this it would quietly become
  /// true.
  JSObject(const void*) = delete;
  JSObject(std::nullptr_t) = delete;
  /// @}

  /// Frees the value and all that it holds.
  ~JSObject();

  /// Makes this a deep copy of `other`, which may be a part of this value.
  JSObject& operator=(const JSObject& other);
  /// Takes over what `other` holds, which may be a part of this value.
  JSObject& operator=(JSObject&& other) noexcept {
    JSObject taken(std::move(other));
    swap(taken);
    return *this;
  }

  /// @name Assigning a plain value
  /// Sets the kind and the one value, and touches nothing else.
  /// @{
  JSObject& operator=(const char* text) {
    setKind(kString);
    string_value_ = std::string(text);
    return *this;
  }
  JSObject& operator=(const std::string& text) {
    setKind(kString);
    string_value_ = text;
    return *this;
  }
  JSObject& operator=(bool value) {
    setKind(kBool);
    bool_value_ = value;
    return *this;
  }
  JSObject& operator=(int value) {
    setKind(kInteger);
    long_value_ = value;
    return *this;
  }
  JSObject& operator=(unsigned int value) { return *this = static_cast<int>(value); }
  JSObject& operator=(long value) { return *this = static_cast<long long>(value); }
  JSObject& operator=(unsigned long value) {
    return *this = static_cast<unsigned long long>(value);
  }
  JSObject& operator=(long long value) {
    if (value < INT32_MIN || value > INT32_MAX) return *this = static_cast<double>(value);
    return *this = static_cast<int>(value);
  }
  JSObject& operator=(unsigned long long value) {
    if (value > INT32_MAX) return *this = static_cast<double>(value);
    return *this = static_cast<int>(value);
  }
  JSObject& operator=(double value) {
    setKind(kDouble);
    double_value_ = value;
    return *this;
  }
  JSObject& operator=(const void*) = delete;
  JSObject& operator=(std::nullptr_t) = delete;
  /// Braces do not build arrays; without this they would build a string.
  JSObject& operator=(std::initializer_list<JSObject>) = delete;
  /// @}

  /// The member `key`, made (as null) if it is not there. A value that is no
  /// object becomes one: its elements go, members from an earlier time as an
  /// object come back. The reference is valid until the member goes: by `erase`, by
  /// turning the value into an array, or by giving it a new value as a whole.
  JSObject& operator()(const char* key);
  /// @copydoc operator()(const char*)
  JSObject& operator()(const std::string& key);
  /// The member `key`, or `NullObject` if this is no object or has none.
  const JSObject& operator()(const char* key) const;
  /// @copydoc operator()(const char*) const
  const JSObject& operator()(const std::string& key) const;

  /// The element `index`, the array being extended with nulls up to it. A value
  /// that is no array becomes one: its members go, elements from an earlier time
  /// as an array come back. A negative index does that too and then gives
  /// `NullObject`. Extending invalidates references to other elements, so that
  /// `value[5] = value[2]` is an error where there is no element 5 yet.
  JSObject& operator[](int index);
  /// The element `index`, or `NullObject` if this is no array or has none.
  const JSObject& operator[](int index) const;

  /// Whether there is a member `key`, whatever the kind is now.
  bool exists(const char* key) const;
  /// @copydoc exists(const char*) const
  bool exists(const std::string& key) const;

  /// Removes the member `key` if it is there, whatever the kind is now.
  void erase(const char* key);
  /// @copydoc erase(const char*)
  void erase(const std::string& key);

  /// Makes this an array of exactly `size` elements, as `operator[]` does; new
  /// ones are null.
  void resize(unsigned int size);

  /// Exchanges two values without copying anything. Neither may be a part of the
  /// other.
  void swap(JSObject& other);

  /// A string's text; for any other kind what `dump()` gives.
  std::string getString() const;
  /// The address of a string's text, valid until the value changes; null for
  /// any other kind.
  const std::string* getStringP() const;
  /// @copydoc getStringP() const
  std::string* getStringP();
  /// The value as a double; a string is read by `strtod`.
  double getNumber() const;
  /// The value as a 32-bit integer; doubles are cut towards zero, a string is
  /// read in base 10, and what lies outside 32 bits gives the nearest limit.
  int getInt() const;
  /// The value as a 64-bit integer, by the rules of `getInt`.
  long long getInt64() const;
  /// The value as a truth: any number but 0, and a string that is "true" in
  /// any case or that `strtod` reads as such a number.
  bool getBool() const;

  /// The module's name, version and build date as one text that lives for ever.
  static const char* getVersion();

  /// Reads one JSON value from a NUL-terminated text.
  ///
  /// The reader is tolerant: commas are optional, and a trailing one is
  /// allowed, as are raw control bytes in strings. What follows the value is
  /// not looked at.
  ///
  /// @param text not null, no part of this value, shorter than 2 GiB
  /// @return the offset of the first byte behind the value and the white space
  ///   around it; -1 if a string, key, object or array is cut off or broken, and
  ///   the value then holds what had been read so far. Text that does not begin
  ///   like a value consumes nothing, leaves a scalar as it was, and is no error.
  ///   A word that begins with "fals" counts as five bytes even where the text
  ///   ends behind four, so compare the offset with the text's length before
  ///   using it.
  int parse(const char* text);

  /// The value as compact JSON text.
  std::string dump() const;
  /// Appends the value as compact JSON text to `out`.
  void dump(std::string& out) const;
  /// Appends the text to `out`, with "<<HIDDEN>>" as the value of each member,
  /// at any depth, for whose key `filter` gives true. `filter` may be null; it
  /// is called on this thread.
  void dump(std::string& out, Filter filter) const;
  /// The text with hidden members, for a log.
  std::string logdump(Filter filter) const;

 private:
  // The numbers are compiled into applications by the inline assignments.
  enum Kind : std::int32_t {
    kNull = 0,
    kBool = 1,
    kString = 2,
    kInteger = 3,
    kDouble = 4,
    kObject = 5,
    kArray = 6
  };

  struct ZEDIPC_HIDDEN Parser;
  struct ZEDIPC_HIDDEN Writer;
  struct ZEDIPC_HIDDEN Tree;
  struct ZEDIPC_HIDDEN Depth;

  // Copies one level deeper than the copy it is a part of.
  ZEDIPC_HIDDEN JSObject(const JSObject& other, const Depth& depth);
  Kind kind() const { return kind_.load(std::memory_order_relaxed); }
  void setKind(Kind kind) { kind_.store(kind, std::memory_order_relaxed); }
  // Gives the elements that the value had until now.
  ZEDIPC_HIDDEN std::vector<JSObject> becomeObject();
  ZEDIPC_HIDDEN void becomeArray();
  ZEDIPC_HIDDEN static JSObject& missing();

  // Atomic, since a lookup that misses stores to NullObject on any thread; a
  // relaxed access costs what a plain one does. The order of the members is
  // part of the binary interface.
  std::atomic<Kind> kind_;
  bool bool_value_;
  std::string string_value_;
  double double_value_;
  std::int32_t long_value_;
  std::map<std::string, JSObject> members_;
  std::vector<JSObject> elements_;
};

}  // namespace zedipc

#endif  // ZEDIPC_JSOBJECT_H
