// SPDX-License-Identifier: MIT
// Values from plain ones: the kind and the one value are set, and nothing else.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

// A value that has held every kind but null, and now is the array [7].
JSObject with_every_place_in_use() {
  JSObject value = true;
  value = "text";
  value = 5;
  value = 2.5;
  value[0] = 7;
  set_kind(value, Kind::kObject);
  value("a") = 1;
  set_kind(value, Kind::kArray);
  return value;
}

// What the value holds for each kind, in the order of the kinds' numbers.
std::string every_place(JSObject value) {
  std::string places;
  for (const Kind kind :
       {Kind::kBool, Kind::kString, Kind::kInteger, Kind::kDouble, Kind::kObject, Kind::kArray}) {
    set_kind(value, kind);
    places += value.dump() + ' ';
  }
  return places;
}

const char* name_of(char) { return "Char"; }
const char* name_of(signed char) { return "SignedChar"; }
const char* name_of(unsigned char) { return "UnsignedChar"; }
const char* name_of(short) { return "Short"; }
const char* name_of(unsigned short) { return "UnsignedShort"; }
const char* name_of(int) { return "Int"; }
const char* name_of(unsigned int) { return "UnsignedInt"; }
const char* name_of(long) { return "Long"; }
const char* name_of(unsigned long) { return "UnsignedLong"; }
const char* name_of(long long) { return "LongLong"; }
const char* name_of(unsigned long long) { return "UnsignedLongLong"; }

struct TypeName {
  template <typename T>
  static std::string GetName(int) {
    return name_of(T{});
  }
};

template <typename T>
class IntegerType : public testing::Test {};
using IntegerTypes =
    testing::Types<char, signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                   unsigned long, long long, unsigned long long>;
TYPED_TEST_SUITE(IntegerType, IntegerTypes, TypeName);

template <typename T>
class WideSigned : public testing::Test {};
using WideSignedTypes = testing::Types<std::int64_t, long long>;
TYPED_TEST_SUITE(WideSigned, WideSignedTypes, TypeName);

template <typename T>
class WideUnsigned : public testing::Test {};
using WideUnsignedTypes = testing::Types<std::uint64_t, unsigned long long>;
TYPED_TEST_SUITE(WideUnsigned, WideUnsignedTypes, TypeName);

}  // namespace

TYPED_TEST(IntegerType, IsAssigned) {
  JSObject value = "text";
  value = TypeParam{42};
  EXPECT_EQ(kind_of(value), Kind::kInteger);
  EXPECT_EQ(value.getInt(), 42);
}

TYPED_TEST(IntegerType, Builds) {
  const JSObject value(TypeParam{42});
  EXPECT_EQ(kind_of(value), Kind::kInteger);
  EXPECT_EQ(value.getInt(), 42);
}

TYPED_TEST(WideSigned, StaysAnIntegerWithin32Bits) {
  JSObject value = TypeParam{INT32_MAX};
  EXPECT_EQ(kind_of(value), Kind::kInteger);
  EXPECT_EQ(value.getInt64(), INT32_MAX);
  value = TypeParam{INT32_MIN};
  EXPECT_EQ(kind_of(value), Kind::kInteger);
  EXPECT_EQ(value.getInt64(), INT32_MIN);
}

TYPED_TEST(WideSigned, BecomesADoubleOutside32Bits) {
  JSObject value = TypeParam{INT32_MAX} + 1;
  EXPECT_EQ(kind_of(value), Kind::kDouble);
  EXPECT_EQ(value.dump(), "2147483648");
  value = TypeParam{INT32_MIN} - 1;
  EXPECT_EQ(kind_of(value), Kind::kDouble);
  EXPECT_EQ(value.dump(), "-2147483649");
}

TYPED_TEST(WideSigned, BecomesTheNearestDoubleAtItsLimits) {
  EXPECT_EQ(JSObject(std::numeric_limits<TypeParam>::max()).getNumber(), std::ldexp(1.0, 63));
  EXPECT_EQ(JSObject(std::numeric_limits<TypeParam>::min()).getNumber(), -std::ldexp(1.0, 63));
}

TYPED_TEST(WideUnsigned, StaysAnIntegerWithin32Bits) {
  const JSObject value = TypeParam{INT32_MAX};
  EXPECT_EQ(kind_of(value), Kind::kInteger);
  EXPECT_EQ(value.getInt(), INT32_MAX);
}

TYPED_TEST(WideUnsigned, BecomesADoubleOutside32Bits) {
  JSObject value = TypeParam{INT32_MAX} + 1;
  EXPECT_EQ(kind_of(value), Kind::kDouble);
  EXPECT_EQ(value.dump(), "2147483648");
  value = std::numeric_limits<TypeParam>::max();
  EXPECT_EQ(kind_of(value), Kind::kDouble);
  EXPECT_EQ(value.getNumber(), std::ldexp(1.0, 64));
}

