// SPDX-License-Identifier: MIT
// Reaching members and elements.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <stdexcept>
#include <string>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

// In a variable, so that the compiler does not see through it.
const char* volatile no_key = nullptr;

}  // namespace

TEST(Value, IsNullWhenNew) {
  const JSObject value;
  EXPECT_EQ(value.getInt(), 0);
  EXPECT_EQ(value.getInt64(), 0);
  EXPECT_EQ(value.getNumber(), 0.0);
  EXPECT_FALSE(value.getBool());
  EXPECT_EQ(value.getString(), "null");
  EXPECT_EQ(kind_of(value), Kind::kNull);
}

TEST(Value, HoldsNothingWhenNew) {
  JSObject value;
  EXPECT_EQ(parse(value, "\"cut off"), -1);  // makes the string that it holds count
  EXPECT_EQ(value.getString(), "");
  JSObject array;
  array.resize(0);
  EXPECT_EQ(array.dump(), "[]");
  JSObject object;
  object("a");
  object.erase("a");
  EXPECT_EQ(object.dump(), "{}");
}

TEST(Value, TellsItsVersionWithoutTheBannersTag) {
  EXPECT_STREQ(JSObject::getVersion(), "libzedjson 1.18.0 Apr 30 2021 09:42:01");
}

TEST(Member, IsCreatedAsNullByANonConstLookup) {
  JSObject value;
  EXPECT_EQ(kind_of(value("a")), Kind::kNull);
  EXPECT_EQ(value.dump(), "{\"a\":null}");
}

TEST(Member, OfAMemberIsCreatedWithIt) {
  JSObject value;
  EXPECT_EQ(value("a")("b").getString(), "null");
  EXPECT_EQ(value.dump(), "{\"a\":{\"b\":null}}");
}

TEST(Member, IsTheSameAtEachLookup) {
  JSObject value;
  JSObject& member = value("a");
  member = 1;
  value("b") = 2;
  EXPECT_EQ(&value("a"), &member);
  EXPECT_EQ(value.dump(), "{\"a\":1,\"b\":2}");
}

TEST(Member, StaysInPlaceWhenOthersCome) {
  JSObject value;
  JSObject& member = value("m");
  for (int i = 0; i < 100; ++i) value(std::to_string(i)) = i;
  member = "here";
  EXPECT_EQ(value("m").getString(), "here");
}

TEST(Member, IsFoundByPointerAndByStringAlike) {
  JSObject value;
  value("a") = 1;
  EXPECT_EQ(&value(std::string("a")), &value("a"));
  value(std::string("b")) = 2;
  EXPECT_EQ(value("b").getInt(), 2);
  const JSObject& constant = value;
  EXPECT_EQ(&constant(std::string("a")), &constant("a"));
  EXPECT_EQ(constant("a").getInt(), 1);
}

TEST(Member, MayHaveAnEmptyKey) {
  JSObject value;
  value("") = 1;
  EXPECT_TRUE(value.exists(""));
  EXPECT_EQ(value.dump(), "{\"\":1}");
}

TEST(Member, MayHaveAKeyWithANulByte) {
  JSObject value;
  value(std::string("a\0b", 3)) = 1;
  EXPECT_FALSE(value.exists("a"));
  EXPECT_TRUE(value.exists(std::string("a\0b", 3)));
}

TEST(Member, LookupThatCreatesTakesTheElementsOfAnArray) {
  JSObject value;
  value[2] = 1;
  value("a") = 1;
  EXPECT_EQ(value.dump(), "{\"a\":1}");
  value[0] = 5;  // an array again: none of the old elements is left
  EXPECT_EQ(value.dump(), "[5]");
}

TEST(Member, LookupThatCreatesBringsOldMembersBack) {
  JSObject value;
  value("old") = 1;
  value = "text";
  EXPECT_TRUE(value.exists("old"));
  EXPECT_EQ(value.getString(), "text");
  value("new") = 2;
  EXPECT_EQ(value.dump(), "{\"new\":2,\"old\":1}");
}

