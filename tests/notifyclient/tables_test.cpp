// SPDX-License-Identifier: MIT
// Keeping the tables in step with a connection that is being made, step by step.
#include <gtest/gtest.h>

#include <zedipc/tcp.h>

#include <optional>

#include "notifyclient/tables.h"
#include "protocol/message.h"
#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

NotificationRecord* new_record(const std::string& to, int priority, const std::string& name = "n") {
  return new NotificationRecord{{}, to, name, do_nothing, nullptr, priority, false};
}

ObserverRecord* new_observer() { return new ObserverRecord{{}, ignore_observation, nullptr}; }

// What a connection is to be told, as the messages for it.
Lines lines(const Restoration::News& news) {
  Lines result;
  for (const auto& [to, name] : news.removed) result.push_back(unregistration(to, name));
  for (const auto& record : news.registered) {
    result.push_back(registration(record.to, record.notification, record.priority));
  }
  if (!news.observer_message.empty()) result.push_back(news.observer_message);
  return result;
}

// Connections that are made one after the other, told of everything or not.
class Connections {
 public:
  // Begins the next one, after the last one's loss.
  void begin() {
    restoration_.reset();
    client.server_ipc = nullptr;
    restoration_.emplace();
  }

  // The next round of news; with none the connection stands.
  Lines tell() {
    Restoration::News news;
    const bool stands = restoration_->publish(&channel_, news);
    EXPECT_EQ(stands, lines(news).empty());
    EXPECT_EQ(stands, client.server_ipc.load() == &channel_);
    return lines(news);
  }

  // Begins the next one and tells it everything.
  void make() {
    begin();
    while (!tell().empty()) {
    }
    restoration_.reset();
  }

  // Ends the attempt.
  void fail() { restoration_.reset(); }

  // The epoch of a message that is sent now, or was sent before the last loss.
  static std::uint32_t epoch() { return client.connection_epoch; }

 private:
  TCP channel_;
  std::optional<Restoration> restoration_;
};

void remove_at(std::size_t index) {
  auto& table = lazy_table(client.notification_table);
  const NotificationRecord* const record = table[index];
  const std::string to = record->to;
  const std::string name = record->notification;
  remove_record(table, index);
  note_removal(to, name);
}

}  // namespace

TEST(Tables, AreMadeAtTheirFirstUse) {
  EXPECT_EQ(client.notification_table.load(), nullptr);
  NotificationTable& table = lazy_table(client.notification_table);
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(&lazy_table(client.notification_table), &table);
}

TEST(Tables, AreTheSameForThreadsThatMakeThemTogether) {
  std::atomic<int> waiting{0};
  std::atomic<NotificationTable*> found[4] = {};
  std::deque<Task> tasks;
  for (auto& table : found) {
    tasks.emplace_back([&] {
      ++waiting;
      while (waiting < 4) std::this_thread::yield();
      table = &lazy_table(client.notification_table);
      return 0;
    });
  }
  for (Task& task : tasks) EXPECT_EQ(task.result(), 0);
  for (const auto& table : found) EXPECT_EQ(table, client.notification_table.load());
}

TEST(Restoration, OfEmptyTablesHasNothingToTell) {
  Connections connections;
  connections.begin();
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, TellsOfAllRecordsInOrder) {
  Connections connections;
  connections.make();
  EXPECT_FALSE(add_record(new_record("b", 2), connections.epoch()));
  EXPECT_FALSE(add_record(new_record("a", 1), connections.epoch()));
  EXPECT_FALSE(add_record(new_record("b", -3), connections.epoch()));
  EXPECT_FALSE(add_record(new_observer(), connections.epoch()));
  connections.begin();
  EXPECT_EQ(connections.tell(), (Lines{registration("b", "n", 2), registration("a", "n", 1),
                                       registration("b", "n", -3), register_observer_text()}));
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, TellsOfARecordAddedMeanwhile) {
  Connections connections;
  connections.make();
  ASSERT_FALSE(add_record(new_record("a", 1), connections.epoch()));
  connections.begin();
  EXPECT_EQ(connections.tell(), Lines{registration("a", "n", 1)});
  EXPECT_FALSE(add_record(new_record("b", 2), connections.epoch()));
  EXPECT_EQ(connections.tell(), Lines{registration("b", "n", 2)});
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, LeavesARecordToItsCallerOnceTheConnectionStands) {
  Connections connections;
  connections.make();
  const std::uint32_t before = connections.epoch();
  connections.make();
  EXPECT_TRUE(add_record(new_record("a", 1), before));
}

TEST(Restoration, TellsOfARecordThatAnotherConnectionWasLeftTo) {
  Connections connections;
  connections.make();
  const std::uint32_t before = connections.epoch();
  connections.make();
  ASSERT_TRUE(add_record(new_record("a", 1), before));
  connections.begin();
  EXPECT_EQ(connections.tell(), Lines{registration("a", "n", 1)});
}

