// SPDX-License-Identifier: MIT
// Threads that register, unregister and notify with a server that drops one connection
// after the other, and is away at times.
#include <zedipc/jsobject.h>

#include <atomic>
#include <map>
#include <memory>

#include "notifyclient/script.h"
#include "stress/stress.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kWorkers = 8;
constexpr int kReturned = 1;  // the flags of what the client has been sent

std::atomic<int> failures{0};  // results that say that there is no connection

// Counts a result, which is one of the two.
bool done(int result) {
  EXPECT_TRUE(result == 0 || result == -1) << result;
  if (result == -1) ++failures;
  return result == 0;
}

// Sends a notification back to the client, and tells it of the delivery. What the client
// has no callback for comes back, and is an error then.
void answer(const RawPeer& client, const std::string& text) {
  JSObject message;
  message.parse(text.c_str());
  if (message("type").getString() != "notify") return;
  if (message("flags").getInt() == kReturned) {
    message("type") = "notify_unicast_error";
    client.send_message(message.dump());
    return;
  }
  message("flags") = kReturned;
  client.send_message(message.dump());
  client.send_message(observation("w", message("notification").getString()));
}

// The server, until the object ends.
class FickleServer {
 public:
  FickleServer() : task_([this] { return serve(); }) {}
  ~FickleServer() { stop_ = true; }
  FickleServer(const FickleServer&) = delete;
  FickleServer& operator=(const FickleServer&) = delete;

  // From now on connections stay.
  void calm_down() { calm_ = true; }
  [[nodiscard]] int drops() const { return drops_; }

 private:
  int serve() {
    Random random(100);
    while (!stop_) {
      {
        const RawListener listener;
        for (int sessions = 1 + random.below(10); sessions > 0 && !stop_;) {
          RawPeer client = listener.accept(20);
          if (!client.connected()) continue;
          --sessions;
          talk(client, random.below(200));
          ++drops_;
          if (random.one_in(2)) client.reset();
        }
      }
      const int before = failures;
      eventually([&] { return failures > before || calm_ || stop_; });
    }
    return 0;
  }

  // Answers so many messages.
  void talk(const RawPeer& client, int messages) {
    while (!stop_ && (calm_ || messages > 0)) {
      if (client.silent(20)) continue;
      const std::string text = client.receive_message();
      if (text == "<eof>") return;
      answer(client, text);
      --messages;
    }
  }

  std::atomic<bool> stop_{false};
  std::atomic<bool> calm_{false};
  std::atomic<int> drops_{0};
  Task task_;  // the last member: it uses the others
};

// What a callback is registered with. It is freed as soon as the client has promised not
// to call the callback any more.
class Target {
 public:
  explicit Target(std::string to) : to_(std::move(to)) {}
  ~Target() {
    EXPECT_EQ(running_, 0);
    total_ += calls_;
  }
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;

  static void notified(void* data, const std::string&, const std::string& to, const std::string&,
                       const JSObject& parameter, unsigned int) {
    auto& target = *static_cast<Target*>(data);
    EXPECT_EQ(to, target.to_);
    EXPECT_EQ(parameter("list")[1].getString(), "two");
    target.count();
  }
  // Of whatever worker.
  static void failed(void* data, const std::string& from, const std::string&, const std::string&,
                     const JSObject& parameter, unsigned int) {
    EXPECT_EQ(from, "f");
    EXPECT_EQ(parameter("list")[1].getString(), "two");
    static_cast<Target*>(data)->count();
  }
  static void observed(void* data, const std::string& from, const std::string&, const std::string&,
                       unsigned int) {
    EXPECT_EQ(from, "f");
    static_cast<Target*>(data)->count();
  }

  [[nodiscard]] int calls() const { return calls_; }
  // All calls of those that were freed.
  static int total() { return total_; }

 private:
  void count() {
    ++running_;
    ++calls_;
    std::this_thread::yield();
    --running_;
  }

  static inline std::atomic<int> total_{0};
  const std::string to_;
  std::atomic<int> running_{0};
  std::atomic<int> calls_{0};
};