TEST(Member, LookupThatCreatesLeavesTheStringAndTheNumbers) {
  JSObject value = "text";
  value = 5;
  value = 2.5;
  value = true;
  value("a");
  set_kind(value, Kind::kString);
  EXPECT_EQ(value.getString(), "text");
  set_kind(value, Kind::kInteger);
  EXPECT_EQ(value.getInt(), 5);
  set_kind(value, Kind::kDouble);
  EXPECT_EQ(value.getNumber(), 2.5);
  set_kind(value, Kind::kBool);
  EXPECT_TRUE(value.getBool());
}

TEST(Member, ConstLookupGivesTheMember) {
  JSObject value;
  JSObject& member = value("a");
  const JSObject& constant = value;
  EXPECT_EQ(&constant("a"), &member);
}

TEST(Member, ConstLookupAddsNothing) {
  JSObject value;
  value("a");
  const JSObject& constant = value;
  constant("b")("c");
  EXPECT_EQ(value.dump(), "{\"a\":null}");
}

TEST(Member, NullKeyEndsInTheStandardLibrarysException) {
  JSObject value;
  const JSObject& constant = value;
  EXPECT_THROW(value(no_key), std::logic_error);
  EXPECT_THROW(constant(no_key), std::logic_error);
  EXPECT_THROW((void)value.exists(no_key), std::logic_error);
  EXPECT_THROW(value.erase(no_key), std::logic_error);
}

TEST(Member, MayBeLookedUpByAKeyThatGoesWithTheElements) {
  JSObject value;
  value[0] = "a key that is too long to be kept inside of the string object";
  const std::string key = value[0].getString();
  value(*value[0].getStringP()) = 1;
  EXPECT_EQ(value.dump(), "{\"" + key + "\":1}");
}

TEST(Element, IsCreatedWithAllBeforeIt) {
  JSObject value;
  EXPECT_EQ(kind_of(value[2]), Kind::kNull);
  EXPECT_EQ(value.dump(), "[null,null,null]");
}

TEST(Element, LookupThatCreatesGivesTheLastOne) {
  JSObject value;
  value[2] = 7;
  EXPECT_EQ(value.dump(), "[null,null,7]");
}

TEST(Element, BelowTheSizeIsTheOneThatIsThere) {
  JSObject value = parsed("[1,2,3]");
  JSObject& element = value[1];
  EXPECT_EQ(element.getInt(), 2);
  EXPECT_EQ(&value[1], &element);
  EXPECT_EQ(value.dump(), "[1,2,3]");
}

TEST(Element, LookupThatCreatesTakesTheMembersOfAnObject) {
  JSObject value;
  value("a") = 1;
  value[0] = 5;
  EXPECT_EQ(value.dump(), "[5]");
  EXPECT_FALSE(value.exists("a"));
}

TEST(Element, LookupThatCreatesBringsOldElementsBack) {
  JSObject value = parsed("[1,2]");
  value = "text";
  EXPECT_EQ(value[0].getInt(), 1);
  EXPECT_EQ(value.dump(), "[1,2]");
}

TEST(Element, LookupThatCreatesLeavesTheString) {
  JSObject value = "text";
  value[0];
  set_kind(value, Kind::kString);
  EXPECT_EQ(value.getString(), "text");
}

TEST(Element, WithANegativeIndexEmptiesAnObjectIntoAnArray) {
  JSObject value;
  value("a") = 1;
  EXPECT_EQ(&value[-1], &JSObject::NullObject);
  EXPECT_EQ(value.dump(), "[]");
  EXPECT_FALSE(value.exists("a"));
}

TEST(Element, WithANegativeIndexLeavesAnArray) {
  JSObject value = parsed("[1,2]");
  EXPECT_EQ(&value[-1], &JSObject::NullObject);
  EXPECT_EQ(value.dump(), "[1,2]");
}

TEST(Element, ConstLookupGivesTheElement) {
  JSObject value = parsed("[1,2]");
  const JSObject& constant = value;
  EXPECT_EQ(&constant[1], &value[1]);
  EXPECT_EQ(constant[0].getInt(), 1);
}

