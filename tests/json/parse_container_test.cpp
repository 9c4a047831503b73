// SPDX-License-Identifier: MIT
// Reading arrays and objects, as tolerantly as messages need it, and what is left when
// the text stops making sense.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

TEST(ParseArray, ReadsItsElements) {
  EXPECT_EQ(read("[1,\"a\",true,null,2.5,[],{}]"), (Outcome{27, "[1,\"a\",true,null,2.5,[],{}]"}));
  EXPECT_EQ(kind_of(parsed("[]")), Kind::kArray);
}

TEST(ParseArray, MayBeEmpty) {
  EXPECT_EQ(read("[]"), (Outcome{2, "[]"}));
  EXPECT_EQ(read("[ \r\n\t]"), (Outcome{6, "[]"}));
}

TEST(ParseArray, SkipsWhiteSpaceBetweenElements) {
  EXPECT_EQ(read("[ 1 , 2\t,\n3 ] "), (Outcome{14, "[1,2,3]"}));
}

TEST(ParseArray, NeedsNoCommas) {
  EXPECT_EQ(read("[1 2]"), (Outcome{5, "[1,2]"}));
  EXPECT_EQ(read("[1\"a\"true[]{}-2]"), (Outcome{16, "[1,\"a\",true,[],{},-2]"}));
  EXPECT_EQ(read("[nulltruefalse]"), (Outcome{15, "[null,true,false]"}));
  EXPECT_EQ(read("[1-2--3]"), (Outcome{8, "[1,-2,0,-3]"}));
}

TEST(ParseArray, AllowsATrailingComma) {
  EXPECT_EQ(read("[1,]"), (Outcome{4, "[1]"}));
  EXPECT_EQ(read("[1 , ]"), (Outcome{6, "[1]"}));
}

TEST(ParseArray, OfALoneCommaHoldsANull) {
  EXPECT_EQ(read("[,]"), (Outcome{3, "[null]"}));
  EXPECT_EQ(read("[ , ]"), (Outcome{5, "[null]"}));
}

TEST(ParseArray, WithASecondTrailingCommaEndsInANull) {
  EXPECT_EQ(read("[1,,]"), (Outcome{5, "[1,null]"}));
}

TEST(ParseArray, WithAnEmptyPlaceAheadOfAnElementFails) {
  EXPECT_EQ(read("[1,,2]"), (Outcome{-1, "[1,null]"}));
  EXPECT_EQ(read("[,1]"), (Outcome{-1, "[null]"}));
  EXPECT_EQ(read("[,,]"), (Outcome{-1, "[null]"}));
}

TEST(ParseArray, WithAnUnknownWordFails) {
  EXPECT_EQ(read("[x]"), (Outcome{-1, "[null]"}));
  EXPECT_EQ(read("[1,tru]"), (Outcome{-1, "[1,null]"}));
  EXPECT_EQ(read("[1 x]"), (Outcome{-1, "[1,null]"}));
  EXPECT_EQ(read("[+1]"), (Outcome{-1, "[null]"}));
  EXPECT_EQ(read("[1:2]"), (Outcome{-1, "[1,null]"}));
  EXPECT_EQ(read("[1}"), (Outcome{-1, "[1,null]"}));
}

TEST(ParseArray, WithoutItsEndFailsAndKeepsItsElementsAndANull) {
  EXPECT_EQ(read("[1,2"), (Outcome{-1, "[1,2,null]"}));
  EXPECT_EQ(read("[1,2,"), (Outcome{-1, "[1,2,null]"}));
  EXPECT_EQ(read("["), (Outcome{-1, "[null]"}));
  EXPECT_EQ(read("[ "), (Outcome{-1, "[null]"}));
  EXPECT_EQ(read("[,"), (Outcome{-1, "[null]"}));
}

TEST(ParseArray, KeepsAnElementThatFailed) {
  EXPECT_EQ(read("[1,\"cut"), (Outcome{-1, "[1,\"\"]"}));
  EXPECT_EQ(read("[1,[2,"), (Outcome{-1, "[1,[2,null]]"}));
  EXPECT_EQ(read("[1,{\"a\""), (Outcome{-1, "[1,{}]"}));
}

TEST(ParseArray, ReplacesOldContents) {
  JSObject value = parsed("[1,2,3]");
  EXPECT_EQ(read_into(value, "[4]"), (Outcome{3, "[4]"}));
  value = parsed("{\"a\":1}");
  EXPECT_EQ(read_into(value, "[5]"), (Outcome{3, "[5]"}));
  EXPECT_FALSE(value.exists("a"));
}

TEST(ParseArray, ReplacesElementsFromBeforeAScalar) {
  JSObject value = parsed("[1,2,3]");
  value = "text";
  EXPECT_EQ(read_into(value, "[4]"), (Outcome{3, "[4]"}));
}

