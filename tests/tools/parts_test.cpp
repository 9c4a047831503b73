// SPDX-License-Identifier: MIT
// Parts of the command that are easier to try alone.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <random>
#include <string>

#include "tools/strict_json.h"
#include "zedipc/statistics.h"
#include "zedipc/text.h"
#include "zedipc/traffic.h"

using namespace command;
using command::test::StrictJson;

namespace {

Message delivery(const std::string& notification, const std::string& from) {
  Message message;
  message.notification = notification;
  message.from = from;
  message.to = "display";
  return message;
}

bool has_control(const std::string& text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return true;
  }
  return false;
}

// Where a row of a table has its notification.
std::string notification_of(const std::string& row) { return row.substr(42, 5); }

}  // namespace

TEST(Text, OfAnyBytesBecomesValidJson) {
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    std::string bytes(random() % 12, '\0');
    // Often bytes that begin or continue a character.
    for (char& byte : bytes) {
      byte = static_cast<char>(random() % 3 == 0 ? random() : 0x80 + random() % 0x80);
    }
    zedipc::JSObject value;
    value(bytes) = bytes;
    value("n")[1] = 1e308 * (random() % 2 == 0 ? 10.0 : -10.0);
    const std::string json = valid_json(value.dump());
    ASSERT_TRUE(StrictJson::is_valid(json)) << json;
    ASSERT_FALSE(has_control(printable(bytes)));
  }
}

TEST(Text, ThatIsUtf8StaysAsItIs) {
  const std::string text = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(printable(text), text);
  EXPECT_EQ(valid_json("\"" + text + "\""), "\"" + text + "\"");
}

TEST(Text, ThatHidesOrTurnsWritingBecomesEscapes) {
  EXPECT_EQ(printable("\xE2\x80\xAE\xE2\x81\xA6\xEF\xBB\xBF\xF3\xA0\x81\x81\xC2\xAD"),
            "\\u202e\\u2066\\ufeff\\U000e0041\\u00ad");
}

TEST(Text, IsCutBetweenCharacters) {
  EXPECT_EQ(clipped("a\xC3\xA4"
                    "b",
                    2),
            "a\xC3\xA4");
  EXPECT_EQ(clipped("ab", 2), "ab");
  EXPECT_EQ(width("a\xC3\xA4"), 2U);
}

TEST(RoundTrips, HaveNoSummaryWithoutOne) { EXPECT_EQ(RoundTrips().summary(), ""); }

TEST(RoundTrips, GiveTheMiddleOfTwoAsTheirMedian) {
  RoundTrips trips;
  for (const double time : {4.0, 1.0}) trips.add(time);
  EXPECT_EQ(trips.summary(), "round trip min/median/p99/max = 1.000/2.500/4.000/4.000 ms");
}

TEST(RoundTrips, LeaveOneOfAHundredOutOfTheP99) {
  RoundTrips trips;
  for (int i = 100; i > 0; --i) trips.add(i);
  EXPECT_EQ(trips.summary(), "round trip min/median/p99/max = 1.000/50.500/99.000/100.000 ms");
}

TEST(Traffic, IsSortedAsAskedFor) {
  Traffic traffic;
  for (const char* name : {"mmmmm", "mmmmm", "aaaaa", "aaaaa", "aaaaa"}) {
    traffic.add(delivery(name, "p"));
  }
  traffic.end_interval(1);
  traffic.add(delivery("zzzzz", "p"));
  Message late = delivery("mmmmm", "p");
  late.time += std::chrono::seconds(5);
  traffic.add(late);
  traffic.add(delivery("zzzzz", "p"));
  traffic.end_interval(1);
  const auto order = [&](const char* sort) {
    const auto table = traffic.table(sort, 10, 200);
    return notification_of(table.at(2)) + notification_of(table.at(3)) +
           notification_of(table.at(4));
  };
  EXPECT_EQ(order("count"), "aaaaammmmmzzzzz");
  EXPECT_EQ(order("rate"), "zzzzzmmmmmaaaaa");
  EXPECT_EQ(order("time"), "mmmmmaaaaazzzzz");
  EXPECT_EQ(order("name"), "aaaaammmmmzzzzz");
}

TEST(Traffic, ShowsRateAndShare) {
  Traffic traffic;
  for (int i = 0; i < 3; ++i) traffic.add(delivery("a", "p"));
  traffic.add(delivery("b", "p"));
  traffic.end_interval(2);
  const auto table = traffic.table("count", 10, 200);
  EXPECT_EQ(table.at(0), "4 deliveries, 2.0 a second, by count");
  EXPECT_EQ(table.at(2).substr(0, 27), "        3       1.5  75.0% ");
}

TEST(Traffic, CountsWhatIsBeyondItsRowsTogether) {
  Traffic traffic;
  for (int i = 0; i < 10010; ++i) traffic.add(delivery("n", std::to_string(i)));
  const auto table = traffic.table("count", 3, 200);
  EXPECT_TRUE(table.at(2).find("       10 ") == 0) << table.at(2);
  EXPECT_NE(table.at(2).find("(others)"), std::string::npos);
}

TEST(Traffic, FitsTheScreen) {
  Traffic traffic;
  for (int i = 0; i < 50; ++i) traffic.add(delivery(std::string(100, 'x'), std::to_string(i)));
  const auto table = traffic.table("count", 20, 40);
  EXPECT_EQ(table.size(), 20U);
  for (const std::string& line : table) EXPECT_LE(line.size(), 40U);
}

TEST(Traffic, MakesNamesHarmlessForTerminals) {
  Traffic traffic;
  traffic.add(delivery("\033[2J", "\n"));
  const std::string row = traffic.table("count", 10, 200).at(2);
  EXPECT_NE(row.find("\\u001b[2J"), std::string::npos);
  EXPECT_NE(row.find("\\n -> display"), std::string::npos);
}
