// SPDX-License-Identifier: MIT
#include "notifyserver/rules.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace zedipc;
using Words = std::vector<std::string>;

namespace {

struct Parsed {
  bool valid;
  std::vector<std::string> inbound;
  std::vector<std::string> outbound;
};

std::vector<std::string> listed(const RuleSet& rules) {
  std::vector<std::string> result;
  for (const ConfigRule& rule : rules) {
    result.push_back(rule.from + "|" + rule.to + "|" + rule.notification);
  }
  return result;
}

Parsed parse(const std::string& text) {
  RuleSet inbound;
  RuleSet outbound;
  const bool valid = parse_config(text, inbound, outbound);
  return {valid, listed(inbound), listed(outbound)};
}

// Shows that the text is valid and holds this one rule for what comes in.
void expect_inbound(const std::string& text, const std::string& rule) {
  const Parsed parsed = parse(text);
  EXPECT_TRUE(parsed.valid);
  EXPECT_EQ(parsed.inbound, Words{rule});
  EXPECT_EQ(parsed.outbound, Words{});
}

void expect_empty(const std::string& text) {
  const Parsed parsed = parse(text);
  EXPECT_TRUE(parsed.valid);
  EXPECT_EQ(parsed.inbound, Words{});
  EXPECT_EQ(parsed.outbound, Words{});
}

Words split(const std::string& line) {
  Words words{"left", "over"};
  split_words(words, line);
  return words;
}

RuleSet rules_of(const std::string& lines) {
  RuleSet inbound;
  RuleSet outbound;
  EXPECT_TRUE(parse_config(lines, inbound, outbound));
  return inbound;
}

}  // namespace

TEST(SplitWords, SeparatesByAnyRunOfWhiteSpace) {
  EXPECT_EQ(split("in  a \t b \v\f\r\n c"), (Words{"in", "a", "b", "c"}));
}

TEST(SplitWords, PassesOverWhiteSpaceAtBothEnds) {
  EXPECT_EQ(split("  one two  "), (Words{"one", "two"}));
}

TEST(SplitWords, FindsNoneInABlankLine) {
  EXPECT_EQ(split(""), Words{});
  EXPECT_EQ(split(" \f\v "), Words{});
}

TEST(SplitWords, TakesEveryOtherByteForPartOfAWord) {
  EXPECT_EQ(split("a\xa0z \x85 \x01\x7f #\\ \"q"),
            (Words{"a\xa0z", "\x85", "\x01\x7f", "#\\", "\"q"}));
}

TEST(ParseConfig, SortsRulesByDirection) {
  const Parsed parsed = parse("in a b c\nout d e f\n");
  EXPECT_TRUE(parsed.valid);
  EXPECT_EQ(parsed.inbound, Words{"a|b|c"});
  EXPECT_EQ(parsed.outbound, Words{"d|e|f"});
}

TEST(ParseConfig, FindsNoRulesInAnEmptyText) { expect_empty(""); }

TEST(ParseConfig, PassesOverBlankLines) { expect_empty("\n   \n\t\t\n \t \n\r\n\n"); }

TEST(ParseConfig, PassesOverComments) {
  expect_empty("# in a b c\n   # indented\n\t\t#tabs\n#\n#in the last line");
}

TEST(ParseConfig, TakesALastLineWithoutAnEnd) { expect_inbound("in a b c", "a|b|c"); }

TEST(ParseConfig, TakesTabsForBlanks) { expect_inbound("\tin\ta\t \tb\tc\t\n", "a|b|c"); }

TEST(ParseConfig, TakesBlanksAroundARule) { expect_inbound("   in   a b   c   \n", "a|b|c"); }

TEST(ParseConfig, TakesCarriageReturns) {
  const Parsed parsed = parse("# comment\r\nin a b c\r\n\r\nout d e f\r\n");
  EXPECT_TRUE(parsed.valid);
  EXPECT_EQ(parsed.inbound, Words{"a|b|c"});
  EXPECT_EQ(parsed.outbound, Words{"d|e|f"});
}

TEST(ParseConfig, DropsCarriageReturnsInsideWords) { expect_inbound("i\rn a\rb c d\n", "ab|c|d"); }

