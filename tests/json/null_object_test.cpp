// SPDX-License-Identifier: MIT
// The value that stands for whatever is not there.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>
#include <thread>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

std::string missing_text() {
  const JSObject null;
  return null("a").getString();
}

// Read while this program's own static objects are being made.
const std::string at_load = missing_text();

void miss() {
  const JSObject null;
  null("a");
}

}  // namespace

TEST(NullObject, CanBeReadByStaticInitialisers) { EXPECT_EQ(at_load, "null"); }

TEST(NullObject, IsNullAndEmptyAtFirst) {
  EXPECT_EQ(kind_of(JSObject::NullObject), Kind::kNull);
  EXPECT_EQ(JSObject::NullObject.getStringP(), nullptr);
  JSObject copy = JSObject::NullObject;
  set_kind(copy, Kind::kObject);
  EXPECT_EQ(copy.dump(), "{}");
  set_kind(copy, Kind::kArray);
  EXPECT_EQ(copy.dump(), "[]");
  set_kind(copy, Kind::kString);
  EXPECT_EQ(copy.dump(), "\"\"");
}

TEST(NullObject, IsGivenForAMemberThatIsMissing) {
  const JSObject object = parsed("{\"a\":1}");
  EXPECT_EQ(&object("b"), &JSObject::NullObject);
  EXPECT_EQ(&object(std::string("b")), &JSObject::NullObject);
}

TEST(NullObject, IsGivenForAMemberOfWhatIsNoObject) {
  const JSObject array = parsed("[{\"a\":1}]");
  for (const JSObject& value :
       {JSObject(), JSObject(true), JSObject("a"), JSObject(1), JSObject(1.5), array}) {
    EXPECT_EQ(&value("a"), &JSObject::NullObject) << value.dump();
  }
}

TEST(NullObject, IsGivenForAnOldMemberOfAFormerObject) {
  JSObject value = parsed("{\"a\":1}");
  value = "text";
  const JSObject& constant = value;
  EXPECT_TRUE(constant.exists("a"));
  EXPECT_EQ(&constant("a"), &JSObject::NullObject);
}

TEST(NullObject, IsGivenForAnElementOutsideAnArray) {
  const JSObject array = parsed("[1,2]");
  EXPECT_EQ(&array[2], &JSObject::NullObject);
  EXPECT_EQ(&array[-1], &JSObject::NullObject);
  const JSObject empty = parsed("[]");
  EXPECT_EQ(&empty[0], &JSObject::NullObject);
}

TEST(NullObject, IsGivenForAnElementOfWhatIsNoArray) {
  const JSObject object = parsed("{\"0\":[1]}");
  for (const JSObject& value :
       {JSObject(), JSObject(true), JSObject("a"), JSObject(1), JSObject(1.5), object}) {
    EXPECT_EQ(&value[0], &JSObject::NullObject) << value.dump();
  }
}

TEST(NullObject, IsGivenForAnOldElementOfAFormerArray) {
  JSObject value = parsed("[1,2]");
  value = "text";
  const JSObject& constant = value;
  EXPECT_EQ(&constant[0], &JSObject::NullObject);
}

TEST(NullObject, IsGivenAtEachStepOfALookupThatMisses) {
  const JSObject null;
  EXPECT_EQ(&null("a"), &JSObject::NullObject);
  EXPECT_EQ(&null("a")("b"), &JSObject::NullObject);
  EXPECT_EQ(&null[3][4], &JSObject::NullObject);
  EXPECT_EQ(null.dump(), "null");
  EXPECT_FALSE(JSObject::NullObject.exists("a"));
  EXPECT_FALSE(JSObject::NullObject.exists("b"));
}

TEST(NullObject, HoldsWhatIsWrittenUntilTheNextMiss) {
  JSObject value;
  value[-1] = "written";
  EXPECT_EQ(JSObject::NullObject.getString(), "written");
  miss();
  EXPECT_EQ(JSObject::NullObject.getString(), "null");
}

TEST(NullObject, ShowsWhatIsWrittenThroughReferencesFromBefore) {
  const JSObject null;
  const JSObject& earlier = null("a");
  JSObject::NullObject = "written";
  EXPECT_EQ(earlier.getString(), "written");
  miss();
  EXPECT_EQ(earlier.getString(), "null");
}

TEST(NullObject, IsOneForAllThreads) {
  const JSObject null;
  const JSObject& earlier = null("a");
  std::thread([] { JSObject::NullObject = "written"; }).join();
  EXPECT_EQ(earlier.getString(), "written");
  std::thread(miss).join();
  EXPECT_EQ(earlier.getString(), "null");
}

TEST(NullObject, IsMadeNullByAMemberThatIsMissing) {
  const JSObject object = parsed("{\"a\":1}");
  JSObject::NullObject = 5;
  EXPECT_EQ(object("b").getInt(), 0);
  EXPECT_EQ(kind_of(JSObject::NullObject), Kind::kNull);
}

