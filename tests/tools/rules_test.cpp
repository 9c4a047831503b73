// SPDX-License-Identifier: MIT
// zedipc rules.
#include <gtest/gtest.h>

#include <string>

#include "support/scratch_dir.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::ScratchDir;

namespace {

const char kGood[] =
    "# direction from to notification\n"
    "in * display status.*\n"
    "\n"
    "out printer * job\\*done\n"
    "out printer \\* paper.out\n";

// The command's result for a rule file of this text, and the file's path.
struct Checked : Result {
  std::string path;

  explicit Checked(const std::string& text, Arguments more = {}) {
    const ScratchDir dir;
    path = dir.write("rules", text);
    more.insert(more.begin(), {"rules", path});
    static_cast<Result&>(*this) = run(more);
  }
};

// Two rules, in this order.
struct Pair {
  std::string wide;
  std::string narrow;
};

class CoveredRule : public testing::TestWithParam<Pair> {};
class SeparateRule : public testing::TestWithParam<Pair> {};

Checked explained(const Arguments& question) {
  Arguments arguments{"--explain"};
  arguments.insert(arguments.end(), question.begin(), question.end());
  return Checked(kGood, arguments);
}

}  // namespace

TEST(Rules, SaysHowManyThereAreAndThatTheServerWillBeOpen) {
  const Checked result(kGood);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "1 rule for what comes in, 2 rules for what goes out\n"
            "the server listens on all addresses: other machines can connect\n");
  EXPECT_EQ(result.err, "");
}

TEST(Rules, SaysThatTheServerWillNotBeOpenWithoutARule) {
  const Checked result("# none yet\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "0 rules for what comes in, 0 rules for what goes out\n"
            "the server listens on 127.0.0.1: no other machine can connect\n");
}

TEST(Rules, SaysWhichLineHasAWrongDirection) {
  const Checked result("in * * *\n\nsideways * * *\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "zedipc: " + result.path +
                            ":3: a rule begins with 'in' or 'out', not with 'sideways'\n");
}

TEST(Rules, SaysWhichLineHasTooFewPatterns) {
  const Checked result("in * *\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "zedipc: " + result.path +
                            ":1: a rule has three patterns after 'in' or 'out', for the sender, "
                            "the receiver and the notification; here are 2\n");
}

TEST(Rules, SaysThatALineHasTooManyPatterns) {
  EXPECT_TRUE(contains(Checked("out a b c d\n").err, "; here are 4\n"));
}

TEST(Rules, SaysThatACommentNeedsALineOfItsOwn) {
  const Checked result("in * * * # all\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "zedipc: " + result.path + ":1: a comment needs a line of its own\n");
}

TEST(Rules, WarnsOfARuleThatIsThereTwice) {
  const Checked result("in a b c\nout a b c\nin a  b\tc\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "zedipc: " + result.path + ":3: the same rule is in line 1\n");
}

TEST(Rules, WarnsOfARuleThatMatchesNothing) {
  const Checked result("in a b\\\\ c\\\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "zedipc: " + result.path +
                            ":1: the rule matches nothing: 'c\\' ends in a backslash, which needs "
                            "a byte after it\n");
}

TEST(Rules, TakesAPatternToEndAtAZeroByteAsTheServerDoes) {
  const Checked result(std::string("in a b c\\\0d\n", 12));
  EXPECT_TRUE(contains(result.err, ":1: the rule matches nothing: 'c\\\\u0000d' ends"))
      << result.err;
}

TEST(Rules, CountARuleThatIsThereTwiceOnce) {
  EXPECT_TRUE(contains(Checked("in a b c\nin a b c\n").out, "1 rule for what comes in, 0 rules"));
}

TEST_P(CoveredRule, IsWarnedOf) {
  const Checked result(GetParam().wide + "\n" + GetParam().narrow + "\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "zedipc: " + result.path +
                            ":2: the rule adds nothing: line 1 admits all that it admits\n");
}

INSTANTIATE_TEST_SUITE_P(
    Rules, CoveredRule,
    testing::Values(Pair{"in * * *", "in a b c"}, Pair{"out a b status.*", "out a b status.lid"},
                    Pair{"in a* b c", "in ab*d b c"}, Pair{"in *b* b c", "in a*b b c"},
                    Pair{"in * b c", "in ** b c"}, Pair{"in ** b c", "in * b c"},
                    Pair{"in a*c b *", "in a*b*c b *d"}, Pair{"in \\*x* b c", "in \\*x b c"},
                    Pair{"in \\a b c", "in a b c"}));

TEST_P(SeparateRule, IsNotWarnedOf) {
  EXPECT_EQ(Checked(GetParam().wide + "\n" + GetParam().narrow + "\n").err, "");
}

INSTANTIATE_TEST_SUITE_P(Rules, SeparateRule,
                         testing::Values(Pair{"in * * *", "out a b c"},
                                         Pair{"in a* b c", "in *a b c"},
                                         Pair{"in a b c", "in a b d"}, Pair{"in * b c", "in a * c"},
                                         Pair{"in \\* b c", "in a b c"},
                                         Pair{"in a*b b c", "in a*c b c"},
                                         Pair{"in *a*b b c", "in *b*a b c"}));

TEST(Rules, WarnsOfARuleThatALaterOneCovers) {
  const Checked result("in a b c\nout a b c\nin a * c\n");
  EXPECT_EQ(result.err, "zedipc: " + result.path +
                            ":1: the rule adds nothing: line 3 admits all that it admits\n");
}

TEST(Rules, SaysThatTheFileCannotBeOpened) {
  const ScratchDir dir;
  const Result result = run({"rules", dir.file("none")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "zedipc: cannot open '" + dir.file("none") + "': No such file or directory\n");
}

TEST(Rules, ExplainWhichRuleAdmitsWhatComesIn) {
  const Checked result = explained({"in", "panel", "display", "status.lid"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, result.path + ":2: in * display status.*\n");
}

TEST(Rules, ExplainWhichRuleAdmitsWhatGoesOut) {
  const Checked result = explained({"out", "printer", "anybody", "job*done"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, result.path + ":4: out printer * job\\*done\n");
}

TEST(Rules, ExplainThatNoneAdmitsIt) {
  const Checked result = explained({"out", "printer", "anybody", "job.done"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "no rule admits it\n");
}

TEST(Rules, ExplainDoesNotMixTheDirections) {
  EXPECT_EQ(explained({"out", "panel", "display", "status.lid"}).status, 1);
}

TEST(Rules, ExplainTakesNamesInBracketsAsTheyAre) {
  EXPECT_EQ(explained({"in", "[a,b]", "display", "status.[lid]"}).status, 0);
}

TEST(Rules, MakesAPatternHarmlessForTerminals) {
  EXPECT_TRUE(contains(Checked("\033[2J * * *\n").err, "not with '\\u001b[2J'"));
}