TEST(Assignment, OfAnUnsignedIntKeepsIts32Bits) {
  JSObject value;
  for (const unsigned int bits : {2147483648U, 4000000000U, 0xFFFFFFFFU}) {
    value = bits;
    EXPECT_EQ(kind_of(value), Kind::kInteger);
    EXPECT_EQ(static_cast<unsigned int>(value.getInt()), bits);
    EXPECT_EQ(static_cast<unsigned int>(JSObject(bits).getInt()), bits);
  }
  EXPECT_EQ(value.dump(), "-1");
}

TEST(Assignment, OfTheLimitsOfAnInt) {
  JSObject value = INT_MIN;
  EXPECT_EQ(value.getInt(), INT_MIN);
  value = INT_MAX;
  EXPECT_EQ(value.getInt(), INT_MAX);
  EXPECT_EQ(kind_of(value), Kind::kInteger);
}

TEST(Assignment, OfAPointerToTextMakesAString) {
  JSObject value = 5;
  value = "text";
  EXPECT_EQ(kind_of(value), Kind::kString);
  EXPECT_EQ(value.getString(), "text");
  EXPECT_EQ(JSObject("text").getString(), "text");
}

TEST(Assignment, OfAStringKeepsNulBytes) {
  const std::string text("a\0b", 3);
  JSObject value;
  value = text;
  EXPECT_EQ(kind_of(value), Kind::kString);
  EXPECT_EQ(value.getString(), text);
  EXPECT_EQ(JSObject(text).getString(), text);
}

TEST(Assignment, OfItsOwnText) {
  JSObject value = "a text that is too long to be kept inside of the string object";
  const std::string before = value.getString();
  value = value.getStringP()->c_str();
  EXPECT_EQ(value.getString(), before);
  value = *value.getStringP();
  EXPECT_EQ(value.getString(), before);
  value = value.getStringP()->c_str() + 50;
  EXPECT_EQ(value.getString(), before.substr(50));
}

TEST(Assignment, OfANullTextEndsInTheStandardLibrarysException) {
  const char* volatile no_text = nullptr;
  JSObject value;
  EXPECT_THROW(value = no_text, std::logic_error);
}

TEST(Assignment, OfABoolMakesABool) {
  JSObject value = 5;
  value = true;
  EXPECT_EQ(kind_of(value), Kind::kBool);
  EXPECT_TRUE(value.getBool());
  value = false;
  EXPECT_EQ(value.dump(), "false");
  EXPECT_EQ(kind_of(JSObject(true)), Kind::kBool);
}

TEST(Assignment, OfADoubleMakesADoubleEvenIfItIsWhole) {
  JSObject value = 5;
  value = 100.0;
  EXPECT_EQ(kind_of(value), Kind::kDouble);
  EXPECT_EQ(value.getNumber(), 100.0);
  EXPECT_EQ(kind_of(JSObject(1.0)), Kind::kDouble);
}

TEST(Assignment, OfAFloatMakesADouble) {
  JSObject value;
  value = 1.5F;
  EXPECT_EQ(kind_of(value), Kind::kDouble);
  EXPECT_EQ(value.getNumber(), 1.5);
}

TEST(Assignment, OfAPointerToAnythingElseIsRefused) {
  EXPECT_FALSE((std::is_assignable<JSObject&, void*>::value));
  EXPECT_FALSE((std::is_assignable<JSObject&, const int*>::value));
  EXPECT_FALSE((std::is_constructible<JSObject, JSObject*>::value));
}

TEST(Assignment, GivesTheValueItself) {
  JSObject value;
  EXPECT_EQ(&(value = 1), &value);
  EXPECT_EQ(&(value = "text"), &value);
  EXPECT_EQ(&(value = std::string("text")), &value);
  EXPECT_EQ(&(value = true), &value);
  EXPECT_EQ(&(value = 1.5), &value);
  EXPECT_EQ(&(value = 1LL << 40), &value);
}

TEST(Assignment, OfAStringLeavesAllOtherPlaces) {
  JSObject value = with_every_place_in_use();
  value = "new";
  EXPECT_EQ(kind_of(value), Kind::kString);
  EXPECT_EQ(every_place(value), "true \"new\" 5 2.5 {\"a\":1} [7] ");
  value = std::string("newer");
  EXPECT_EQ(every_place(value), "true \"newer\" 5 2.5 {\"a\":1} [7] ");
}

TEST(Assignment, OfAnIntegerLeavesAllOtherPlaces) {
  JSObject value = with_every_place_in_use();
  value = 6;
  EXPECT_EQ(kind_of(value), Kind::kInteger);
  EXPECT_EQ(every_place(value), "true \"text\" 6 2.5 {\"a\":1} [7] ");
}

