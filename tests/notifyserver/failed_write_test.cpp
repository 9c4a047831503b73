// SPDX-License-Identifier: MIT
// Writes of the server that fail, all within the handling of one message.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "notifyserver/stall.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

namespace {

// The log's lines of level "error" that tell of a failed write.
Lines failures(const ServerProcess& server) {
  Lines result;
  for (const std::string& line : log_messages(server.err(), "error", "NFY")) {
    if (line.find(" failed (") != std::string::npos) result.push_back(line);
  }
  return result;
}

std::string unicast_failure(const std::string& to, const std::string& why) {
  return "NFY:error|handle_client(): delivery of unicast notification 'n' to '" + to +
         "' (ipc=PTR) failed (" + why + ")";
}

std::string broadcast_failure(const std::string& to, const std::string& why) {
  return "NFY:error|handle_client(): broadcast notification 'n' to '" + to +
         "' (ipc=PTR) failed (" + why + ")";
}

}  // namespace

TEST(FailedUnicast, GoesToTheNextBestRow) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer best = join_narrow("t", "n", 9);
  const RawPeer worst = join("t", "n", 3);
  const RawPeer next = join("t", "n", 5);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(bulky(notification("t", "n")));
  wait_for_stall(best);
  break_after_end(best, server.process());
  EXPECT_EQ(next.receive_message(), bulky(notification("t", "n", identity)));
  settle(sender);
  settle(worst);
  EXPECT_EQ(failures(server), (Lines{unicast_failure("t", "EOF")}));
}

TEST(FailedUnicast, TriesOneRowAfterTheOther) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer first = join_narrow("first", "n", 9);
  RawPeer second = join("second", "n", 8);
  RawPeer third = join("third", "n", 7);
  const RawPeer fourth = join("fourth", "n", 6);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(bulky(notification("1", "n")));
  wait_for_stall(first);
  break_after_end(second, server.process());
  break_after_end(third, server.process());
  break_after_end(first, server.process());
  EXPECT_EQ(fourth.receive_message(), bulky(notification("1", "n", identity)));
  EXPECT_EQ(failures(server),
            (Lines{unicast_failure("first", "EOF"), unicast_failure("second", "EOF"),
                   unicast_failure("third", "EOF")}));
}

TEST(FailedUnicast, IsLoggedAsAnErrorWhenTheStreamHasNotEnded) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer narrow = join_narrow("narrow", "n", 9);
  RawPeer broken = join("broken", "n", 8);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(bulky(notification("1", "n")));
  wait_for_stall(narrow);
  break_unnoticed(broken);
  break_unnoticed(narrow);
  EXPECT_EQ(sender.receive_message(), bulky(unicast_error("1", "n", identity)));
  EXPECT_EQ(failures(server),
            (Lines{unicast_failure("narrow", "ERROR"), unicast_failure("broken", "ERROR")}));
}

TEST(FailedUnicast, ComesBackAsAnErrorWhenEveryRowHasFailed) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer first = join_narrow("t", "n", 9);
  RawPeer second = join("t", "n", 1);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(bulky(notification("t", "n")));
  wait_for_stall(first);
  break_after_end(second, server.process());
  break_after_end(first, server.process());
  EXPECT_EQ(sender.receive_message(), bulky(unicast_error("t", "n", identity)));
}

TEST(FailedUnicast, IsNotToldToObservers) {
  ServerProcess server(kErrorsAndNotes);
  const RawPeer observer = join_as_observer();
  RawPeer best = join_narrow("best", "n", 9);
  const RawPeer next = join("next", "n", 1);
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("1", "n")));
  wait_for_stall(best);
  break_after_end(best, server.process());
  settle(sender);
  EXPECT_EQ(observer.receive_message(), observed("next", "n"));
  settle(observer);
}

TEST(FailedUnicast, LooksForTheBestRowAnew) {
  ServerProcess server(kErrorsAndNotes);
  const RawPeer low = join("low", "n", 1);
  const RawPeer middle = join("middle", "n", 5);
  RawPeer high = join_narrow("high", "n", 9);
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("1", "n")));
  wait_for_stall(high);
  break_after_end(high, server.process());
  settle(sender);
  Lines blocked;
  for (const std::string& line : log_messages(server.err(), "note", "NFY")) {
    if (line.find("blocked due") != std::string::npos) blocked.push_back(line);
  }
  const std::string head = "NFY:note|handle_client(): unicast notification 'n' to '";
  EXPECT_EQ(blocked, (Lines{head + "low' (ipc=PTR) blocked due to higher priority 5 (>=5) of "
                                   "'middle' (ipc=PTR)",
                            head + "middle' (ipc=PTR) blocked due to higher priority 9 (>=9) of "
                                   "'high' (ipc=PTR)",
                            head + "low' (ipc=PTR) blocked due to higher priority 5 (>=5) of "
                                   "'middle' (ipc=PTR)"}));
}

