// SPDX-License-Identifier: MIT
#include "notifyserver/rules.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

using zedipc::wildcard_match;

namespace {

// A copy in memory of exactly its size, so that a sanitizer sees a step outside.
class Exact {
 public:
  explicit Exact(const std::string& text) : bytes_(new char[text.size() + 1]) {
    std::memcpy(bytes_.get(), text.c_str(), text.size() + 1);
  }
  [[nodiscard]] const char* text() const { return bytes_.get(); }

 private:
  std::unique_ptr<char[]> bytes_;
};

bool matches(const std::string& pattern, const std::string& text) {
  return wildcard_match(Exact(pattern).text(), Exact(text).text());
}

// The plain meaning of a pattern: each star tries whatever it could stand for.
bool model(const char* pattern, const char* text) {
  if (*pattern == '\0') return *text == '\0';
  if (*pattern == '\\') {
    if (pattern[1] == '\0' || pattern[1] != *text) return false;
    return model(pattern + 2, text + 1);
  }
  if (*pattern != '*') return *pattern == *text && model(pattern + 1, text + 1);
  while (*pattern == '*') ++pattern;
  if (*pattern == '\0') return true;
  for (; *text != '\0'; ++text) {
    if (model(pattern, text)) return true;
  }
  return false;
}

std::string random_text(std::mt19937& random, const std::string& alphabet, std::size_t longest) {
  std::string text(random() % (longest + 1), ' ');
  for (char& byte : text) byte = alphabet[random() % alphabet.size()];
  return text;
}

std::string repeated(const std::string& unit, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += unit;
  return text;
}

}  // namespace

TEST(WildcardMatch, TakesPlainTextLiterally) {
  EXPECT_TRUE(matches("paper.out", "paper.out"));
  EXPECT_FALSE(matches("paper.out", "paper,out"));
  EXPECT_FALSE(matches("paper.out", "Paper.out"));
}

TEST(WildcardMatch, MatchesTheWholeText) {
  EXPECT_FALSE(matches("paper", "paper.out"));
  EXPECT_FALSE(matches("paper.out", "paper"));
  EXPECT_FALSE(matches("out", "paper.out"));
}

TEST(WildcardMatch, AnEmptyPatternMatchesTheEmptyTextOnly) {
  EXPECT_TRUE(matches("", ""));
  EXPECT_FALSE(matches("", "a"));
}

TEST(WildcardMatch, AStarStandsForAnyBytes) {
  EXPECT_TRUE(matches("*", "anything at all"));
  EXPECT_TRUE(matches("a*c", "abbbc"));
  EXPECT_TRUE(matches("a*c", "acacac"));
  EXPECT_FALSE(matches("a*c", "abbb"));
  EXPECT_FALSE(matches("*a", "b"));
}

TEST(WildcardMatch, AStarStandsForNothingToo) {
  EXPECT_TRUE(matches("*", ""));
  EXPECT_TRUE(matches("a*", "a"));
  EXPECT_TRUE(matches("*a", "a"));
  EXPECT_TRUE(matches("a*b", "ab"));
}

TEST(WildcardMatch, SeveralStarsActAsOne) {
  EXPECT_TRUE(matches("**", ""));
  EXPECT_TRUE(matches("***", "abc"));
  EXPECT_TRUE(matches("a**c", "abc"));
  EXPECT_FALSE(matches("a**c", "abd"));
}

TEST(WildcardMatch, AStarGivesBackWhatTheRestNeeds) {
  EXPECT_TRUE(matches("*ab", "aab"));
  EXPECT_TRUE(matches("*ab*cd", "ababxcdcd"));
  EXPECT_FALSE(matches("*ab*cd", "cdab"));
}

TEST(WildcardMatch, ABackslashTakesAStarLiterally) {
  EXPECT_TRUE(matches("\\*", "*"));
  EXPECT_FALSE(matches("\\*", "a"));
  EXPECT_FALSE(matches("\\*", ""));
  EXPECT_FALSE(matches("\\*", "**"));
  EXPECT_TRUE(matches("job\\*done", "job*done"));
  EXPECT_FALSE(matches("job\\*done", "jobdone"));
}