// One thread's registrations, all under a name of its own.
class Worker {
 public:
  explicit Worker(int number) : to_("w" + std::to_string(number)) {}

  void do_anything(Random& random) {
    const std::string name = "n" + std::to_string(random.below(3));
    switch (random.below(12)) {
      case 0:
      case 1:
        enter(name, random.below(100));
        break;
      case 2:
        leave(name);
        break;
      case 3:
        observe();
        break;
      case 4:
        observe_no_more();
        break;
      case 5:
        hear_of_errors();
        break;
      case 6:
        hear_no_more();
        break;
      default:
        notify(name);
    }
  }

  void end() {
    while (!targets_.empty()) {
      const std::string name = targets_.begin()->first;
      EXPECT_TRUE(eventually([&] { return leave(name); }));
    }
    observe_no_more();
    hear_no_more();
  }

  // With a server that is well, each notification gives one call.
  void expect_well() {
    constexpr int kCount = 5;
    EXPECT_TRUE(eventually([&] { return enter("last", 1); }));
    const Target& target = *targets_["last"];
    for (int i = 0; i < kCount; ++i) EXPECT_TRUE(notify("last"));
    EXPECT_TRUE(eventually([&] { return target.calls() == kCount; }));
    EXPECT_EQ(ipcUnregisterNotificationCB("last", nullptr, nullptr, to_), 0);
    EXPECT_EQ(target.calls(), kCount);
  }

 private:
  bool enter(const std::string& name, int priority) {
    std::unique_ptr<Target>& target = targets_[name];
    const bool is_new = target == nullptr;
    if (is_new) target = std::make_unique<Target>(to_);
    const bool entered =
        done(ipcRegisterNotificationCB(name, Target::notified, target.get(), priority, to_));
    if (is_new && !entered) targets_.erase(name);
    return entered;
  }

  // After a failure it is not known whether the callback is still there.
  bool leave(const std::string& name) {
    if (!done(ipcUnregisterNotificationCB(name, nullptr, nullptr, to_))) return false;
    targets_.erase(name);
    return true;
  }

  void observe() {
    if (observer_ != nullptr) return;
    observer_ = std::make_unique<Target>("");
    if (!done(ipcRegisterObserver(Target::observed, observer_.get()))) observer_.reset();
  }
  void observe_no_more() {
    if (observer_ == nullptr) return;
    done(ipcUnregisterObserver(Target::observed, observer_.get()));
    observer_.reset();
  }

  void hear_of_errors() {
    if (errors_ != nullptr) return;
    errors_ = std::make_unique<Target>("");
    EXPECT_EQ(ipcRegisterUnicastError(Target::failed, errors_.get()), 0);
  }
  void hear_no_more() {
    if (errors_ == nullptr) return;
    EXPECT_EQ(ipcUnregisterUnicastError(Target::failed, errors_.get()), 0);
    errors_.reset();
  }

  bool notify(const std::string& name) const {
    JSObject parameter;
    parameter("list")[1] = "two";
    return done(ipcNotify(to_, name, parameter, 0, "f"));
  }

  const std::string to_;
  std::map<std::string, std::unique_ptr<Target>> targets_;
  std::unique_ptr<Target> observer_;
  std::unique_ptr<Target> errors_;
};

}  // namespace

TEST(Client, KeepsItsPromisesWhileConnectionsComeAndGo) {
  const HangGuard guard;
  FickleServer server;
  {
    Crew crew(kWorkers, [](int number, Random& random) {
      Worker worker(number);
      for (int i = 0; i < amount(3000); ++i) worker.do_anything(random);
      worker.end();
    });
  }
  EXPECT_GT(server.drops(), 0);
  EXPECT_GT(Target::total(), 0);
  server.calm_down();
  // The one connection that may still be on its way out.
  EXPECT_TRUE(eventually([] { return ipcNotify("*", "n", JSObject(), 0, "f") == 0; }));
  Crew crew(kWorkers, [](int number, Random&) {
    Worker worker(number);
    worker.expect_well();
  });
  crew.join();
}
