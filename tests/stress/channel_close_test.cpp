// SPDX-License-Identifier: MIT
// Channels that are closed while other threads use them, and channels that callbacks
// delete.
#include <atomic>
#include <set>
#include <thread>
#include <utility>

#include "stress/links.h"
#include "stress/stress.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// A stream in which each byte tells its position, so that none can be lost, doubled or
// moved.
class Stream {
 public:
  // The bytes that come next, as many as `size`.
  std::string next(std::size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(position_++ % 251);
    return bytes;
  }

 private:
  std::size_t position_ = 0;
};

constexpr int kPiece = 3000;

// One direction of a link. The writer writes until it fails.
class Direction {
 public:
  void write(IPC& channel) {
    while (channel.write(sent_.next(kPiece).data(), kPiece)) {
    }
  }
  // Takes what there is; false at the end.
  bool read(IPC& channel, int timeout_msec) {
    std::string bytes(kPiece, '\0');
    const int count = channel.read(bytes.data(), kPiece, timeout_msec, 0);
    if (count <= 0) return false;
    bytes.resize(static_cast<std::size_t>(count));
    if (bytes != expected_.next(bytes.size())) ADD_FAILURE() << "not what was written";
    received_ += count;
    return true;
  }
  [[nodiscard]] int received() const { return received_; }

 private:
  Stream sent_;
  Stream expected_;
  std::atomic<int> received_{0};
};

// A link that is used in every way at once until both its ends are closed: one end is
// read by its callback, the other by a thread.
class BusyLink {
 public:
  explicit BusyLink(Link link) : link_(std::move(link)) {
    EXPECT_TRUE(link_.one->set_callback(called, this));
  }

  void write_to_other() { there_.write(*link_.one); }
  void write_to_one() { back_.write(*link_.other); }
  void read_other() {
    while (there_.read(*link_.other, -1)) {
    }
  }
  void poll_other() const {
    while (link_.other->getFD() != -1) {
      link_.other->poll_in(1);
      std::this_thread::yield();  // or the lock would hardly be anybody else's
    }
  }
  void close(bool one, int after) {
    while (there_.received() < after && back_.received() < after && !closing_) {
      std::this_thread::yield();
    }
    closing_ = true;
    (one ? link_.one : link_.other)->close();
  }

  void expect_closed() const {
    EXPECT_EQ(link_.one->getFD(), -1);
    EXPECT_EQ(link_.other->getFD(), -1);
    EXPECT_FALSE(link_.one->write("x", 1));
    EXPECT_FALSE(link_.other->write("x", 1));
  }

 private:
  static void called(void* data, IPC* ipc) {
    auto& link = *static_cast<BusyLink*>(data);
    EXPECT_EQ(ipc, link.link_.one.get());
    link.back_.read(*ipc, 0);
  }

  Direction there_;
  Direction back_;
  std::atomic<bool> closing_{false};
  Link link_;  // the last member: its end waits for the callback
};

template <typename Links>
class Closing : public testing::Test {};
TYPED_TEST_SUITE(Closing, KindsOfLinks, LinkName);

constexpr char kGreeting[] = "hello";
constexpr int kGreetingSize = 5;

// Connects until nobody listens any more, and sees every connection end.
void greet(const std::function<Session()>& connect) {
  for (Session session = connect(); session != nullptr; session = connect()) {
    session->write(kGreeting, kGreetingSize);  // which fails if the listener has gone
    char byte;
    EXPECT_EQ(session->read(&byte, 1, 20000), 0);
    EXPECT_TRUE(session->eof() || session->error());
  }
}

// Accepts until the listener is closed.
void take_greetings(IPC& listener, std::atomic<int>& taken) {
  while (listener.getFD() != -1) {
    const Session session(listener.accept(100));
    if (session == nullptr) continue;
    EXPECT_FALSE(session->is_server());
    std::string text(kGreetingSize, '?');
    EXPECT_EQ(session->read(text.data(), kGreetingSize, 20000), kGreetingSize);
    EXPECT_EQ(text, kGreeting);
    ++taken;
  }
}

void close_while_accepting(IPC& listener, const std::function<Session()>& connect, int after) {
  std::atomic<int> taken{0};
  Crew crew(6, [&](int worker, Random&) {
    if (worker % 2 == 0) {
      take_greetings(listener, taken);
    } else {
      greet(connect);
    }
  });
  EXPECT_TRUE(eventually([&] { return taken >= after; }, 20000));
  listener.close();
  crew.join();
  EXPECT_EQ(listener.accept(0), nullptr);
}

// Channels that nobody but their callbacks deletes: each does with its channel, or with
// another one, what the byte says that it has read.
class Colony {
 public:
  void add(Session channel) {
    ++alive_;
    // It may be gone when this returns.
    EXPECT_TRUE(channel.release()->set_callback(called, this));
  }
  [[nodiscard]] bool died_out() const {
    return eventually([this] { return alive_ == 0; }, 20000);
  }
  [[nodiscard]] int calls() const { return calls_; }

