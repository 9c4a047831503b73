// SPDX-License-Identifier: MIT
// Callbacks that are registered, replaced and removed by many threads while frames come.
#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <thread>
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
  // With room for a frame of each worker left.
  [[nodiscard]] bool full() const { return sent_ - calls_ > 50; }
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
      // One that is full is not left without a callback: all workers might wait to send to it.
      if (choice == 0 || receiver.full()) {
        receiver.set();
      } else if (choice == 1) {
        receiver.remove();
      } else {
        receiver.send();
      }
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

// ---- Connections that come to a channel with a callback while others have input

namespace {

// A channel that is connected again and again, and what its callback has seen of it.
class Reconnected {
 public:
  // Each peer that `listener` accepts is sent a frame at once, and the callback that takes it
  // has to find the peer's address.
  template <typename Channel, typename Connect>
  static void expect_addresses(Channel& listener, const Connect& connect) {
    constexpr int kConnections = amount(500);
    const HangGuard guard;
    AdoptedPair busy;
    EXPECT_TRUE(busy.other.write("x", 1));
    ASSERT_TRUE(busy.one.set_callback(take_long_and_leave_it, nullptr));
    Crew peer(1, [&](int, Random&) {
      Session latest;
      for (int i = 0; i < kConnections; ++i) {
        // The one before ends later: its end would be told instead of the frame.
        Session session(listener.accept(10000));
        ASSERT_NE(session, nullptr);
        ASSERT_TRUE(session->write_msg(kId, i, "x", 1));
        latest.swap(session);
        if (session != nullptr) {
          EXPECT_TRUE(session->poll_in(10000)) << "the channel has closed it";
        }
      }
      EXPECT_TRUE(latest->poll_in(10000));
    });
    Reconnected seen;
    {
      Channel channel;
      ASSERT_TRUE(channel.set_callback(called, &seen));
      for (int i = 0; i < kConnections; ++i) {
        ASSERT_TRUE(connect(channel));
        // Its own closing of the connection before may have been told as an end.
        ASSERT_TRUE(channel.set_callback(called, &seen));
        ASSERT_TRUE(eventually([&] { return seen.frames_ > i; }));
        EXPECT_NE(seen.address_, "");
        EXPECT_EQ(seen.address_, channel.remote_addr());
      }
    }
  }

 private:
  // Called in each pass, and holds up everybody who waits for the dispatcher.
  static void take_long_and_leave_it(void* /*data*/, IPC* ipc) {
    char nothing;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(ipc->read(&nothing, 0, 0), 0);
  }
  static void called(void* data, IPC* ipc) {
    auto& seen = *static_cast<Reconnected*>(data);
    if (ipc->eof()) return;
    seen.address_ = ipc->remote_addr();
    EXPECT_NE(receive(*ipc), "false");
    ++seen.frames_;
  }

  std::string address_;
  std::atomic<int> frames_{0};
};

}  // namespace

TEST(Reconnections, OfAPipeShowTheirAddressInTheCallback) {
  ListeningPipe listening;
  Reconnected::expect_addresses(
      listening.channel, [&](Pipe& channel) { return channel.connect(listening.name.c_str()); });
}

TEST(Reconnections, OfTcpShowTheirAddressInTheCallback) {
  Listening listening;
  const unsigned short port = port_in(listening.channel.local_addr());
  Reconnected::expect_addresses(listening.channel,
                                [&](TCP& channel) { return channel.connect("127.0.0.1", port); });
}
