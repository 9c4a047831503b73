// SPDX-License-Identifier: MIT
// nng, which has no server: the sender and its receivers are connected directly, by TCP.
// A unicast goes through PUSH and PULL, a broadcast through PUB and SUB, a round trip
// through REQ and REP.
#include <nng/nng.h>
#include <nng/protocol/pipeline0/pull.h>
#include <nng/protocol/pipeline0/push.h>
#include <nng/protocol/pubsub0/pub.h>
#include <nng/protocol/pubsub0/sub.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>

#include "harness/daemon.h"
#include "harness/subject.h"

namespace bench {

namespace {

constexpr unsigned kPause = 1000;  // microseconds between two looks
constexpr Nanoseconds kPatience = 20000000000;

std::string tcp_address() { return "tcp://127.0.0.1:" + std::to_string(kPort); }

void require(int result, const char* what) {
  if (result != 0) throw std::runtime_error(std::string(what) + ": " + nng_strerror(result));
}

// Sockets live as long as their process.
nng_socket open(int (*opener)(nng_socket*)) {
  nng_socket socket{};
  require(opener(&socket), "opening a socket");
  require(nng_socket_set_size(socket, NNG_OPT_RECVMAXSZ, 0), "lifting the size limit");
  return socket;
}

// A message of this process, until it is given away.
class Message {
 public:
  Message() = default;
  explicit Message(const std::string& payload) {
    require(nng_msg_alloc(&message_, 0), "nng_msg_alloc");
    require(nng_msg_append(message_, payload.data(), payload.size()), "nng_msg_append");
  }
  ~Message() {
    if (message_ != nullptr) nng_msg_free(message_);
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  void receive(nng_socket socket) { require(nng_recvmsg(socket, &message_, 0), "nng_recvmsg"); }
  void send(nng_socket socket) {
    require(nng_sendmsg(socket, message_, 0), "nng_sendmsg");
    message_ = nullptr;
  }
  [[nodiscard]] std::size_t size() const { return nng_msg_len(message_); }

 private:
  nng_msg* message_ = nullptr;
};

class Pusher : public Sender {
 public:
  Pusher(nng_socket socket, std::size_t size) : socket_(socket), payload_(size, 'x') {}
  void send() override { Message(payload_).send(socket_); }

 private:
  const nng_socket socket_;
  const std::string payload_;
};

class Requester : public Caller {
 public:
  Requester(nng_socket socket, std::size_t size) : socket_(socket), request_(size, 'x') {}
  std::size_t call() override {
    Message(request_).send(socket_);
    Message reply;
    reply.receive(socket_);
    return reply.size();
  }

 private:
  const nng_socket socket_;
  const std::string request_;
};

void count_peer(nng_pipe /*pipe*/, nng_pipe_ev /*event*/, void* count) {
  static_cast<std::atomic<int>*>(count)->fetch_add(1);
}

// A PUB with so many peers.
nng_socket make_publisher(int peers) {
  static std::atomic<int> count{0};
  const nng_socket socket = open(nng_pub0_open);
  require(nng_pipe_notify(socket, NNG_PIPE_EV_ADD_POST, count_peer, &count), "nng_pipe_notify");
  require(nng_listen(socket, tcp_address().c_str(), nullptr, 0), "nng_listen");
  const Nanoseconds deadline = now() + kPatience;
  while (count.load() < peers) {
    if (now() > deadline) throw std::runtime_error("not all receivers have connected");
    usleep(kPause);
  }
  return socket;
}

// The publisher listens once all are ready, so this waits for it.
nng_socket make_subscriber(Board& board) {
  const nng_socket socket = open(nng_sub0_open);
  require(nng_socket_set(socket, NNG_OPT_SUB_SUBSCRIBE, "", 0), "subscribing");
  board.ready();
  while (!port_answers(kPort)) usleep(kPause);
  require(nng_dial(socket, tcp_address().c_str(), nullptr, 0), "nng_dial");
  return socket;
}

nng_socket make_puller(Board& board) {
  const nng_socket socket = open(nng_pull0_open);
  require(nng_listen(socket, tcp_address().c_str(), nullptr, 0), "nng_listen");
  board.ready();
  return socket;
}

std::string address(const Work& work, const std::string& path) {
  return work.tcp ? tcp_address() : "ipc://" + path;
}

class Nng : public Subject {
 public:
  [[nodiscard]] const char* name() const override { return "nng"; }
  [[nodiscard]] bool can(const Work& /*work*/) const override { return true; }

  void receive(const Work& work, Board& board, int /*index*/) override {
    const nng_socket socket =
        work.kind == Kind::kBroadcast ? make_subscriber(board) : make_puller(board);
    for (;;) {
      Message message;
      message.receive(socket);
      const Nanoseconds at = now();
      board.arrived(at, message.size());
    }
  }

  std::unique_ptr<Sender> make_sender(const Work& work) override {
    if (work.kind == Kind::kBroadcast) {
      return std::make_unique<Pusher>(make_publisher(work.receivers), work.size);
    }
    const nng_socket socket = open(nng_push0_open);
    require(nng_dial(socket, tcp_address().c_str(), nullptr, 0), "nng_dial");
    return std::make_unique<Pusher>(socket, work.size);
  }

  void echo(const Work& work, Board& board, const std::string& path) override {
    const nng_socket socket = open(nng_rep0_open);
    require(nng_listen(socket, address(work, path).c_str(), nullptr, 0), "nng_listen");
    board.ready();
    for (;;) {
      Message message;
      message.receive(socket);
      message.send(socket);
    }
  }

  std::unique_ptr<Caller> make_caller(const Work& work, const std::string& path) override {
    const nng_socket socket = open(nng_req0_open);
    require(nng_dial(socket, address(work, path).c_str(), nullptr, 0), "nng_dial");
    return std::make_unique<Requester>(socket, work.size);
  }
};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  bench::Nng subject;
  return bench::run_program(subject, argc, argv);
}