TEST(ParseObject, ReadsItsMembers) {
  EXPECT_EQ(read("{\"b\":1,\"a\":{\"c\":[2]}}"), (Outcome{21, "{\"a\":{\"c\":[2]},\"b\":1}"}));
  EXPECT_EQ(kind_of(parsed("{}")), Kind::kObject);
}

TEST(ParseObject, MayBeEmpty) {
  EXPECT_EQ(read("{}"), (Outcome{2, "{}"}));
  EXPECT_EQ(read("{ \r\n\t}"), (Outcome{6, "{}"}));
}

TEST(ParseObject, SkipsWhiteSpaceAroundEachPart) {
  EXPECT_EQ(read("{ \"a\" : 1 ,\n\"b\"\t:\r2 } "), (Outcome{22, "{\"a\":1,\"b\":2}"}));
}

TEST(ParseObject, NeedsNoCommas) {
  EXPECT_EQ(read("{\"a\":1 \"b\":2}"), (Outcome{13, "{\"a\":1,\"b\":2}"}));
  EXPECT_EQ(read("{\"a\":1\"b\":2}"), (Outcome{12, "{\"a\":1,\"b\":2}"}));
  EXPECT_EQ(read("{\"a\":\"x\"\"b\":[]\"c\":{}}"),
            (Outcome{21, "{\"a\":\"x\",\"b\":[],\"c\":{}}"}));
}

TEST(ParseObject, AllowsATrailingComma) {
  EXPECT_EQ(read("{\"a\":1,}"), (Outcome{8, "{\"a\":1}"}));
  EXPECT_EQ(read("{\"a\":1 , }"), (Outcome{10, "{\"a\":1}"}));
}

TEST(ParseObject, UndoesTheEscapesOfAKey) {
  JSObject value;
  EXPECT_EQ(parse(value, "{\"\\u0041\\n\\\"\":1}"), 16);
  EXPECT_TRUE(value.exists("A\n\""));
}

TEST(ParseObject, AllowsAKeyWithANulByte) {
  const JSObject value = parsed("{\"a\\u0000b\":1}");
  EXPECT_EQ(value(std::string("a\0b", 3)).getInt(), 1);
  EXPECT_FALSE(value.exists("a"));
}

TEST(ParseObject, AllowsAnEmptyKey) { EXPECT_EQ(read("{\"\":1}"), (Outcome{6, "{\"\":1}"})); }

TEST(ParseObject, AllowsAMemberWithoutAValue) {
  EXPECT_EQ(read("{\"a\":}"), (Outcome{6, "{\"a\":null}"}));
  EXPECT_EQ(read("{\"a\": }"), (Outcome{7, "{\"a\":null}"}));
  EXPECT_EQ(read("{\"a\":,}"), (Outcome{7, "{\"a\":null}"}));
  EXPECT_EQ(read("{\"a\":,\"b\":1}"), (Outcome{12, "{\"a\":null,\"b\":1}"}));
}

TEST(ParseObject, KeepsTheLastValueOfAKey) {
  EXPECT_EQ(read("{\"a\":1,\"a\":2}"), (Outcome{13, "{\"a\":2}"}));
  EXPECT_EQ(read("{\"a\":[1,2],\"a\":[3]}"), (Outcome{19, "{\"a\":[3]}"}));
  EXPECT_EQ(read("{\"a\":{\"x\":1},\"b\":0,\"a\":{\"y\":2}}"),
            (Outcome{31, "{\"a\":{\"y\":2},\"b\":0}"}));
  EXPECT_EQ(read("{\"a\":1,\"a\":null}"), (Outcome{16, "{\"a\":null}"}));
}

TEST(ParseObject, KnowsAKeyByItsBytesAndNotByItsEscapes) {
  EXPECT_EQ(read("{\"A\":1,\"\\u0041\":2}"), (Outcome{18, "{\"A\":2}"}));
}

TEST(ParseObject, KeepsAnEarlierValueIfALaterOneIsMissing) {
  EXPECT_EQ(read("{\"a\":5,\"a\":}"), (Outcome{12, "{\"a\":5}"}));
  EXPECT_EQ(read("{\"a\":\"x\",\"a\":,}"), (Outcome{15, "{\"a\":\"x\"}"}));
}

TEST(ParseObject, EmptiesAnEarlierContainerIfALaterValueIsMissing) {
  EXPECT_EQ(read("{\"a\":[1,2],\"a\":}"), (Outcome{16, "{\"a\":[]}"}));
  EXPECT_EQ(read("{\"a\":{\"b\":1},\"a\":}"), (Outcome{18, "{\"a\":{}}"}));
}