TEST(Restoration, TellsOfAPriorityChangedMeanwhile) {
  Connections connections;
  connections.make();
  NotificationRecord* const record = new_record("a", 1);
  ASSERT_FALSE(add_record(record, connections.epoch()));
  connections.begin();
  EXPECT_EQ(connections.tell(), Lines{registration("a", "n", 1)});
  EXPECT_FALSE(change_priority(*record, 7, connections.epoch()));
  EXPECT_EQ(connections.tell(), Lines{registration("a", "n", 7)});
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, TellsAnewOfAGroupInWhichAPriorityChangedMeanwhile) {
  Connections connections;
  connections.make();
  NotificationRecord* const record = new_record("a", 1);
  ASSERT_FALSE(add_record(record, connections.epoch()));
  ASSERT_FALSE(add_record(new_record("b", 2), connections.epoch()));
  ASSERT_FALSE(add_record(new_record("a", 3), connections.epoch()));
  connections.begin();
  EXPECT_EQ(connections.tell().size(), 3U);
  EXPECT_FALSE(change_priority(*record, 7, connections.epoch()));
  EXPECT_EQ(connections.tell(), (Lines{registration("a", "n", 7), registration("a", "n", 3)}));
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, LeavesAPriorityToItsCallerOnceTheConnectionStands) {
  Connections connections;
  connections.make();
  NotificationRecord* const record = new_record("a", 1);
  ASSERT_FALSE(add_record(record, connections.epoch()));
  const std::uint32_t before = connections.epoch();
  connections.make();
  EXPECT_TRUE(change_priority(*record, 7, before));
  EXPECT_FALSE(change_priority(*record, 8, connections.epoch()));
}

TEST(Restoration, TellsOfAGroupThatWentMeanwhile) {
  Connections connections;
  connections.make();
  ASSERT_FALSE(add_record(new_record("a", 1), connections.epoch()));
  ASSERT_FALSE(add_record(new_record("b", 2), connections.epoch()));
  connections.begin();
  EXPECT_EQ(connections.tell(), (Lines{registration("a", "n", 1), registration("b", "n", 2)}));
  remove_at(0);
  EXPECT_EQ(connections.tell(), Lines{unregistration("a", "n")});
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, TellsAnewOfAGroupThatLostOneMeanwhile) {
  Connections connections;
  connections.make();
  ASSERT_FALSE(add_record(new_record("a", 1), connections.epoch()));
  ASSERT_FALSE(add_record(new_record("b", 2), connections.epoch()));
  ASSERT_FALSE(add_record(new_record("a", 3), connections.epoch()));
  connections.begin();
  EXPECT_EQ(connections.tell().size(), 3U);
  remove_at(2);
  EXPECT_EQ(connections.tell(), Lines{registration("a", "n", 1)});
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, TellsOfAGroupThatWentAndCameBack) {
  Connections connections;
  connections.make();
  ASSERT_FALSE(add_record(new_record("a", 1), connections.epoch()));
  const std::uint32_t before = connections.epoch();
  connections.begin();
  EXPECT_EQ(connections.tell(), Lines{registration("a", "n", 1)});
  remove_at(0);
  EXPECT_FALSE(add_record(new_record("a", 5), before));
  EXPECT_EQ(connections.tell(), (Lines{unregistration("a", "n"), registration("a", "n", 5)}));
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, TellsOfObserversThatComeAndGoMeanwhile) {
  Connections connections;
  connections.make();
  auto& table = lazy_table(client.observer_table);
  connections.begin();
  ASSERT_FALSE(add_record(new_observer(), connections.epoch()));
  EXPECT_EQ(connections.tell(), Lines{register_observer_text()});
  ASSERT_FALSE(add_record(new_observer(), connections.epoch()));
  remove_record(table, 0);
  remove_record(table, 0);
  EXPECT_EQ(connections.tell(), Lines{unregister_observer_text()});
  ASSERT_FALSE(add_record(new_observer(), connections.epoch()));
  EXPECT_EQ(connections.tell(), Lines{register_observer_text()});
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, LeavesAnObserverToItsCallerOnceTheConnectionStands) {
  Connections connections;
  connections.make();
  const std::uint32_t before = connections.epoch();
  connections.make();
  EXPECT_TRUE(add_record(new_observer(), before));
}

TEST(Restoration, BeginsAnewAfterAFailedOne) {
  Connections connections;
  connections.make();
  ASSERT_FALSE(add_record(new_record("a", 1), connections.epoch()));
  ASSERT_FALSE(add_record(new_record("b", 2), connections.epoch()));
  ASSERT_FALSE(add_record(new_observer(), connections.epoch()));
  connections.begin();
  EXPECT_EQ(connections.tell().size(), 3U);
  remove_at(0);
  connections.fail();
  connections.begin();
  EXPECT_EQ(connections.tell(), (Lines{registration("b", "n", 2), register_observer_text()}));
  EXPECT_EQ(connections.tell(), Lines{});
}

TEST(Restoration, TellsOfARecordAddedAfterAFailedOne) {
  Connections connections;
  connections.make();
  const std::uint32_t before = connections.epoch();
  connections.begin();
  connections.fail();
  EXPECT_FALSE(add_record(new_record("a", 1), before));
  connections.begin();
  EXPECT_EQ(connections.tell(), Lines{registration("a", "n", 1)});
}
