// SPDX-License-Identifier: MIT
// The rows that say who receives what.
#include "notifyserver/registration_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <zedipc/tcp.h>

using namespace zedipc;

namespace {

using Names = std::vector<std::string>;

// The rows' names, in order.
Names names(const RegistrationTable& table) {
  Names result;
  for (const Registration& row : table.rows()) {
    if (row.ipc != nullptr) result.push_back(row.notification);
  }
  return result;
}

class Table : public testing::Test {
 protected:
  void add(const std::string& notification, IPC& ipc, bool remote = false) {
    table_.add({"to", notification, 0, &ipc, remote});
  }
  bool remove(const std::string& notification, IPC& ipc) {
    Registration* const row = table_.find("to", notification, &ipc);
    if (row != nullptr) table_.remove(*row);
    return row != nullptr;
  }

  TCP one_;
  TCP other_;
  RegistrationTable table_;
};

}  // namespace

TEST_F(Table, BeginsEmpty) {
  EXPECT_TRUE(table_.empty());
  EXPECT_EQ(table_.find("to", "n", &one_), nullptr);
  EXPECT_EQ(table_.remote_rows(), 0);
}

TEST_F(Table, FindsARowByItsThreeParts) {
  table_.add({"to", "n", 3, &one_, false});
  ASSERT_NE(table_.find("to", "n", &one_), nullptr);
  EXPECT_EQ(table_.find("to", "n", &one_)->priority, 3);
  EXPECT_EQ(table_.find("n", "to", &one_), nullptr);
  EXPECT_EQ(table_.find("to", "n", &other_), nullptr);
  EXPECT_EQ(table_.find("", "ton", &one_), nullptr);
}

TEST_F(Table, KeepsTheOrderInWhichRowsCame) {
  for (const char* name : {"d", "a", "c", "b", "e"}) add(name, one_);
  EXPECT_EQ(names(table_), (Names{"d", "a", "c", "b", "e"}));
  EXPECT_TRUE(remove("a", one_));
  EXPECT_EQ(names(table_), (Names{"d", "c", "b", "e"}));
  EXPECT_TRUE(remove("d", one_));
  EXPECT_TRUE(remove("b", one_));
  add("a", one_);
  EXPECT_EQ(names(table_), (Names{"c", "e", "a"}));
  EXPECT_FALSE(remove("d", one_));
}

TEST_F(Table, LosesTheRowsOfASession) {
  add("a", one_);
  add("a", other_);
  add("b", one_);
  table_.remove_session(&one_);
  EXPECT_EQ(names(table_), Names{"a"});
  EXPECT_NE(table_.find("to", "a", &other_), nullptr);
  EXPECT_EQ(table_.find("to", "a", &one_), nullptr);
  table_.remove_session(&other_);
  EXPECT_TRUE(table_.empty());
}

TEST_F(Table, CountsTheRowsOfRemoteSessions) {
  add("a", one_, true);
  add("b", one_, true);
  add("a", other_);
  EXPECT_EQ(table_.remote_rows(), 2);
  remove("a", one_);
  EXPECT_EQ(table_.remote_rows(), 1);
  table_.remove_session(&one_);
  EXPECT_EQ(table_.remote_rows(), 0);
}

TEST_F(Table, HasFewerRemovedRowsThanOthers) {
  for (int i = 0; i < 1000; ++i) add(std::to_string(i), one_);
  for (int i = 0; i < 999; ++i) EXPECT_TRUE(remove(std::to_string(i), one_));
  EXPECT_EQ(names(table_), Names{"999"});
  EXPECT_LE(table_.rows().size(), 2U);
}

// Any adding and removing leaves what a plain list has after it.
TEST_F(Table, IsLikeAPlainList) {
  std::mt19937 random(1);
  std::vector<std::pair<std::string, IPC*>> model;
  for (int step = 0; step < 20000; ++step) {
    const std::string name = std::to_string(random() % 50);
    IPC* const ipc = random() % 2 == 0 ? &one_ : &other_;
    const auto same = std::find(model.begin(), model.end(), std::make_pair(name, ipc));
    Registration* const row = table_.find("to", name, ipc);
    ASSERT_EQ(row != nullptr, same != model.end());
    if (random() % 500 == 0) {
      table_.remove_session(ipc);
      model.erase(std::remove_if(model.begin(), model.end(),
                                 [&](const auto& entry) { return entry.second == ipc; }),
                  model.end());
    } else if (row == nullptr) {
      add(name, *ipc);
      model.emplace_back(name, ipc);
    } else if (random() % 2 == 0) {
      table_.remove(*row);
      model.erase(same);
    }
    Names expected;
    for (const auto& entry : model) expected.push_back(entry.first);
    ASSERT_EQ(names(table_), expected);
    ASSERT_EQ(table_.empty(), model.empty());
  }
}