TEST(Element, ConstLookupAddsNothing) {
  const JSObject value = parsed("[1,2]");
  EXPECT_EQ(&value[2], &JSObject::NullObject);
  EXPECT_EQ(value.dump(), "[1,2]");
}

TEST(Exists, FindsAMemberThatIsNull) {
  JSObject value;
  value("a");
  EXPECT_TRUE(value.exists("a"));
  EXPECT_TRUE(value.exists(std::string("a")));
  EXPECT_FALSE(value.exists("b"));
  EXPECT_FALSE(value.exists(std::string("b")));
}

TEST(Exists, AddsNothing) {
  JSObject value;
  EXPECT_FALSE(value.exists("a"));
  EXPECT_EQ(value.dump(), "null");
}

TEST(Exists, DoesNotLookAtTheKind) {
  JSObject value;
  value("a");
  value = 5;
  EXPECT_TRUE(value.exists("a"));
  EXPECT_EQ(value.getInt(), 5);
}

TEST(Exists, FindsNothingInAnArray) {
  const JSObject value = parsed("[\"a\"]");
  EXPECT_FALSE(value.exists("a"));
}

TEST(Erase, RemovesThatMember) {
  JSObject value = parsed("{\"a\":1,\"b\":2,\"c\":3}");
  value.erase("a");
  value.erase(std::string("c"));
  EXPECT_EQ(value.dump(), "{\"b\":2}");
}

TEST(Erase, TakesAKeyThatGoesWithTheMember) {
  JSObject value = parsed("{\"a long key of a member, kept in the heap\":1,\"b\":2}");
  value("a long key of a member, kept in the heap") = "a long key of a member, kept in the heap";
  value.erase(*value("a long key of a member, kept in the heap").getStringP());
  EXPECT_EQ(value.dump(), "{\"b\":2}");
}

TEST(Erase, DoesNothingForAMissingKey) {
  JSObject value = parsed("{\"a\":1}");
  value.erase("b");
  EXPECT_EQ(value.dump(), "{\"a\":1}");
}

TEST(Erase, RemovesAnOldMemberWhateverTheKindIs) {
  JSObject value = parsed("{\"a\":1,\"b\":2}");
  value = "text";
  value.erase("a");
  EXPECT_FALSE(value.exists("a"));
  EXPECT_TRUE(value.exists("b"));
  EXPECT_EQ(value.getString(), "text");
}

TEST(Erase, LeavesAValueWithoutMembersAsItIs) {
  JSObject null;
  null.erase("a");
  EXPECT_EQ(null.dump(), "null");
  JSObject array = parsed("[1]");
  array.erase("a");
  EXPECT_EQ(array.dump(), "[1]");
}

TEST(Resize, ExtendsWithNulls) {
  JSObject value = parsed("[1]");
  value.resize(3);
  EXPECT_EQ(value.dump(), "[1,null,null]");
}

TEST(Resize, DropsTheElementsAfterTheSize) {
  JSObject value = parsed("[1,2,3]");
  value.resize(1);
  EXPECT_EQ(value.dump(), "[1]");
}

TEST(Resize, ToTheSizeThatItHasChangesNothing) {
  JSObject value = parsed("[1,2]");
  value.resize(2);
  EXPECT_EQ(value.dump(), "[1,2]");
}

TEST(Resize, MakesAnArrayOfANull) {
  JSObject value;
  value.resize(2);
  EXPECT_EQ(value.dump(), "[null,null]");
}

TEST(Resize, TakesTheMembersOfAnObject) {
  JSObject value = parsed("{\"a\":1}");
  value.resize(0);
  EXPECT_EQ(value.dump(), "[]");
  EXPECT_FALSE(value.exists("a"));
}

TEST(Resize, KeepsOldElementsOfAFormerArray) {
  JSObject value = parsed("[1,2,3]");
  value = true;
  value.resize(2);
  EXPECT_EQ(value.dump(), "[1,2]");
}