TEST(WildcardMatch, ABackslashTakesABackslashLiterally) {
  EXPECT_TRUE(matches("\\\\", "\\"));
  EXPECT_FALSE(matches("\\\\", "\\\\"));
  EXPECT_TRUE(matches("\\\\*", "\\abc"));
}

TEST(WildcardMatch, ABackslashTakesAnyOtherByteLiterally) {
  EXPECT_TRUE(matches("\\a\\.", "a."));
  EXPECT_FALSE(matches("\\a", "\\a"));
}

TEST(WildcardMatch, HasNoOtherSpecialBytes) {
  EXPECT_FALSE(matches("?", "a"));
  EXPECT_TRUE(matches("?", "?"));
  EXPECT_FALSE(matches("[ab]", "a"));
  EXPECT_TRUE(matches("[ab]", "[ab]"));
}

TEST(WildcardMatch, ComparesBytesOfAnyValue) {
  EXPECT_TRUE(matches("\xff\x80*", "\xff\x80\x01"));
  EXPECT_FALSE(matches("\xff", "\x7f"));
}

TEST(WildcardMatch, APatternThatEndsInABackslashMatchesNothing) {
  for (const char* text : {"", "\\", "a", "*", "a\\", "a\\\\"}) {
    EXPECT_FALSE(matches("\\", text)) << text;
    EXPECT_FALSE(matches("a\\", text)) << text;
    EXPECT_FALSE(matches("*\\", text)) << text;
    EXPECT_FALSE(matches("\\\\\\", text)) << text;
  }
}

TEST(WildcardMatch, AnEscapedBackslashAtTheEndIsNoSingleOne) {
  EXPECT_TRUE(matches("a\\\\", "a\\"));
  EXPECT_TRUE(matches("*\\\\", "aa\\"));
}

TEST(WildcardMatch, AgreesWithItsPlainMeaning) {
  std::mt19937 random(20210430);
  int matched = 0;
  int with_star = 0;
  constexpr int kPairs = 300000;
  for (int i = 0; i < kPairs; ++i) {
    const std::string pattern = random_text(random, "ab**\\", 7);
    const std::string text = random_text(random, "aab*\\", 7);
    const bool expected = model(pattern.c_str(), text.c_str());
    ASSERT_EQ(matches(pattern, text), expected) << pattern << " against " << text;
    if (expected) ++matched;
    if (expected && pattern.find('*') != std::string::npos && text.size() > 2) ++with_star;
  }
  // The pairs hold enough of both answers to mean something.
  EXPECT_GT(matched, kPairs / 100);
  EXPECT_GT(with_star, kPairs / 100);
  EXPECT_LT(matched, kPairs / 2);
}

TEST(WildcardMatch, AgreesWithItsPlainMeaningOnLongerPatterns) {
  std::mt19937 random(1899);
  int matched = 0;
  constexpr int kPairs = 20000;
  for (int i = 0; i < kPairs; ++i) {
    const std::string pattern = random_text(random, "aab***", 16);
    const std::string text = random_text(random, "aaab", 20);
    const bool expected = model(pattern.c_str(), text.c_str());
    ASSERT_EQ(matches(pattern, text), expected) << pattern << " against " << text;
    if (expected) ++matched;
  }
  EXPECT_GT(matched, kPairs / 100);
  EXPECT_LT(matched, kPairs * 9 / 10);
}

// Trying each star against each place in turn would not end before the sun burns out.
TEST(WildcardMatch, EndsOnManyStarsAgainstALongText) {
  const std::string text(5000, 'a');
  EXPECT_FALSE(matches(repeated("a*", 1000) + "b", text));
  EXPECT_FALSE(matches(repeated("*a", 1000) + "b", text));
  EXPECT_FALSE(matches(repeated("*aa", 2000) + "*b*", text));
  EXPECT_TRUE(matches(repeated("a*", 1000) + "b", text + "b"));
  EXPECT_TRUE(matches(repeated("a*", 5000), text));
  EXPECT_FALSE(matches(repeated("a*", 5001), text));
}