 private:
  static void called(void* data, IPC* ipc) { static_cast<Colony*>(data)->obey(ipc); }

  void obey(IPC* ipc) {
    EXPECT_FALSE(dead_.count(ipc) != 0) << "called after its removal";
    ++calls_;
    known_.insert(ipc);
    char order = 'd';  // at the end of the stream
    EXPECT_TRUE(ipc->read(&order, 1, 0) == 1 || ipc->eof() || ipc->error());
    if (order == 'd') end(ipc);
    if (order == 'n') end(*known_.begin());
    if (order == 'r') retire();
  }
  // Removes a callback and deletes its channel later.
  void retire() {
    IPC* const last = *known_.rbegin();
    EXPECT_TRUE(last->set_callback(nullptr, nullptr));
    EXPECT_FALSE(last->set_callback(nullptr, nullptr));
    dead_.insert(last);
    known_.erase(last);
    retired_.emplace_back(last);
    --alive_;
  }
  void end(IPC* ipc) {
    EXPECT_EQ(known_.erase(ipc), 1U);
    delete ipc;
    --alive_;
  }

  std::atomic<int> alive_{0};
  std::atomic<int> calls_{0};
  // Of the callbacks, which run one at a time.
  std::set<IPC*> known_;  // those that had a call
  std::set<IPC*> dead_;
  std::vector<Session> retired_;  // which keep their addresses from being used again
};

}  // namespace

TYPED_TEST(Closing, EndsWhateverOthersDoOnTheChannel) {
  const HangGuard guard;
  TypeParam links;
  Random random(0);
  for (int i = 0; i < amount(60); ++i) {
    BusyLink link(links.make());
    const int after = random.below(30000);
    {
      Crew crew(6, [&](int worker, Random&) {
        if (worker == 0) link.write_to_other();
        if (worker == 1) link.write_to_one();
        if (worker == 2) link.read_other();
        if (worker == 3) link.poll_other();
        if (worker >= 4) link.close(worker == 4, after);
      });
    }
    link.expect_closed();
  }
}

TYPED_TEST(Closing, LetsAChannelConnectAnew) {
  const HangGuard guard;
  TypeParam links;
  for (int i = 0; i < amount(100); ++i) {
    Link link = links.make();
    Crew crew(4, [&](int worker, Random&) { (worker % 2 == 0 ? link.one : link.other)->close(); });
    crew.join();
    link = links.make();
    ASSERT_TRUE(link.one->write("x", 1));
    char byte = '?';
    ASSERT_EQ(link.other->read(&byte, 1, 10000), 1);
    ASSERT_EQ(byte, 'x');
  }
}

TEST(ClosingAListener, EndsAcceptingOnAPipe) {
  const HangGuard guard;
  for (int i = 0; i < amount(40); ++i) {
    ListeningPipe listening;
    const auto connect = [&] {
      auto session = std::make_unique<Pipe>();
      return session->connect(listening.name.c_str()) ? Session(std::move(session)) : nullptr;
    };
    close_while_accepting(listening.channel, connect, 3 * i);
    ASSERT_FALSE(exists(listening.name));
  }
}

TEST(ClosingAListener, EndsAcceptingOnTcp) {
  const HangGuard guard;
  for (int i = 0; i < amount(40); ++i) {
    Listening listening;
    const unsigned short port = port_in(listening.channel.local_addr());
    const auto connect = [&] {
      auto session = std::make_unique<TCP>();
      return session->connect("127.0.0.1", port) ? Session(std::move(session)) : nullptr;
    };
    close_while_accepting(listening.channel, connect, 3 * i);
  }
}

TYPED_TEST(Closing, OfThePeersMeetsChannelsThatCallbacksDelete) {
  const HangGuard guard;
  constexpr int kChannels = 60;
  TypeParam links;
  for (int i = 0; i < amount(20); ++i) {
    Colony colony;
    std::vector<Session> peers(kChannels);
    std::vector<Session> members(kChannels);
    for (int n = 0; n < kChannels; ++n) {
      Link link = links.make();
      peers[static_cast<std::size_t>(n)] = std::move(link.one);
      members[static_cast<std::size_t>(n)] = std::move(link.other);
    }
    Crew crew(4, [&](int worker, Random& random) {
      for (std::size_t n = static_cast<std::size_t>(worker); n < kChannels; n += 4) {
        for (int messages = random.below(10); messages > 0; --messages) {
          peers[n]->write(&"....nrd"[random.below(7)], 1);
        }
        peers[n]->close();
      }
    });
    for (Session& member : members) colony.add(std::move(member));
    crew.join();
    ASSERT_TRUE(colony.died_out());
    EXPECT_GT(colony.calls(), 0);
  }
}
