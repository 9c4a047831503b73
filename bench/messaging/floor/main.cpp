// SPDX-License-Identifier: MIT
// The floor: what is left of the library's design without JSON, without the log and
// without a class around the sockets. Nothing that makes the same system calls on the same
// threads can be much faster.
#include <stdexcept>

#include "floor/client.h"
#include "floor/frame.h"
#include "floor/message.h"
#include "floor/server.h"
#include "harness/daemon.h"
#include "harness/subject.h"

namespace bench {

namespace {

using namespace floor_subject;

constexpr char kReceiver[] = "display";

void require(bool condition) {
  if (!condition) throw std::runtime_error("a connection has ended");
}

class FrameSender : public Sender {
 public:
  FrameSender(int fd, const Work& work)
      : fd_(fd),
        message_{kNotify, work.kind == Kind::kBroadcast ? kToAll : kReceiver, kNotification},
        payload_(work.size, 'x') {}
  void send() override { require(send_frame(fd_, write_message(message_, payload_))); }

 private:
  const int fd_;
  const Message message_;
  const std::string payload_;
};

class FrameCaller : public Caller {
 public:
  FrameCaller(int fd, std::size_t size) : fd_(fd), request_(size, 'x') {}
  std::size_t call() override {
    require(send_frame(fd_, request_) && receive_frame(fd_, reply_));
    return reply_.size();
  }

 private:
  const int fd_;
  const std::string request_;
  std::string reply_;
};

// Descriptors stay open: the processes end with the measurement.
class Floor : public Subject {
 public:
  [[nodiscard]] const char* name() const override { return "floor"; }
  [[nodiscard]] bool can(const Work& /*work*/) const override { return true; }

  pid_t start_server(Crew& crew) override {
    const pid_t pid = crew.start("server", [] { serve(kPort); });
    crew.wait_until("the server listens", [] { return port_answers(kPort); });
    return pid;
  }

  void receive(const Work& /*work*/, Board& board, int index) override {
    const std::string name = index == 0 ? kReceiver : kReceiver + std::to_string(index);
    start_receiver(kPort, name, board);
    board.ready();
    stay();
  }

  std::unique_ptr<Sender> make_sender(const Work& work) override {
    return std::make_unique<FrameSender>(connect_to(kPort), work);
  }

  void echo(const Work& work, Board& board, const std::string& path) override {
    const int listener = work.tcp ? listen_on(kPort) : listen_on(path);
    board.ready();
    const int fd = accept_from(listener);
    std::string text;
    while (receive_frame(fd, text)) require(send_frame(fd, text));
  }

  std::unique_ptr<Caller> make_caller(const Work& work, const std::string& path) override {
    return std::make_unique<FrameCaller>(work.tcp ? connect_to(kPort) : connect_to(path),
                                         work.size);
  }
};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  bench::Floor subject;
  return bench::run_program(subject, argc, argv);
}
