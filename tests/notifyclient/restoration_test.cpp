// SPDX-License-Identifier: MIT
// Tables that change while a new connection is told of them: only from inside the client
// can that moment be chosen. The server holds the connection up by not reading it: the
// first registration that it is told of is larger than what the system takes in its stead.
#include <gtest/gtest.h>

#include "delivery_script.h"
#include "notifyclient/client_state.h"
#include "notifyclient/tables.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

using RecordPtr = std::shared_ptr<NotificationRecord>;

RecordPtr make_record(const std::string& to, int priority) {
  return RecordPtr(new NotificationRecord{{nullptr}, to, "n", do_nothing, priority});
}

void put(const RecordPtr& former, const RecordPtr& record) {
  const MutexLock lock(table_lock);
  replace(client.notification_table, former, record);
}

RecordPtr add(const std::string& to, int priority) {
  const RecordPtr record = make_record(to, priority);
  put(nullptr, record);
  return record;
}

class Restoration : public testing::Test {
 protected:
  Restoration() {
    const MutexLock lock(table_lock);
    replace(client.notification_table, {},
            RecordPtr(new NotificationRecord{{nullptr}, "big", much_, do_nothing, 1}));
  }

  // A connection is being made, and waits for the server to read.
  void begin() {
    sender_ = std::make_unique<Task>([] { return say("after"); });
    EXPECT_TRUE(script_.server().connected());
    EXPECT_TRUE(sender_->blocked());
  }

  // It is told these messages, and only then comes into use, for `rest` and a notification in
  // any order.
  void expect_told(const Lines& messages, Lines rest = {}) {
    EXPECT_EQ(script_.next("register"), registration("big", much_, 1));
    for (const std::string& message : messages) {
      EXPECT_EQ(script_.server().receive_message(), message);
    }
    rest.push_back(notification("*", "after"));
    Lines received;
    while (received.size() < rest.size()) received.push_back(script_.server().receive_message());
    std::sort(rest.begin(), rest.end());
    std::sort(received.begin(), received.end());
    EXPECT_EQ(received, rest);
    EXPECT_EQ(sender_->result(), 0);
  }

  Script script_;

 private:
  const std::string much_ = std::string(8U << 20, 'x');
  std::unique_ptr<Task> sender_;
};

}  // namespace

TEST_F(Restoration, TellsOfAllRecordsInOrder) {
  add("b", 2);
  add("a", 1);
  add("b", -3);
  begin();
  expect_told({registration("b", "n", 2), registration("a", "n", 1), registration("b", "n", -3)});
}

TEST_F(Restoration, TellsOfARecordAddedMeanwhile) {
  add("a", 1);
  begin();
  add("b", 2);
  expect_told({registration("a", "n", 1), registration("b", "n", 2)});
}

TEST_F(Restoration, TellsOfAPriorityChangedMeanwhile) {
  const RecordPtr record = add("a", 1);
  begin();
  put(record, make_record("a", 7));
  expect_told({registration("a", "n", 1), registration("a", "n", 7)});
}

TEST_F(Restoration, SaysNothingOfAPriorityThatIsNotTheGroupsLast) {
  const RecordPtr record = add("a", 1);
  add("a", 3);
  begin();
  put(record, make_record("a", 7));
  expect_told({registration("a", "n", 1), registration("a", "n", 3)});
}

TEST_F(Restoration, TellsOfAGroupThatWentMeanwhile) {
  const RecordPtr record = add("a", 1);
  add("b", 2);
  begin();
  put(record, nullptr);
  expect_told({registration("a", "n", 1), registration("b", "n", 2), unregistration("a", "n")});
}

TEST_F(Restoration, TellsOfTheGroupsLastOneWhenItLostOneMeanwhile) {
  add("a", 1);
  const RecordPtr record = add("a", 3);
  begin();
  put(record, nullptr);
  expect_told({registration("a", "n", 1), registration("a", "n", 3), registration("a", "n", 1)});
}

TEST_F(Restoration, SaysNothingOfAGroupThatWentAndCameBack) {
  const RecordPtr record = add("a", 1);
  begin();
  put(record, nullptr);
  add("a", 1);
  expect_told({registration("a", "n", 1)});
}

TEST_F(Restoration, TellsOfObserversThatComeAndGoMeanwhile) {
  begin();
  {
    const MutexLock lock(table_lock);
    replace(client.observer_table, {},
            std::shared_ptr<ObserverRecord>(new ObserverRecord{{nullptr}, ignore_observation}));
  }
  expect_told({kObserverOn});
}

TEST_F(Restoration, ComesAheadOfWhatIsSentBack) {
  add("a", 1);
  begin();
  script_.send(notification("nobody", "unknown"));
  expect_told({registration("a", "n", 1)}, {notification("nobody", "unknown")});
}

TEST_F(Restoration, GoesToAServerThatHasEndedItsStreamAndReadsOn) {
  add("a", 1);
  begin();
  shutdown(script_.server().fd(), SHUT_WR);
  EXPECT_EQ(script_.next("register").substr(0, 17), R"({"notification":")");
  EXPECT_EQ(script_.next("register"), registration("a", "n", 1));
}

TEST_F(Restoration, ThatFailsIsBegunAnew) {
  const RecordPtr record = add("a", 1);
  begin();
  add("b", 2);
  put(record, nullptr);
  script_.server().reset();
  begin();
  expect_told({registration("b", "n", 2)});
}
