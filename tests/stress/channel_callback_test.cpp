// SPDX-License-Identifier: MIT
// Callbacks that are registered, replaced and removed by many threads while frames come.
#include <atomic>
#include <deque>
#include <mutex>
#include <utility>

#include "ipc/receive.h"
#include "stress/links.h"
#include "stress/stress.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kWorkers = 8;
constexpr int kReceivers = 16;

class Receiver;

// What a callback is registered with. It may be freed when the callback has been
// replaced or removed.
struct Registration {
  Receiver& receiver;
  bool once;  // the callback removes itself
};

// A channel that is sent numbered frames, and whose callback takes one of them a call.
class Receiver {
 public:
  explicit Receiver(Link link) : link_(std::move(link)) {}

  // For any thread.
  void send() {
    const std::lock_guard<std::mutex> lock(sending_);
    EXPECT_TRUE(
        link_.one->write_msg(kId, sent_, std::string(1U + static_cast<unsigned>(sent_) % 50, 'x')));
    ++sent_;
  }
  void set(bool once = false) {
    const std::lock_guard<std::mutex> lock(setting_);
    auto next = std::make_unique<Registration>(Registration{*this, once});
    EXPECT_TRUE(link_.other->set_callback(called, next.get()));
    registration_ = std::move(next);
  }
  // Gives what the channel says.
  bool remove() {
    const std::lock_guard<std::mutex> lock(setting_);
    const bool removed = link_.other->set_callback(nullptr, nullptr);
    registration_.reset();
    return removed;
  }
  // The same, by the end of the channel.
  void end() {
    const std::lock_guard<std::mutex> lock(setting_);
    link_.other.reset();
    registration_.reset();
  }

  [[nodiscard]] bool registered() {
    const std::lock_guard<std::mutex> lock(setting_);
    return registration_ != nullptr;
  }
  [[nodiscard]] int calls() const { return calls_; }
  [[nodiscard]] bool all_came() const {
    return eventually([this] { return calls_ == sent_; }, 20000);
  }
  void expect_nothing_left() const {
    EXPECT_EQ(calls_, sent_);
    EXPECT_FALSE(link_.other->poll_in(0));
    EXPECT_FALSE(link_.other->eof());
    EXPECT_FALSE(link_.other->error());
  }

 private:
  static void called(void* data, IPC* ipc) {
    const Registration& registration = *static_cast<Registration*>(data);
    registration.receiver.take(*ipc);
    if (registration.once) {
      EXPECT_TRUE(ipc->set_callback(nullptr, nullptr));
    }
    ++registration.receiver.calls_;
  }
  void take(IPC& ipc) const {
    const int number = calls_;
    EXPECT_EQ(receive(ipc), std::to_string(number) + ":" +
                                std::string(1 + static_cast<std::size_t>(number) % 50, 'x'));
  }

  std::mutex sending_;
  std::atomic<int> sent_{0};
  std::atomic<int> calls_{0};
  std::mutex setting_;  // no callback takes it
  std::unique_ptr<Registration> registration_;
  Link link_;  // the last member: its end waits for the callback
};

template <typename Links>
class Callbacks : public testing::Test {};
TYPED_TEST_SUITE(Callbacks, KindsOfLinks, LinkName);

}  // namespace

TYPED_TEST(Callbacks, AreCalledOnceForEachFrameHoweverOftenTheyChange) {
  const HangGuard guard;
  TypeParam links;
  std::deque<Receiver> receivers;
  for (int i = 0; i < kReceivers; ++i) receivers.emplace_back(links.make());
  Crew crew(kWorkers, [&](int, Random& random) {
    for (int i = 0; i < amount(2000); ++i) {
      Receiver& receiver = receivers[static_cast<std::size_t>(random.below(kReceivers))];
      const int choice = random.below(8);
      if (choice == 0) receiver.set();
      if (choice == 1) receiver.remove();
      if (choice > 1) receiver.send();
    }
  });
  crew.join();
  for (Receiver& receiver : receivers) {
    receiver.set();
    EXPECT_TRUE(receiver.all_came());
    EXPECT_TRUE(receiver.remove());
    receiver.expect_nothing_left();
  }
}

TYPED_TEST(Callbacks, BringTheLibrarysThreadToLifeWheneverOneIsNeeded) {
  const HangGuard guard;
  TypeParam links;
  std::deque<Receiver> receivers;
  for (int i = 0; i < kWorkers; ++i) receivers.emplace_back(links.make());
  Crew crew(kWorkers, [&](int worker, Random& random) {
    Receiver& receiver = receivers[static_cast<std::size_t>(worker)];
    for (int i = 0; i < amount(300); ++i) {
      const bool once = random.one_in(2);
      if (random.one_in(2)) {
        receiver.set(once);
        receiver.send();
      } else {
        receiver.send();
        receiver.set(once);
      }
      ASSERT_TRUE(receiver.all_came());
      ASSERT_EQ(receiver.remove(), !once);
    }
  });
  crew.join();
  for (const Receiver& receiver : receivers) receiver.expect_nothing_left();
}

TYPED_TEST(Callbacks, HaveEndedWhenTheirChannelIsDeleted) {
  const HangGuard guard;
  TypeParam links;
  std::mutex making;
  std::atomic<int> calls{0};
  Crew crew(kWorkers, [&](int, Random& random) {
    for (int i = 0; i < amount(100); ++i) {
      std::unique_lock<std::mutex> lock(making);
      Receiver receiver(links.make());
      lock.unlock();
      receiver.set();
      const int frames = 1 + random.below(5);
      for (int n = 0; n < frames; ++n) receiver.send();
      // Every other time when there is a callback to wait for.
      if (i % 2 == 0) {
        EXPECT_TRUE(eventually([&] { return receiver.calls() > 0; }));
      }
      receiver.end();
      const int called = receiver.calls();
      EXPECT_LE(called, frames);
      calls += called;
    }
  });
  crew.join();
  EXPECT_GT(calls, 0);
}
