// SPDX-License-Identifier: MIT
// Moving and exchanging values, which copies nothing.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>
#include <type_traits>
#include <utility>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

const char kLongText[] = "a text that is too long to be kept inside of the string object";

}  // namespace

TEST(Move, ThrowsNothing) {
  EXPECT_TRUE(std::is_nothrow_move_constructible<JSObject>::value);
  EXPECT_TRUE(std::is_nothrow_move_assignable<JSObject>::value);
}

TEST(Move, TakesEachKindOver) {
  for (const char* const text : {"null", "true", "\"text\"", "5", "2.5", "{\"a\":1}", "[1,2]"}) {
    JSObject source = parsed(text);
    const Kind kind = kind_of(source);
    JSObject built(std::move(source));
    EXPECT_EQ(kind_of(built), kind);
    EXPECT_EQ(built.dump(), text);
    JSObject assigned = "other";
    assigned = std::move(built);
    EXPECT_EQ(kind_of(assigned), kind);
    EXPECT_EQ(assigned.dump(), text);
  }
}

TEST(Move, TakesStaleContentsOver) {
  JSObject source = parsed("{\"old\":1}");
  source = "text";
  JSObject target(std::move(source));
  EXPECT_EQ(target.getString(), "text");
  EXPECT_TRUE(target.exists("old"));
}

TEST(Move, CopiesNothing) {
  JSObject source;
  source("a")[3] = kLongText;
  const JSObject* const member = &source("a");
  const JSObject* const element = &source("a")[3];
  const char* const text = source("a")[3].getStringP()->data();
  JSObject built(std::move(source));
  JSObject assigned;
  assigned = std::move(built);
  EXPECT_EQ(&assigned("a"), member);
  EXPECT_EQ(&assigned("a")[3], element);
  EXPECT_EQ(assigned("a")[3].getStringP()->data(), text);
}

TEST(Move, LeavesANullValue) {
  JSObject source = parsed("{\"a\":1}");
  const JSObject built(std::move(source));
  EXPECT_EQ(source.dump(), "null");  // NOLINT(bugprone-use-after-move)
  source = parsed("[1,2]");
  JSObject assigned = "other";
  assigned = std::move(source);
  EXPECT_EQ(source.dump(), "null");  // NOLINT(bugprone-use-after-move)
}

TEST(Move, LeavesAValueThatCanBeUsedAgain) {
  JSObject object = parsed("{\"a\":1}");
  const JSObject taken_object(std::move(object));
  object("b") = 2;  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(object.dump(), "{\"b\":2}");
  JSObject array = parsed("[1,2]");
  const JSObject taken_array(std::move(array));
  array[0] = 3;  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(array.dump(), "[3]");
  JSObject text = kLongText;
  const JSObject taken_text(std::move(text));
  text = "again";
  EXPECT_EQ(text.getString(), "again");
}

TEST(Move, ReplacesEverythingInItsTarget) {
  JSObject target = parsed("{\"old\":1}");
  target = "text";
  target = JSObject(5);
  EXPECT_EQ(target.dump(), "5");
  EXPECT_FALSE(target.exists("old"));
}

TEST(Move, ToItselfChangesNothing) {
  JSObject value = parsed("{\"a\":[1,{\"b\":2}]}");
  JSObject& same = value;
  value = std::move(same);
  EXPECT_EQ(value.dump(), "{\"a\":[1,{\"b\":2}]}");
}

TEST(Move, OfAPartReplacesTheWhole) {
  JSObject value = parsed("{\"a\":[1,{\"b\":2}]}");
  value = std::move(value("a")[1]);
  EXPECT_EQ(value.dump(), "{\"b\":2}");
}

TEST(Swap, ExchangesValuesOfDifferentKinds) {
  JSObject a = parsed("{\"a\":1}");
  JSObject b = parsed("[2]");
  a.swap(b);
  EXPECT_EQ(a.dump(), "[2]");
  EXPECT_EQ(b.dump(), "{\"a\":1}");
  EXPECT_FALSE(a.exists("a"));
}

TEST(Swap, ExchangesEachPlace) {
  JSObject a = parsed("{\"old\":1}");
  a = true;
  a = "text";
  a = 5;
  a = 2.5;
  JSObject b;
  a.swap(b);
  EXPECT_EQ(a.dump(), "null");
  EXPECT_FALSE(a.exists("old"));
  EXPECT_EQ(b.dump(), "2.5");
  EXPECT_TRUE(b.exists("old"));
  set_kind(b, Kind::kInteger);
  EXPECT_EQ(b.getInt(), 5);
  set_kind(b, Kind::kString);
  EXPECT_EQ(b.getString(), "text");
  set_kind(b, Kind::kBool);
  EXPECT_TRUE(b.getBool());
  set_kind(a, Kind::kString);
  EXPECT_EQ(a.getString(), "");
}

TEST(Swap, CopiesNothing) {
  JSObject a;
  a("a") = 1;
  JSObject b;
  b[3] = kLongText;
  const JSObject* const member = &a("a");
  const JSObject* const element = &b[3];
  const char* const text = b[3].getStringP()->data();
  a.swap(b);
  EXPECT_EQ(&b("a"), member);
  EXPECT_EQ(&a[3], element);
  EXPECT_EQ(a[3].getStringP()->data(), text);
}

TEST(Swap, WithItselfChangesNothing) {
  JSObject value = parsed("{\"a\":[1,\"b\"]}");
  value.swap(value);
  EXPECT_EQ(value.dump(), "{\"a\":[1,\"b\"]}");
}
