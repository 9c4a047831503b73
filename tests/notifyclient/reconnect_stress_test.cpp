// SPDX-License-Identifier: MIT
// Threads that register, unregister and notify while the server drops one connection
// after the other. When all is quiet, the server of the last connection knows exactly
// what stands in the client's tables.
#include <gtest/gtest.h>

#include <zedipc/jsobject.h>

#include <map>
#include <random>

#include "notifyclient/client_state.h"
#include "script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kDrops = 60;
constexpr int kWorkers = 4;

// What a server knows of a client.
struct Knowledge {
  std::map<std::pair<std::string, std::string>, int> priorities;
  bool observer = false;

  bool operator==(const Knowledge& other) const {
    return priorities == other.priorities && observer == other.observer;
  }

  void learn(JSObject& message) {
    const std::string type = message("type").getString();
    const std::pair<std::string, std::string> group(message("to").getString(),
                                                    message("notification").getString());
    if (type == "register") priorities[group] = message("priority").getInt();
    if (type == "unregister") priorities.erase(group);
    if (type == "register_observer") observer = true;
    if (type == "unregister_observer") observer = false;
  }
};

void PrintTo(const Knowledge& knowledge, std::ostream* out) {
  for (const auto& [group, priority] : knowledge.priorities) {
    *out << group.first << "/" << group.second << "=" << priority << " ";
  }
  *out << (knowledge.observer ? "observer" : "no observer");
}

// The client's tables. Each group has one record at most.
Knowledge tables() {
  const MutexLock lock(table_lock);
  Knowledge result;
  for (const auto& record : client.notification_table.records) {
    result.priorities[{record->to, record->notification}] = record->priority;
  }
  result.observer = !client.observer_table.records.empty();
  return result;
}

// One server after the other, each with what it was told.
class Servers {
 public:
  explicit Servers(const RawListener& listener) : listener_(listener) {}

  // Takes messages up to the one with this name; false if the connection ends first.
  bool learn_until(const std::string& name) {
    for (;;) {
      const std::string text = peer_.receive_message();
      if (text == "<eof>" || text == "<timeout>") return false;
      JSObject message;
      message.parse(text.c_str());
      knowledge_.learn(message);
      if (message("notification").getString() == name) return true;
    }
  }

  void learn(int messages) {
    for (int i = 0; i < messages; ++i) {
      if (peer_.silent(50) || peer_.receive_message() == "<eof>") return;
    }
  }

  void accept() {
    peer_ = RawPeer();
    RawPeer next = listener_.accept(20000);
    EXPECT_TRUE(next.connected());
    peer_ = std::move(next);
    knowledge_ = Knowledge();
  }

  // Ends the connection in one way or another.
  void drop(bool hard) {
    if (hard) peer_.reset();
    peer_.close();
  }

  RawPeer& peer() { return peer_; }
  [[nodiscard]] const Knowledge& knowledge() const { return knowledge_; }

 private:
  const RawListener& listener_;
  RawPeer peer_;
  Knowledge knowledge_;
};

// Works with groups of its own until it is told to stop.
int work(int worker, const std::atomic<bool>& stop) {
  std::minstd_rand random(static_cast<unsigned>(worker) + 1);
  const auto choice = [&](unsigned n) { return static_cast<unsigned>(random()) % n; };
  const std::string to = "worker" + std::to_string(worker);
  while (!stop) {
    const std::string name = "n" + std::to_string(choice(5));
    switch (choice(8)) {
      case 0:
      case 1:
      case 2:
        ipcRegisterNotificationCB(name, do_nothing, nullptr, static_cast<int>(choice(100)), to);
        break;
      case 3:
      case 4:
        ipcUnregisterNotificationCB(name, nullptr, nullptr, to);
        break;
      case 5:
        ipcRegisterObserver(ignore_observation, nullptr);
        break;
      case 6:
        ipcUnregisterObserver(nullptr, nullptr);
        break;
      default:
        ipcNotify(to, name, JSObject(1), 0, to);
    }
  }
  return 0;
}

}  // namespace

TEST(ReconnectStress, LeavesTheServerWithTheClientsTables) {
  const RawListener listener;
  Servers servers(listener);
  std::atomic<bool> stop{false};
  std::deque<Task> tasks;
  for (int i = 0; i < kWorkers; ++i) tasks.emplace_back([i, &stop] { return work(i, stop); });

  std::minstd_rand random(17);
  for (int i = 0; i < kDrops; ++i) {
    servers.accept();
    // Some messages for the callbacks, and a different moment for each end.
    for (int n = 0; n < 5; ++n) servers.peer().send_message(notification("*", "n1"));
    servers.learn(static_cast<int>(random() % 40));
    servers.drop(i % 3 != 0);
  }

  // The last connection stays. Its server listens while the workers come to an end.
  servers.accept();
  ASSERT_TRUE(servers.learn_until("n1"));
  stop = true;
  Task end([&] {
    for (Task& task : tasks) task.result();
    return ipcNotify("*", "end", JSObject(), 0, "f");
  });
  ASSERT_TRUE(servers.learn_until("end"));
  EXPECT_EQ(end.result(), 0);
  EXPECT_EQ(servers.knowledge(), tables());
  expect_no_connection(listener);
}
