// SPDX-License-Identifier: MIT
// zedipc json, and what is said of a text that is broken.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "support/scratch_dir.h"
#include "tools/strict_json.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::ScratchDir;

namespace {

struct Broken {
  const char* name;
  std::string text;
  std::string message;  // what follows "zedipc: standard input"
};

class BrokenJson : public testing::TestWithParam<Broken> {};

std::string name_of(const testing::TestParamInfo<Broken>& info) { return info.param.name; }

const char kCutOff[] = "the JSON value is cut off here\n";
const char kCannotGoOn[] = "the JSON value cannot go on like this\n";
const char kFollowed[] = "a JSON value ends before this, and nothing may follow it\n";
const char kNoValue[] = "no JSON value begins like this (a text needs quotes)\n";

}  // namespace

TEST(Json, WritesCompactly) {
  const Result result = run({"json"}, " { \"b\" : [ 1 , 2 ] ,\n \"a\" : null } \n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "{\"a\":null,\"b\":[1,2]}\n");
  EXPECT_EQ(result.err, "");
}

TEST(Json, ReadsTolerantly) { EXPECT_EQ(run({"json"}, "[1 2,]").out, "[1,2]\n"); }

TEST(Json, ReadsAFile) {
  const ScratchDir dir;
  EXPECT_EQ(run({"json", dir.write("file", "[1]")}).out, "[1]\n");
}

TEST(Json, ReadsStandardInputForADash) { EXPECT_EQ(run({"json", "-"}, "[1]").out, "[1]\n"); }

TEST(Json, WritesLinesIfItShallBePretty) {
  const Result result = run({"json", "--pretty"}, R"({"a":[1,{"b":[],"c":{}}],"d":"x{,\":"})");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "{\n  \"a\": [\n    1,\n    {\n      \"b\": [],\n      \"c\": {}\n    }\n  ],\n"
            "  \"d\": \"x{,\\\":\"\n}\n");
}

TEST(Json, StaysShortForDeepValues) {
  const std::string deep = std::string(5000, '[') + std::string(5000, ']');
  const Result result = run({"json", "--pretty"}, deep);
  EXPECT_EQ(result.status, 0);
  EXPECT_LT(result.out.size(), 10000U * 100);
}

TEST(Json, WritesBytesThatAreNoUtf8AsEscapes) {
  EXPECT_EQ(run({"json"}, "\"\xFF\xC3\xA4\xC3\"").out, "\"\\u00ff\xC3\xA4\\u00c3\"\n");
}

TEST(Json, WritesNumbersThatJsonDoesNotHaveAsNull) {
  EXPECT_EQ(run({"json"}, R"(["inf", 1e999, -1e999, {"nan":1}])").out,
            "[\"inf\",null,null,{\"nan\":1}]\n");
}

TEST(Json, SaysThatTheFileCannotBeOpened) {
  const ScratchDir dir;
  const Result result = run({"json", dir.file("none")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "zedipc: cannot open '" + dir.file("none") + "': No such file or directory\n");
}

TEST(Json, SaysThatTheFileCannotBeRead) {
  const ScratchDir dir;
  EXPECT_EQ(run({"json", dir.file("")}).err,
            "zedipc: cannot read '" + dir.file("") + "': Is a directory\n");
}

TEST_P(BrokenJson, IsShownWithACaretUnderThePlace) {
  const Result result = run({"json"}, GetParam().text);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "zedipc: standard input" + GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Json, BrokenJson,
    testing::Values(
        Broken{"Empty", "", ": there is no JSON value\n"},
        Broken{"Blank", " \n", ": there is no JSON value\n"},
        Broken{"Word", " hello", std::string(":1:2: ") + kNoValue + "   hello\n   ^\n"},
        Broken{"OpenObject", "{\"a\":1",
               std::string(":1:7: ") + kCutOff + "  {\"a\":1\n        ^\n"},
        Broken{"OpenArray", "[1,", std::string(":1:4: ") + kCutOff + "  [1,\n     ^\n"},
        Broken{"OpenString", "\"ab", std::string(":1:4: ") + kCutOff + "  \"ab\n     ^\n"},
        Broken{"OpenKey", "{\"ab", std::string(":1:5: ") + kCutOff + "  {\"ab\n      ^\n"},
        Broken{"OpenEscape", "\"\\", std::string(":1:3: ") + kCutOff + "  \"\\\n    ^\n"},
        Broken{"KeyAlone", "{\"a\"", std::string(":1:5: ") + kCutOff + "  {\"a\"\n      ^\n"},
        Broken{"ColonAlone", "{\"a\":", std::string(":1:6: ") + kCutOff + "  {\"a\":\n       ^\n"},
        Broken{"OpenWord", "[tru", std::string(":1:5: ") + kCutOff + "  [tru\n      ^\n"},
        Broken{"OpenAheadOfALineEnd", "{\"a\":[\n 1,2\n\n",
               std::string(":2:5: ") + kCutOff + "   1,2\n      ^\n"},
        Broken{"OpenFalse", "fals", std::string(":1:5: ") + kCutOff + "  fals\n      ^\n"},
        Broken{"WrongWord", "[1, trap]",
               std::string(":1:7: ") + kCannotGoOn + "  [1, trap]\n        ^\n"},
        Broken{"KeyWithoutQuotes", "{a:1}",
               std::string(":1:2: ") + kCannotGoOn + "  {a:1}\n   ^\n"},
        Broken{"WrongBracket", "{\"a\":[1}}",
               std::string(":1:8: ") + kCannotGoOn + "  {\"a\":[1}}\n         ^\n"},
        Broken{"Followed", "{} {}", std::string(":1:4: ") + kFollowed + "  {} {}\n     ^\n"},
        Broken{"FollowedByAZeroByte", std::string("1\0", 2),
               std::string(":1:2: ") + kFollowed + "  1\\u0000\n   ^\n"},
        Broken{"InTheThirdLine", "[1,\n2,\n 3 x,\n4]",
               std::string(":3:4: ") + kCannotGoOn + "   3 x,\n     ^\n"},
        Broken{"BehindUmlautsAndControls", "\"\xC3\xA4\x1B\" x",
               std::string(":1:7: ") + kFollowed + "  \"\xC3\xA4\\u001b\" x\n            ^\n"},
        Broken{"InALongLine", std::string(100, ' ') + "x" + std::string(100, 'y'),
               std::string(":1:101: ") + kNoValue + "  ..." + std::string(60, ' ') + "x" +
                   std::string(59, 'y') + "...\n" + std::string(65, ' ') + "^\n"}),
    name_of);

TEST(Json, SaysThatItCannotWrite) {
  zedipc::test::Child child({}, [] {
    set_input("1");
    if (freopen("/dev/full", "w", stdout) == nullptr) _exit(kNotRun);
    become({"json"});
  });
  EXPECT_EQ(child.wait(), 1);
  EXPECT_EQ(child.err(), "zedipc: cannot write to standard output: No space left on device\n");
}

TEST(Json, EndsWithoutAWordWhenItsReaderHasGone) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  zedipc::test::Child child({}, [&] {
    set_input("1");
    dup2(ends[1], STDOUT_FILENO);
    become({"json"});
  });
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(child.err(), "");
  close(ends[1]);
}
