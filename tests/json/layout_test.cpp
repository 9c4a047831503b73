// SPDX-License-Identifier: MIT
// The value as applications have it compiled in: its places, their order, and the
// numbers of the kinds.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

// The places of a value in their order.
struct Places {
  std::int32_t kind;
  bool bool_value;
  std::string string_value;
  double double_value;
  std::int32_t long_value;
  std::map<std::string, JSObject> members;
  std::vector<JSObject> elements;
};

// The part of `value` that stands where `place` has its own.
template <typename T>
const T& part(const JSObject& value, T Places::*place) {
  static const Places places{};
  const auto offset =
      reinterpret_cast<const char*>(&(places.*place)) - reinterpret_cast<const char*>(&places);
  return *reinterpret_cast<const T*>(reinterpret_cast<const char*>(&value) + offset);
}

template <typename T>
T read_number(const JSObject& value, T Places::*place) {
  T number;
  std::memcpy(&number, &part(value, place), sizeof number);
  return number;
}

}  // namespace

TEST(Layout, HasItsPlacesAndNoMore) {
  EXPECT_EQ(sizeof(JSObject), sizeof(Places));
  EXPECT_EQ(alignof(JSObject), alignof(Places));
  EXPECT_FALSE(std::is_polymorphic<JSObject>::value);
}

TEST(Layout, HasTheKindFirstIn32Bits) {
  EXPECT_EQ(read_number(JSObject(), &Places::kind), 0);
  EXPECT_EQ(read_number(JSObject(true), &Places::kind), 1);
  EXPECT_EQ(read_number(JSObject("text"), &Places::kind), 2);
  EXPECT_EQ(read_number(JSObject(1), &Places::kind), 3);
  EXPECT_EQ(read_number(JSObject(1.5), &Places::kind), 4);
  EXPECT_EQ(read_number(parsed("{}"), &Places::kind), 5);
  EXPECT_EQ(read_number(parsed("[]"), &Places::kind), 6);
}

TEST(Layout, HasTheBoolAfterTheKind) {
  EXPECT_TRUE(read_number(JSObject(true), &Places::bool_value));
  EXPECT_FALSE(read_number(JSObject(false), &Places::bool_value));
}

TEST(Layout, HasTheStringThird) {
  const JSObject value = "text";
  EXPECT_EQ(value.getStringP(), &part(value, &Places::string_value));
}

TEST(Layout, HasTheDoubleFourth) {
  EXPECT_EQ(read_number(JSObject(2.5), &Places::double_value), 2.5);
}

TEST(Layout, HasTheIntegerFifth) { EXPECT_EQ(read_number(JSObject(-7), &Places::long_value), -7); }

TEST(Layout, HasTheMembersSixth) {
  JSObject value = parsed("{\"a\":1,\"b\":2}");
  const auto& members = part(value, &Places::members);
  ASSERT_EQ(members.size(), 2U);
  EXPECT_EQ(&members.at("a"), &value("a"));
}

TEST(Layout, HasTheElementsLast) {
  JSObject value = parsed("[1,2,3]");
  const auto& elements = part(value, &Places::elements);
  ASSERT_EQ(elements.size(), 3U);
  EXPECT_EQ(&elements.front(), &value[0]);
}