TEST(ParseObject, WithoutItsFirstKeyFails) {
  for (const char* const text :
       {"{", "{ ", "{x", "{,}", "{1:2}", "{:1}", "{a:1}", "{]", "{'a':1}"}) {
    EXPECT_EQ(read(text), (Outcome{-1, "{}"})) << text;
  }
}

TEST(ParseObject, WithoutANextKeyFails) {
  for (const char* const text : {"{\"a\":1", "{\"a\":1,", "{\"a\":1,,}", "{\"a\":1]", "{\"a\":1,x",
                                 "{\"a\":1 b", "{\"a\":1:2}", "{\"a\":1,2}"}) {
    EXPECT_EQ(read(text), (Outcome{-1, "{\"a\":1}"})) << text;
  }
}

TEST(ParseObject, WithAKeyThatIsCutOffFailsWithoutTheMember) {
  EXPECT_EQ(read("{\"a"), (Outcome{-1, "{}"}));
  EXPECT_EQ(read("{\"a\\\""), (Outcome{-1, "{}"}));
  EXPECT_EQ(read("{\"a\\"), (Outcome{-1, "{}"}));
  EXPECT_EQ(read("{\"a\":1,\"b"), (Outcome{-1, "{\"a\":1}"}));
}

TEST(ParseObject, WithoutAColonFailsWithoutTheMember) {
  EXPECT_EQ(read("{\"a\""), (Outcome{-1, "{}"}));
  EXPECT_EQ(read("{\"a\"}"), (Outcome{-1, "{}"}));
  EXPECT_EQ(read("{\"a\" 1}"), (Outcome{-1, "{}"}));
  EXPECT_EQ(read("{\"a\",\"b\":1}"), (Outcome{-1, "{}"}));
  EXPECT_EQ(read("{\"a\":1,\"b\"=2}"), (Outcome{-1, "{\"a\":1}"}));
}

TEST(ParseObject, WithAnUnknownWordFailsAndKeepsTheMemberAsNull) {
  EXPECT_EQ(read("{\"a\":x}"), (Outcome{-1, "{\"a\":null}"}));
  EXPECT_EQ(read("{\"a\":tru}"), (Outcome{-1, "{\"a\":null}"}));
  EXPECT_EQ(read("{\"a\":"), (Outcome{-1, "{\"a\":null}"}));
}

TEST(ParseObject, WithAnUnknownWordForAKnownKeyKeepsTheEarlierValue) {
  EXPECT_EQ(read("{\"a\":5,\"a\":x}"), (Outcome{-1, "{\"a\":5}"}));
}

TEST(ParseObject, KeepsAMemberThatFailed) {
  EXPECT_EQ(read("{\"a\":\"cut"), (Outcome{-1, "{\"a\":\"\"}"}));
  EXPECT_EQ(read("{\"a\":[1,"), (Outcome{-1, "{\"a\":[1,null]}"}));
  EXPECT_EQ(read("{\"a\":{\"b\":1"), (Outcome{-1, "{\"a\":{\"b\":1}}"}));
}

TEST(ParseObject, PassesAFailureUpThroughAllLevels) {
  EXPECT_EQ(read("{\"a\":[1,{\"b\":2,\"c\":\"x]}]}"),
            (Outcome{-1, "{\"a\":[1,{\"b\":2,\"c\":\"\"}]}"}));
  EXPECT_EQ(read("[[1,[2 x]],3]"), (Outcome{-1, "[[1,[2,null]]]"}));
}

TEST(ParseObject, ReplacesOldContents) {
  JSObject value = parsed("{\"a\":1}");
  EXPECT_EQ(read_into(value, "{\"b\":2}"), (Outcome{7, "{\"b\":2}"}));
  value = parsed("[1,2]");
  EXPECT_EQ(read_into(value, "{\"b\":2}"), (Outcome{7, "{\"b\":2}"}));
}

TEST(ParseObject, ReplacesMembersFromBeforeAScalar) {
  JSObject value = parsed("{\"a\":1}");
  value = "text";
  EXPECT_EQ(read_into(value, "{\"b\":2}"), (Outcome{7, "{\"b\":2}"}));
}

TEST(ParseScalar, EmptiesOldContainers) {
  for (const char* const text : {"true", "\"text\"", "5", "2.5"}) {
    JSObject value = parsed("{\"a\":1}");
    EXPECT_EQ(parse(value, text), static_cast<int>(std::string(text).size()));
    EXPECT_FALSE(value.exists("a")) << text;
    value = parsed("[1,2]");
    parse(value, text);
    value.resize(1);
    EXPECT_EQ(value.dump(), "[null]") << text;
  }
}

TEST(ParseScalar, LeavesTheOldString) {
  JSObject value = "old";
  parse(value, "5");
  EXPECT_EQ(read_into(value, "\"cut"), (Outcome{-1, "\"old\""}));
}