TEST(NullObject, IsMadeNullByAMemberOfWhatIsNoObject) {
  const JSObject text = "text";
  JSObject::NullObject = 5;
  EXPECT_EQ(text("b").getInt(), 0);
  EXPECT_EQ(kind_of(JSObject::NullObject), Kind::kNull);
}

TEST(NullObject, IsMadeNullByAConstLookupOfAnElementThatIsMissing) {
  const JSObject array = parsed("[1]");
  for (const int index : {1, -1}) {
    JSObject::NullObject = 5;
    EXPECT_EQ(array[index].getInt(), 0);
    EXPECT_EQ(kind_of(JSObject::NullObject), Kind::kNull);
  }
}

TEST(NullObject, IsMadeNullByAnElementOfWhatIsNoArray) {
  const JSObject text = "text";
  JSObject::NullObject = 5;
  EXPECT_EQ(text[0].getInt(), 0);
  EXPECT_EQ(kind_of(JSObject::NullObject), Kind::kNull);
}

TEST(NullObject, IsMadeNullByANegativeIndex) {
  JSObject value;
  JSObject::NullObject = 5;
  EXPECT_EQ(value[-1].getInt(), 0);
  EXPECT_EQ(kind_of(JSObject::NullObject), Kind::kNull);
}

TEST(NullObject, IsMadeNullByANegativeIndexIntoItself) {
  JSObject& found = JSObject::NullObject[-1];
  EXPECT_EQ(&found, &JSObject::NullObject);
  EXPECT_EQ(kind_of(found), Kind::kNull);
}

TEST(NullObject, IsLeftAloneByWhatIsFound) {
  JSObject object = parsed("{\"a\":1}");
  JSObject array = parsed("[1]");
  const JSObject& const_object = object;
  const JSObject& const_array = array;
  JSObject::NullObject = "written";
  EXPECT_EQ(const_object("a").getInt(), 1);
  EXPECT_EQ(const_array[0].getInt(), 1);
  object("new");
  array[5];
  array.resize(9);
  EXPECT_EQ(JSObject::NullObject.getString(), "written");
}

TEST(NullObject, IsLeftAloneByExistsAndErase) {
  JSObject object = parsed("{\"a\":1}");
  JSObject::NullObject = "written";
  EXPECT_FALSE(object.exists("b"));
  object.erase("b");
  EXPECT_EQ(JSObject::NullObject.getString(), "written");
}

TEST(NullObject, IsLeftAloneByParsingAndWriting) {
  JSObject::NullObject = "written";
  EXPECT_EQ(read("{\"a\":[1,x").result, -1);
  EXPECT_EQ(read("{\"a\":[1,null]}"), (Outcome{14, "{\"a\":[1,null]}"}));
  EXPECT_EQ(JSObject::NullObject.getString(), "written");
}

TEST(NullObject, KeepsAStaleStringBehindItsKind) {
  JSObject::NullObject = "written";
  miss();
  EXPECT_EQ(JSObject::NullObject.getStringP(), nullptr);
  EXPECT_EQ(parse(JSObject::NullObject, "\"cut off"), -1);
  EXPECT_EQ(JSObject::NullObject.getString(), "written");
}

TEST(NullObject, KeepsStaleMembersBehindItsKind) {
  JSObject::NullObject("k") = 1;
  miss();
  EXPECT_EQ(JSObject::NullObject.dump(), "null");
  EXPECT_TRUE(JSObject::NullObject.exists("k"));
  const JSObject& constant = JSObject::NullObject;
  EXPECT_EQ(constant("k").getInt(), 0);
  JSObject::NullObject("n") = 2;
  EXPECT_EQ(JSObject::NullObject.dump(), "{\"k\":1,\"n\":2}");
}

TEST(NullObject, KeepsStaleElementsBehindItsKind) {
  JSObject::NullObject[1] = 7;
  miss();
  EXPECT_EQ(JSObject::NullObject.dump(), "null");
  JSObject::NullObject[2] = 8;
  EXPECT_EQ(JSObject::NullObject.dump(), "[null,7,8]");
}

TEST(NullObject, PassesStaleContentsOnToACopy) {
  JSObject::NullObject("k") = 1;
  miss();
  JSObject copy = JSObject::NullObject;
  EXPECT_EQ(copy.dump(), "null");
  EXPECT_TRUE(copy.exists("k"));
}

TEST(NullObject, GathersMembersWhenParsedInto) {
  JSObject::NullObject("k") = 1;
  miss();
  EXPECT_EQ(read_into(JSObject::NullObject, "{\"n\":2}"), (Outcome{7, "{\"k\":1,\"n\":2}"}));
}

TEST(NullObject, GathersElementsWhenParsedInto) {
  JSObject::NullObject[0] = 1;
  miss();
  EXPECT_EQ(read_into(JSObject::NullObject, "[2]"), (Outcome{3, "[1,2]"}));
}
