// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "harness/board.h"
#include "harness/report.h"
#include "harness/work.h"

namespace bench {

namespace {

constexpr std::size_t kSize = 64;

TEST(Work, IsTakenFromItsName) {
  const Work work = parse_work("broadcast/10/1024");
  EXPECT_EQ(work.kind, Kind::kBroadcast);
  EXPECT_EQ(work.receivers, 10);
  EXPECT_EQ(work.size, 1024U);
}

TEST(Work, HasOneReceiverUnlessItIsABroadcast) {
  EXPECT_EQ(parse_work("unicast_flood/64").receivers, 1);
}

TEST(Work, TellsTcpFromALocalSocket) {
  EXPECT_TRUE(parse_work("round_trip/tcp/64").tcp);
  EXPECT_FALSE(parse_work("round_trip/pipe/64").tcp);
}

TEST(Work, RefusesANameThatStandsForNone) {
  for (const char* name :
       {"", "unicast", "unicast_latency", "unicast_latency/", "unicast_latency/64x",
        "unicast_latency/-64", "unicast_latency/1/64", "broadcast/64", "broadcast/0/64",
        "round_trip/udp/64", "round_trip/64", "idle_wakeups/64", "unicast_flood/99999999"}) {
    EXPECT_THROW(parse_work(name), std::runtime_error) << name;
  }
}

TEST(Board, TellsWhenTheLastMessageHasArrived) {
  Board board(kSize);
  board.expect(2);
  board.arrived(10, kSize);
  board.arrived(20, kSize);
  EXPECT_EQ(board.wait_for_arrivals(), 20);
}

TEST(Board, CountsOnFromBatchToBatch) {
  Board board(kSize);
  for (const Nanoseconds at : {10, 20, 30}) {
    board.expect(1);
    board.arrived(at, kSize);
    EXPECT_EQ(board.wait_for_arrivals(), at);
  }
}

TEST(Board, RefusesAMessageOfTheWrongSize) {
  Board board(kSize);
  board.expect(1);
  board.arrived(10, kSize - 1);
  EXPECT_THROW(board.wait_for_arrivals(), std::runtime_error);
}

TEST(Board, RefusesAMessageTooMany) {
  Board board(kSize);
  board.expect(1);
  board.arrived(10, kSize);
  board.arrived(20, kSize);
  EXPECT_THROW(board.wait_for_arrivals(), std::runtime_error);
  EXPECT_THROW(board.require_no_more(), std::runtime_error);
}

TEST(Board, CountsTheReadyReceivers) {
  Board board(kSize);
  EXPECT_EQ(board.ready_receivers(), 0);
  board.ready();
  EXPECT_EQ(board.ready_receivers(), 1);
}

TEST(Quantile, IsTheValueAtThatPlace) {
  EXPECT_EQ(quantile({5, 1, 4, 2, 3}, 0.5), 3);
  EXPECT_EQ(quantile({5, 1, 4, 2, 3}, 1), 5);
  EXPECT_EQ(quantile({7}, 0.99), 7);
}

}  // namespace

}  // namespace bench