TEST(Assignment, OfABoolLeavesAllOtherPlaces) {
  JSObject value = with_every_place_in_use();
  value = false;
  EXPECT_EQ(kind_of(value), Kind::kBool);
  EXPECT_EQ(every_place(value), "false \"text\" 5 2.5 {\"a\":1} [7] ");
}

TEST(Assignment, OfADoubleLeavesAllOtherPlaces) {
  JSObject value = with_every_place_in_use();
  value = 3.5;
  EXPECT_EQ(kind_of(value), Kind::kDouble);
  EXPECT_EQ(every_place(value), "true \"text\" 5 3.5 {\"a\":1} [7] ");
}

TEST(Assignment, OfAWideIntegerTakesThePlaceOfTheDouble) {
  JSObject value = with_every_place_in_use();
  value = 1LL << 40;
  EXPECT_EQ(every_place(value), "true \"text\" 5 1099511627776 {\"a\":1} [7] ");
}

TEST(Copy, HoldsEverythingWhateverTheKindIs) {
  for (int number = 0; number <= 6; ++number) {
    JSObject value = with_every_place_in_use();
    set_kind(value, static_cast<Kind>(number));
    const JSObject built(value);
    JSObject assigned = "other";
    assigned = value;
    EXPECT_EQ(kind_of(built), kind_of(value));
    EXPECT_EQ(kind_of(assigned), kind_of(value));
    EXPECT_EQ(every_place(built), "true \"text\" 5 2.5 {\"a\":1} [7] ");
    EXPECT_EQ(every_place(assigned), "true \"text\" 5 2.5 {\"a\":1} [7] ");
  }
}

TEST(Copy, HoldsTheStaleContentsOfWhatIsInside) {
  JSObject value;
  value("inside") = with_every_place_in_use();
  value("inside") = true;
  JSObject copy = value;
  EXPECT_EQ(copy.dump(), "{\"inside\":true}");
  EXPECT_EQ(every_place(copy("inside")), "true \"text\" 5 2.5 {\"a\":1} [7] ");
}

TEST(Copy, HoldsEverythingOfWhatIsFarInside) {
  const auto inside = [](JSObject& value) -> JSObject& {
    JSObject* part = &value;
    for (int level = 0; level < 100; ++level) part = &(*part)[0];
    return *part;
  };
  for (int number = 0; number <= 6; ++number) {
    JSObject value;
    inside(value) = with_every_place_in_use();
    set_kind(inside(value), static_cast<Kind>(number));
    JSObject built(value);
    JSObject assigned = "other";
    assigned = value;
    EXPECT_EQ(kind_of(inside(built)), static_cast<Kind>(number));
    EXPECT_EQ(kind_of(inside(assigned)), static_cast<Kind>(number));
    EXPECT_EQ(every_place(inside(built)), "true \"text\" 5 2.5 {\"a\":1} [7] ");
    EXPECT_EQ(every_place(inside(assigned)), "true \"text\" 5 2.5 {\"a\":1} [7] ");
  }
}

TEST(Copy, ReplacesEverythingInItsTarget) {
  JSObject source = false;
  source = "other";
  source = 6;
  source = 3.5;
  JSObject value = with_every_place_in_use();
  value = source;
  EXPECT_EQ(every_place(value), "false \"other\" 6 3.5 {} [] ");
}

TEST(Copy, IsDeep) {
  JSObject value = parsed("{\"a\":{\"b\":[1,2]},\"c\":\"text\"}");
  JSObject copy = value;
  copy("a")("b")[0] = 9;
  copy("new");
  *copy("c").getStringP() = "changed";
  EXPECT_EQ(value.dump(), "{\"a\":{\"b\":[1,2]},\"c\":\"text\"}");
  value("a")("b")[1] = 8;
  EXPECT_EQ(copy.dump(), "{\"a\":{\"b\":[9,2]},\"c\":\"changed\",\"new\":null}");
}

TEST(Copy, ToItselfChangesNothing) {
  JSObject value = parsed("{\"a\":[1,{\"b\":2}]}");
  const JSObject& same = value;
  value = same;
  EXPECT_EQ(value.dump(), "{\"a\":[1,{\"b\":2}]}");
}

TEST(Copy, OfAPartReplacesTheWhole) {
  JSObject value = parsed("{\"a\":[1,{\"b\":2}]}");
  value = static_cast<const JSObject&>(value("a")[1]);
  EXPECT_EQ(value.dump(), "{\"b\":2}");
}

TEST(Copy, OfTheWholeIntoAPart) {
  JSObject value = parsed("[1,[2]]");
  JSObject& part = value[1];
  part = static_cast<const JSObject&>(value);
  EXPECT_EQ(value.dump(), "[1,[1,[2]]]");
}
