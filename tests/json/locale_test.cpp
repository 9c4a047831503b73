// SPDX-License-Identifier: MIT
// Numbers follow the locale that the process has set; the library sets none.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <clocale>
#include <string>

#include "json/texts.h"
#include "support/comma_locale.h"

using zedipc::JSObject;
using namespace zedipc::test;

TEST(Locale, IsNotSetByTheLibrary) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  EXPECT_EQ(read("[1.5,\"x\"]"), (Outcome{9, "[1.5,\"x\"]"}));
  EXPECT_EQ(JSObject("1.5").getNumber(), 1.5);
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), before);
}

TEST(Locale, GivesTheDecimalPointOfAWrittenDouble) {
  const CommaLocale locale;
  if (!locale.installed()) GTEST_SKIP() << kNoLocale;
  EXPECT_EQ(JSObject(1.5).dump(), "1,5");
  EXPECT_EQ(JSObject(100.0).dump(), "100");
}

TEST(Locale, GivesTheDecimalPointOfAString) {
  const CommaLocale locale;
  if (!locale.installed()) GTEST_SKIP() << kNoLocale;
  EXPECT_EQ(JSObject("1,5").getNumber(), 1.5);
  EXPECT_EQ(JSObject("1.5").getNumber(), 1.0);
  EXPECT_TRUE(JSObject("0,5").getBool());
}

TEST(Locale, ReadsAParsedNumberUpToThePointThatItDoesNotKnow) {
  const CommaLocale locale;
  if (!locale.installed()) GTEST_SKIP() << kNoLocale;
  JSObject value;
  EXPECT_EQ(parse(value, "1.5"), 3);
  EXPECT_EQ(value.getNumber(), 1.0);
  EXPECT_EQ(parse(value, "25e-1"), 5);
  EXPECT_EQ(value.getNumber(), 2.5);
}

TEST(Locale, EndsAParsedNumberAtAComma) {
  const CommaLocale locale;
  if (!locale.installed()) GTEST_SKIP() << kNoLocale;
  EXPECT_EQ(read("1,5"), (Outcome{1, "1"}));
  EXPECT_EQ(read("[1,5]"), (Outcome{5, "[1,5]"}));
  EXPECT_EQ(read("[1e,5]"), (Outcome{6, "[1,5]"}));
  EXPECT_EQ(read("[-e,5]"), (Outcome{6, "[0,5]"}));
}