TEST(ParseConfig, TakesARuleWhoseOnlyLineEndIsACarriageReturn) {
  RuleSet inbound;
  RuleSet outbound;
  EXPECT_TRUE(parse_config("in a b c\r", inbound, outbound));
  ASSERT_EQ(inbound.size(), 1U);
  EXPECT_TRUE(rule_match("a", "b", "c", inbound));
}

TEST(ParseConfig, DropsARuleThatIsThereAlready) {
  const Parsed parsed = parse("in a b c\nin  a  b  c\nout a b c\nin a b c\n");
  EXPECT_TRUE(parsed.valid);
  EXPECT_EQ(parsed.inbound, Words{"a|b|c"});
  EXPECT_EQ(parsed.outbound, Words{"a|b|c"});
}

TEST(ParseConfig, OrdersRulesByTheirBytes) {
  const Parsed parsed = parse("in b a a\nin a b a\nin a a b\nin \xff a a\nin a a a\nin aa a a\n");
  EXPECT_TRUE(parsed.valid);
  EXPECT_EQ(parsed.inbound, (Words{"a|a|a", "a|a|b", "a|b|a", "aa|a|a", "b|a|a", "\xff|a|a"}));
}

TEST(ParseConfig, KeepsBackslashesForTheMatcher) {
  expect_inbound("in \\* a\\\\b c\\", "\\*|a\\\\b|c\\");
}

TEST(ParseConfig, KnowsNoQuotes) { EXPECT_FALSE(parse("in \"a b\" c d\n").valid); }

TEST(ParseConfig, KnowsNoContinuationLines) { EXPECT_FALSE(parse("in a \\\nb c\n").valid); }

TEST(ParseConfig, RefusesOtherNumbersOfWords) {
  for (const char* line : {"in", "in a", "in a b", "in a b c d", "out", "out a b", "out a b c d"}) {
    EXPECT_FALSE(parse(line).valid) << line;
  }
}

TEST(ParseConfig, RefusesACommentBehindARule) {
  EXPECT_FALSE(parse("in a b c # comment\n").valid);
  EXPECT_FALSE(parse("in a b c #\n").valid);
}

TEST(ParseConfig, RefusesOtherFirstWords) {
  for (const char* line : {"IN a b c", "In a b c", "OUT a b c", "inn a b c", "i a b c", "a in b c",
                           "deny a b c", "\xef\xbb\xbfin a b c"}) {
    EXPECT_FALSE(parse(line).valid) << line;
  }
}

TEST(ParseConfig, RefusesALineOfOtherWhiteSpace) {
  EXPECT_FALSE(parse("\f\n").valid);
  EXPECT_FALSE(parse("  \v\n").valid);
}

TEST(ParseConfig, TakesALineThatBeginsWithAZeroByteForBlank) {
  using namespace std::string_literals;
  expect_inbound("\0 whatever stands here is not read\n  \0\nin a b c\n"s, "a|b|c");
}

TEST(ParseConfig, ForgetsWhatTheSetsHeld) {
  RuleSet inbound{{"old", "old", "old"}};
  RuleSet outbound{{"old", "old", "old"}};
  EXPECT_TRUE(parse_config("in a b c\n", inbound, outbound));
  EXPECT_EQ(listed(inbound), Words{"a|b|c"});
  EXPECT_EQ(listed(outbound), Words{});
}

TEST(ParseConfig, ForgetsWhatTheSetsHeldEvenIfTheTextIsBad) {
  RuleSet inbound{{"old", "old", "old"}};
  RuleSet outbound{{"old", "old", "old"}};
  EXPECT_FALSE(parse_config("bad\n", inbound, outbound));
  EXPECT_EQ(listed(inbound), Words{});
  EXPECT_EQ(listed(outbound), Words{});
}

TEST(ParseConfig, KeepsTheRulesAheadOfABadLine) {
  const Parsed parsed = parse("in a b c\nout d e f\nbad line\nin g h i\n");
  EXPECT_FALSE(parsed.valid);
  EXPECT_EQ(parsed.inbound, Words{"a|b|c"});
  EXPECT_EQ(parsed.outbound, Words{"d|e|f"});
}