TEST(FailedUnicast, PassesOverASessionInErrorStateWithoutAWord) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer narrow = join_narrow("narrow", "n", 9);
  RawPeer broken = join("broken", "n", 8);
  const RawPeer healthy = join("healthy", "n", 1);
  const RawPeer sender = RawPeer::connect();
  const int identity = settle(sender);
  sender.send_message(bulky(notification("1", "n")));
  wait_for_stall(narrow);
  break_noticed(broken, server.process());
  const std::size_t before = server.err().size();
  break_after_end(narrow, server.process());
  EXPECT_EQ(healthy.receive_message(), bulky(notification("1", "n", identity)));
  EXPECT_EQ(failures(server), (Lines{unicast_failure("narrow", "EOF")}));
  EXPECT_EQ(server.err().find("'broken'", before), std::string::npos);
}

TEST(FailedUnicastError, IsLoggedAsSent) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer narrow = join_narrow("narrow", "n", 9);
  RawPeer victim = RawPeer::connect();
  const int identity = settle(victim);
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("1", "n", identity)));
  wait_for_stall(narrow);
  break_after_end(victim, server.process());
  break_after_end(narrow, server.process());
  settle(sender);
  EXPECT_NE(server.err().find("handle_client(): sent unicast error to 'printer'"),
            std::string::npos);
}

TEST(FailedBroadcast, GoesOnWithTheNextRow) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer narrow = join_narrow("narrow", "n");
  RawPeer broken = join("broken", "n");
  const RawPeer healthy = join("healthy", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  break_after_end(broken, server.process());
  break_after_end(narrow, server.process());
  EXPECT_EQ(healthy.receive_message(), bulky(notification("*", "n")));
  EXPECT_EQ(failures(server),
            (Lines{broadcast_failure("narrow", "EOF"), broadcast_failure("broken", "EOF")}));
}

TEST(FailedBroadcast, BringsTheSenderNoMessage) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer narrow = join_narrow("narrow", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  break_after_end(narrow, server.process());
  settle(sender);
  EXPECT_EQ(failures(server), (Lines{broadcast_failure("narrow", "EOF")}));
}

TEST(FailedBroadcast, IsLoggedAsAnErrorWhenTheStreamHasNotEnded) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer narrow = join_narrow("narrow", "n");
  RawPeer broken = join("broken", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  break_unnoticed(broken);
  break_unnoticed(narrow);
  settle(sender);
  EXPECT_EQ(failures(server),
            (Lines{broadcast_failure("narrow", "ERROR"), broadcast_failure("broken", "ERROR")}));
}

TEST(FailedBroadcast, IsTriedOnASessionInErrorState) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer narrow = join_narrow("narrow", "n");
  RawPeer broken = join("broken", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  break_noticed(broken, server.process());
  break_after_end(narrow, server.process());
  settle(sender);
  EXPECT_EQ(failures(server),
            (Lines{broadcast_failure("narrow", "EOF"), broadcast_failure("broken", "ERROR")}));
}

TEST(FailedBroadcast, TellsObserversOfAFurtherRowOfTheSessionOnly) {
  ServerProcess server(kErrorsAndNotes);
  const RawPeer observer = join_as_observer();
  RawPeer narrow = join_narrow("first", "n");
  narrow.send_message(registration("second", "n"));
  settle(narrow);
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  break_after_end(narrow, server.process());
  settle(sender);
  EXPECT_EQ(observer.receive_message(), observed("second", "n"));
  settle(observer);
  EXPECT_EQ(failures(server), (Lines{broadcast_failure("first", "EOF")}));
}

TEST(FailedObserver, IsPassedOverSilently) {
  ServerProcess server(kErrorsAndNotes);
  RawPeer broken = join_as_observer();
  const RawPeer healthy = join_as_observer();
  RawPeer also_broken = join_as_observer();
  RawPeer narrow = join_narrow("narrow", "n");
  const RawPeer target = join("target", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  break_after_end(broken, server.process());
  break_after_end(also_broken, server.process());
  break_after_end(narrow, server.process());
  EXPECT_EQ(target.receive_message(), bulky(notification("*", "n")));
  EXPECT_EQ(healthy.receive_message(), observed("target", "n"));
  settle(sender);
  EXPECT_EQ(failures(server), (Lines{broadcast_failure("narrow", "EOF")}));
}
