// SPDX-License-Identifier: MIT
// The sessions of a server, of this machine and of another.
//
// An input is the text of a rule file, an empty line, and a line for each thing that
// happens: the number of a peer, from 0 to 4 of which the last two are remote, and
//   h, m, r  what it sends; if that is no whole frame the peer ends the stream behind it
//   e        it ends the stream
//   v        it vanishes, which its session does not learn before the next thing happens
//            to it: what others cause to be sent to it fails
// A peer without a session connects first. All end when the input does.
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <zedipc/jsobject.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "fuzz/frame_stream.h"
#include "fuzz/harness.h"
#include "fuzz/notify_script.h"
#include "json/kinds.h"
#include "notifyserver/rules.h"
#include "notifyserver/server_state.h"
#include "notifyserver/session.h"
#include "protocol/protocol.h"
#include "support/raw_peer.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kPeers = 5;
constexpr int kFirstRemote = 3;

// A thread for the sessions of one peer. It runs only while the harness waits for it, so
// that one input always does the same.
class SessionThread {
 public:
  SessionThread() {
    std::thread([this] { serve(); }).detach();
  }

  // Starts a session, and waits until that has nothing to read.
  void start(IPC* channel) {
    channel_ = channel;
    go_on();
  }

  // Waits until the session has nothing to read again, or has ended.
  void go_on() {
    std::unique_lock<std::mutex> lock(mutex_);
    running_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return !running_; });
  }

  // For the session: returns when the harness waits for it.
  void pause() {
    std::unique_lock<std::mutex> lock(mutex_);
    running_ = false;
    changed_.notify_all();
    changed_.wait(lock, [this] { return running_; });
  }

  [[nodiscard]] bool in_session() const { return channel_ != nullptr; }

 private:
  [[noreturn]] void serve() {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      changed_.wait(lock, [this] { return running_; });
    }
    for (;;) {
      handle_client(channel_);
      channel_ = nullptr;
      pause();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  bool running_ = false;
  IPC* channel_ = nullptr;  // whoever runs may use it
};

// The server's end. It lets the harness go on before it would wait for input.
class SessionChannel : public PlayedChannel {
 public:
  SessionChannel(int fd, const std::string& remote_addr, SessionThread& thread)
      : PlayedChannel(fd, remote_addr), thread_(thread) {}

  using PlayedChannel::read_msg;
  bool read_msg(unsigned int msg_id, int& msg_tag, IpcBuffer& buffer, int size_limit,
                int timeout_msec) override {
    if (!has_input()) thread_.pause();
    return PlayedChannel::read_msg(msg_id, msg_tag, buffer, size_limit, timeout_msec);
  }

 private:
  [[nodiscard]] bool has_input() const {
    int unread = 0;
    return ioctl(getFD(), FIONREAD, &unread) == 0 && unread > 0;
  }

  SessionThread& thread_;
};

bool is_known_type(const std::string& type) {
  return type == kTypeNotify || type == kTypeUnicastError || type == kTypeNotifyObserver;
}

class Peer {
 public:
  explicit Peer(int number)
      : address_(number < kFirstRemote ? "127.0.0.1:1" : "127.0.0.2:1"),
        thread_(*new SessionThread) {}

  void play(const std::string& line) {
    if (gone_) end();
    if (!thread_.in_session()) connect();
    if (line[0] == 'v') {
      gone_ = true;
      channel_->record_to(nullptr);
      end_.close();
    } else if (line[0] == 'e') {
      end();
    } else {
      send(bytes_of(line));
    }
  }

  void end() {
    if (!thread_.in_session()) return;
    if (!gone_) shutdown(end_.fd(), SHUT_WR);
    thread_.go_on();
    require(!thread_.in_session(), "a session ends with its stream");
    end_.close();
    gone_ = false;
    check_received();
  }

 private:
  void connect() {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0,
            "there is a socket pair");
    end_ = RawPeer(ends[1]);
    channel_ = new SessionChannel(ends[0], address_, thread_);
    channel_->record_to(&received_);
    thread_.start(channel_);
  }

  void send(const std::string& bytes) {
    if (bytes.empty()) return;
    end_.send(bytes);
    if (ends_inside_a_frame(bytes)) {
      end();
    } else {
      thread_.go_on();
      require(thread_.in_session(), "a session goes on as long as its stream");
    }
  }

  void check_received() {
    for (const std::string& text : messages_in(received_)) {
      JSObject message;
      message.parse(text.c_str());
      // An infinity, which the writer has no better word for, ends the text for readers.
      const bool cut = text.find("inf") != std::string::npos;
      require(kind_of(message) == Kind::kObject, "a message is an object");
      require(cut || is_known_type(member(message, "type")), "a message has a type");
    }
    received_.clear();
  }

  const std::string address_;
  SessionThread& thread_;
  SessionChannel* channel_ = nullptr;  // the session's
  RawPeer end_;
  bool gone_ = false;
  std::string received_;
};

std::deque<Peer>& peers() {
  static std::deque<Peer>& all = *new std::deque<Peer>;
  while (all.size() < kPeers) all.emplace_back(static_cast<int>(all.size()));
  return all;
}

std::string read_rules(Input& input) {
  std::string text;
  for (std::string line = input.line(); !line.empty(); line = input.line()) text += line + "\n";
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  {
    const MutexLock lock(server.server_lock);
    parse_config(read_rules(input), server.inbound_rules, server.outbound_rules);
    server.next_identity = ServerState::kFirstIdentity;
  }
  while (!input.empty()) {
    const std::string line = input.line();
    if (line.size() < 2) continue;
    const auto number = static_cast<unsigned>(line[0] - '0') % kPeers;
    peers()[number].play(line.substr(1));
  }
  for (Peer& peer : peers()) peer.end();
  const MutexLock lock(server.server_lock);
  require(server.sessions.empty(), "no session is left");
  require(server.registrations.empty(), "no registration is left");
  require(server.registrations.remote_rows() == 0, "no remote registration is counted");
  require(server.observers.empty(), "no observer is left");
  return 0;
}
