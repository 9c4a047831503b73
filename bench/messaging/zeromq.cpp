// SPDX-License-Identifier: MIT
// ZeroMQ, which has no server: the sender and its receivers are connected directly, by TCP.
// A unicast goes through PUSH and PULL, a broadcast through PUB and SUB, a round trip
// through REQ and REP. Queues have no limit.
#include <zmq.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "harness/subject.h"

namespace bench {

namespace {

constexpr int kPatience = 20000;  // milliseconds

std::string tcp_address() { return "tcp://127.0.0.1:" + std::to_string(kPort); }

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string(what) + ": " + zmq_strerror(zmq_errno()));
}

void* context() {
  static void* const context = zmq_ctx_new();
  return context;
}

// Sockets live as long as their process.
void* make_socket(int type) {
  void* const socket = zmq_socket(context(), type);
  require(socket != nullptr, "zmq_socket");
  const int no_limit = 0;
  zmq_setsockopt(socket, ZMQ_SNDHWM, &no_limit, sizeof no_limit);
  zmq_setsockopt(socket, ZMQ_RCVHWM, &no_limit, sizeof no_limit);
  return socket;
}

void* make_bound(int type, const std::string& address) {
  void* const socket = make_socket(type);
  require(zmq_bind(socket, address.c_str()) == 0, "zmq_bind");
  return socket;
}

void* make_connected(int type, const std::string& address) {
  void* const socket = make_socket(type);
  require(zmq_connect(socket, address.c_str()) == 0, "zmq_connect");
  return socket;
}

class Message {
 public:
  Message() { zmq_msg_init(&message_); }
  ~Message() { zmq_msg_close(&message_); }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  void receive(void* socket) { require(zmq_msg_recv(&message_, socket, 0) != -1, "zmq_msg_recv"); }
  // It is empty then.
  void send(void* socket) { require(zmq_msg_send(&message_, socket, 0) != -1, "zmq_msg_send"); }
  [[nodiscard]] std::size_t size() const { return zmq_msg_size(&message_); }

 private:
  zmq_msg_t message_{};
};

class Pusher : public Sender {
 public:
  Pusher(void* socket, std::size_t size) : socket_(socket), payload_(size, 'x') {}
  void send() override {
    require(zmq_send(socket_, payload_.data(), payload_.size(), 0) != -1, "zmq_send");
  }

 private:
  void* const socket_;
  const std::string payload_;
};

class Requester : public Caller {
 public:
  Requester(void* socket, std::size_t size) : socket_(socket), request_(size, 'x') {}
  std::size_t call() override {
    require(zmq_send(socket_, request_.data(), request_.size(), 0) != -1, "zmq_send");
    Message reply;
    reply.receive(socket_);
    return reply.size();
  }

 private:
  void* const socket_;
  const std::string request_;
};

std::string address(const Work& work, const std::string& path) {
  return work.tcp ? tcp_address() : "ipc://" + path;
}

class ZeroMQ : public Subject {
 public:
  [[nodiscard]] const char* name() const override { return "zeromq"; }
  [[nodiscard]] bool can(const Work& /*work*/) const override { return true; }

  void receive(const Work& work, Board& board, int /*index*/) override {
    void* socket;
    if (work.kind == Kind::kBroadcast) {
      socket = make_connected(ZMQ_SUB, tcp_address());
      zmq_setsockopt(socket, ZMQ_SUBSCRIBE, "", 0);
    } else {
      socket = make_bound(ZMQ_PULL, tcp_address());
    }
    board.ready();
    for (Message message;;) {
      message.receive(socket);
      const Nanoseconds at = now();
      board.arrived(at, message.size());
    }
  }

  std::unique_ptr<Sender> make_sender(const Work& work) override {
    if (work.kind != Kind::kBroadcast) {
      return std::make_unique<Pusher>(make_connected(ZMQ_PUSH, tcp_address()), work.size);
    }
    // An XPUB is told of its subscribers.
    void* const socket = make_bound(ZMQ_XPUB, tcp_address());
    const int each = 1;
    zmq_setsockopt(socket, ZMQ_XPUB_VERBOSE, &each, sizeof each);
    zmq_setsockopt(socket, ZMQ_RCVTIMEO, &kPatience, sizeof kPatience);
    for (int i = 0; i < work.receivers; ++i) Message().receive(socket);
    return std::make_unique<Pusher>(socket, work.size);
  }

  void echo(const Work& work, Board& board, const std::string& path) override {
    void* const socket = make_bound(ZMQ_REP, address(work, path));
    board.ready();
    for (Message message;;) {
      message.receive(socket);
      message.send(socket);
    }
  }

  std::unique_ptr<Caller> make_caller(const Work& work, const std::string& path) override {
    return std::make_unique<Requester>(make_connected(ZMQ_REQ, address(work, path)), work.size);
  }
};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  bench::ZeroMQ subject;
  return bench::run_program(subject, argc, argv);
}
