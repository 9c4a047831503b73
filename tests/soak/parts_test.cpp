// SPDX-License-Identifier: MIT
// The small parts of a soak run.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "soak/arguments.h"
#include "soak/event.h"
#include "soak/growth.h"
#include "soak/rounds.h"
#include "soak/table.h"

using namespace zedipc::soak;

namespace {

std::string problem_of(const std::vector<std::string>& arguments) {
  Options options;
  return read_arguments(arguments, options);
}

Totals good_totals() {
  Totals totals;
  totals.outcomes = {{Verdict::kDelivered, 900},
                     {Verdict::kReturned, 10},
                     {Verdict::kReported, 80},
                     {Verdict::kLostServer, 10}};
  totals.demanded = 500;
  totals.free = 50;
  totals.observed = 1000;
  return totals;
}

}  // namespace

TEST(SoakEvent, ComesBackFromItsLine) {
  const Event event{Event::kReceived, 123456789012, 7, make_id(7, 42), {"pool", "n", 1}, -3, 0};
  const auto read = parse_line(to_line(event), 7);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->kind, event.kind);
  EXPECT_EQ(read->time, event.time);
  EXPECT_EQ(read->life, event.life);
  EXPECT_EQ(read->id, event.id);
  EXPECT_EQ(read->record, event.record);
  EXPECT_EQ(read->value, event.value);
}

TEST(SoakEvent, IsNotWhatAnotherLineSays) {
  EXPECT_FALSE(parse_line("==1==ERROR: AddressSanitizer: heap-use-after-free", 1));
  EXPECT_FALSE(parse_line("received 12", 1));
  EXPECT_FALSE(parse_line("taken 1 2 a b 0 0", 1));
}

TEST(SoakRounds, EndWhenAllLiveClientsMadeATripWithinThem) {
  Rounds rounds;
  rounds.joined(1, 100);
  rounds.joined(2, 100);
  rounds.trip(1, 110, 120);
  EXPECT_EQ(rounds.after(100, 1), kNever);
  rounds.trip(2, 90, 125);  // began before the round
  EXPECT_EQ(rounds.after(100, 1), kNever);
  rounds.trip(2, 110, 130);
  EXPECT_EQ(rounds.after(100, 1), 130);
}

TEST(SoakRounds, DoNotWaitForTheDead) {
  Rounds rounds;
  rounds.joined(1, 100);
  rounds.joined(2, 100);
  rounds.trip(1, 110, 120);
  rounds.left(2, 140);
  EXPECT_EQ(rounds.after(100, 1), 140);
}

TEST(SoakRounds, CountFromTheFirstThatBeganAfterwards) {
  Rounds rounds;
  rounds.joined(1, 100);
  for (Time time = 100; time < 500; time += 100) rounds.trip(1, time, time + 100);
  EXPECT_EQ(rounds.after(150, 1), 300);
  EXPECT_EQ(rounds.after(150, 3), 500);
  EXPECT_EQ(rounds.after(150, 4), kNever);
}

TEST(SoakGrowth, IsAnyDescriptorOrThreadMore) {
  EXPECT_EQ(growth({24, 21, 2000}, {24, 21, 2000}, true).size(), 0U);
  EXPECT_EQ(growth({24, 21, 2000}, {25, 21, 2000}, true).size(), 1U);
  EXPECT_EQ(growth({24, 21, 2000}, {24, 22, 2000}, true).size(), 1U);
}

TEST(SoakGrowth, IsMoreMemoryThanAnAllocatorSettlesWith) {
  EXPECT_EQ(growth({24, 21, 2000}, {24, 21, 2200 + kMemorySlack}, true).size(), 0U);
  EXPECT_EQ(growth({24, 21, 2000}, {24, 21, 2201 + kMemorySlack}, true).size(), 1U);
}

TEST(SoakGrowth, IsNotOfMemoryWhereThatIsNotJudged) {
  EXPECT_EQ(growth({24, 21, 2000}, {24, 21, 90000}, false).size(), 0U);
  EXPECT_EQ(growth({24, 21, 2000}, {25, 21, 90000}, false).size(), 1U);
}

TEST(SoakGrowth, TakesTheMedianOfAMoment) {
  EXPECT_EQ(typical({{9, 1, 100}, {3, 1, 300}, {4, 1, 200}}).descriptors, 4);
  EXPECT_EQ(typical({{9, 1, 100}, {3, 1, 300}, {4, 1, 200}}).memory, 200);
}

TEST(SoakTotals, AreEnoughWhenMostIsKnown) { EXPECT_EQ(shortcomings(good_totals()).size(), 0U); }

TEST(SoakTotals, AreTooLittleWhenMuchIsLost) {
  Totals totals = good_totals();
  totals.outcomes[Verdict::kLostReceiver] = 100;
  EXPECT_EQ(shortcomings(totals),
            std::vector<std::string>{"more than a twentieth of the unicasts were lost"});
}

TEST(SoakTotals, AreEnoughWhenTheSystemTakesLongToEndWhatIsKilled) {
  Totals totals = good_totals();
  totals.outcomes[Verdict::kSentToDying] = 2000;
  EXPECT_EQ(shortcomings(totals).size(), 0U);
}

TEST(SoakTotals, AreTooLittleWhenBroadcastsOweNothing) {
  Totals totals = good_totals();
  totals.free = totals.demanded;
  EXPECT_EQ(shortcomings(totals).size(), 1U);
}

TEST(SoakTotals, AreTooLittleWhenNothingHappened) { EXPECT_FALSE(shortcomings(Totals()).empty()); }

TEST(SoakArguments, AreSecondsAndASeed) {
  Options options;
  EXPECT_EQ(read_arguments({"60", "17"}, options), "");
  EXPECT_EQ(options.seconds, 60);
  EXPECT_EQ(options.seed, 17U);
}

TEST(SoakArguments, AreRefusedWithAReason) {
  EXPECT_EQ(problem_of({"ten"}), "'ten' is no number of seconds from 20 to 7200");
  EXPECT_EQ(problem_of({"19"}), "'19' is no number of seconds from 20 to 7200");
  EXPECT_EQ(problem_of({"60s"}), "'60s' is no number of seconds from 20 to 7200");
  EXPECT_EQ(problem_of({"60", "-1"}), "'-1' is no seed, which is a number from 0 to 4294967295");
  EXPECT_EQ(problem_of({"60", "1", "2"}), "too many arguments");
}