TEST(ReadRules, TellsTheLineOfEachRule) {
  const std::vector<RuleLine> rules = read_rules("# first\n\nin a b c\r\nout d e f");
  ASSERT_EQ(rules.size(), 2U);
  EXPECT_EQ(rules[0].number, 3U);
  EXPECT_EQ(rules[0].words, (Words{"in", "a", "b", "c"}));
  EXPECT_TRUE(rules[0].is_rule());
  EXPECT_TRUE(rules[0].inbound());
  EXPECT_EQ(rules[1].number, 4U);
  EXPECT_TRUE(rules[1].is_rule());
  EXPECT_FALSE(rules[1].inbound());
}

TEST(ReadRules, KeepsRulesThatAreThereTwice) {
  EXPECT_EQ(read_rules("in a b c\nin a b c\n").size(), 2U);
}

TEST(ReadRules, EndsWithTheFirstLineThatIsNoRule) {
  const std::vector<RuleLine> rules = read_rules("in a b c\nin a b\nin a b c\n");
  ASSERT_EQ(rules.size(), 2U);
  EXPECT_EQ(rules[1].number, 2U);
  EXPECT_EQ(rules[1].words, (Words{"in", "a", "b"}));
  EXPECT_FALSE(rules[1].is_rule());
}

TEST(ReadRules, FindsALineOfOtherWhiteSpaceWithoutWords) {
  const std::vector<RuleLine> rules = read_rules("\v\n");
  ASSERT_EQ(rules.size(), 1U);
  EXPECT_EQ(rules[0].words, Words{});
  EXPECT_FALSE(rules[0].is_rule());
}

TEST(RuleMatch, WantsAllThreePatternsToMatch) {
  const RuleSet rules = rules_of("in a b c\n");
  EXPECT_TRUE(rule_match("a", "b", "c", rules));
  EXPECT_FALSE(rule_match("x", "b", "c", rules));
  EXPECT_FALSE(rule_match("a", "x", "c", rules));
  EXPECT_FALSE(rule_match("a", "b", "x", rules));
}

TEST(RuleMatch, WantsAnyOneRuleToMatch) {
  const RuleSet rules = rules_of("in a b c\nin d e f\n");
  EXPECT_TRUE(rule_match("a", "b", "c", rules));
  EXPECT_TRUE(rule_match("d", "e", "f", rules));
  EXPECT_FALSE(rule_match("a", "e", "f", rules));
}

TEST(RuleMatch, RefusesEverythingWithoutRules) { EXPECT_FALSE(rule_match("a", "b", "c", {})); }

TEST(RuleMatch, LetsStarsPassEverything) {
  const RuleSet rules = rules_of("in * * *\n");
  EXPECT_TRUE(rule_match("a", "*", "c", rules));
  EXPECT_TRUE(rule_match("", "", "", rules));
}

TEST(RuleMatch, PassesAnEmptyTextByStarsAlone) {
  EXPECT_TRUE(rule_match("", "b", "c", rules_of("in *** b c\n")));
  EXPECT_FALSE(rule_match("", "b", "c", rules_of("in *a b c\nin \\* b c\nin a b c\n")));
}

TEST(RuleMatch, ForANameDoesNotAdmitABroadcast) {
  const RuleSet rules = rules_of("in * display status.*\n");
  EXPECT_TRUE(rule_match("anyone", "display", "status.ink", rules));
  EXPECT_FALSE(rule_match("anyone", "*", "status.ink", rules));
  EXPECT_FALSE(rule_match("anyone", "display", "status", rules));
}

TEST(RuleMatch, ForAnEscapedStarAdmitsABroadcastOnly) {
  const RuleSet rules = rules_of("in * \\* alarm\n");
  EXPECT_TRUE(rule_match("anyone", "*", "alarm", rules));
  EXPECT_FALSE(rule_match("anyone", "display", "alarm", rules));
}

TEST(RuleMatch, LooksAtTextsUpToAZeroByte) {
  using namespace std::string_literals;
  const RuleSet rules = rules_of("in a b c\n");
  EXPECT_TRUE(rule_match("a\0x"s, "b\0"s, "c\0\0"s, rules));
  EXPECT_FALSE(rule_match("\0a"s, "b"s, "c"s, rules));
}
