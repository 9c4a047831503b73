// SPDX-License-Identifier: MIT
// The library itself.
#include <semaphore.h>
#include <zedipc/zedipc.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "harness/daemon.h"
#include "harness/subject.h"

using namespace zedipc;

namespace bench {

namespace {

constexpr unsigned short kServerPort = 5899;
constexpr char kNotification[] = "paper.out";
constexpr char kReceiver[] = "display";
constexpr unsigned kFrameId = 0x42454e43;
constexpr int kSizeLimit = 1 << 20;

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string(what) + " failed");
}

// An object whose text is `size` bytes long.
JSObject make_parameter(std::size_t size) {
  JSObject parameter;
  parameter("bytes") = static_cast<int>(size);
  parameter("text") = "";
  parameter("text") = std::string(size - parameter.dump().size(), 'x');
  return parameter;
}

void on_message(void* board, const std::string& /*from*/, const std::string& /*to*/,
                const std::string& /*notification*/, const JSObject& parameter,
                unsigned /*flags*/) {
  const Nanoseconds at = now();
  static_cast<Board*>(board)->arrived(at, static_cast<std::size_t>(parameter("bytes").getInt()));
}

void on_settled(void* settled, const std::string& /*from*/, const std::string& /*to*/,
                const std::string& /*notification*/, const JSObject& /*parameter*/,
                unsigned /*flags*/) {
  sem_post(static_cast<sem_t*>(settled));
}

// The server handles what one client says in its order: when a message to the process
// itself has come back, the server knows all that was registered before.
void wait_until_registered() {
  sem_t settled;
  sem_init(&settled, 0, 0);
  require(ipcRegisterNotificationCB("settled", on_settled, &settled) == kNotifyDone, "registering");
  require(ipcNotify(ipcGetAppID(), "settled") == kNotifyDone, "sending");
  while (sem_wait(&settled) != 0) {
  }
  require(ipcUnregisterNotificationCB("settled", on_settled, &settled) == kNotifyDone,
          "unregistering");
  sem_destroy(&settled);
}

// A channel with a callback, so that there is a dispatcher. It stays for ever.
void start_dispatcher() {
  auto listener = std::make_unique<TCP>();
  auto channel = std::make_unique<TCP>();
  require(listener->listen(kPort, "127.0.0.1"), "listening");
  require(channel->connect("127.0.0.1", kPort), "connecting");
  require(listener->accept(-1) != nullptr, "accepting");
  require(channel->set_callback([](void*, IPC*) {}, nullptr), "setting a callback");
  static_cast<void>(listener.release());
  static_cast<void>(channel.release());
}

class NotifySender : public Sender {
 public:
  explicit NotifySender(const Work& work)
      : to_(work.kind == Kind::kBroadcast ? "*" : kReceiver),
        notification_(kNotification),
        parameter_(make_parameter(work.size)) {}
  void send() override {
    require(ipcNotify(to_, notification_, parameter_) == kNotifyDone, "sending");
  }

 private:
  const std::string to_;
  const std::string notification_;
  const JSObject parameter_;
};

class FrameCaller : public Caller {
 public:
  FrameCaller(std::unique_ptr<IPC> channel, std::size_t size)
      : channel_(std::move(channel)), request_(size, 'x') {}
  std::size_t call() override {
    int tag = 0;
    require(channel_->write_msg(kFrameId, 0, request_), "writing");
    require(channel_->read_msg(kFrameId, tag, reply_, kSizeLimit, -1), "reading");
    return reply_.size();
  }

 private:
  const std::unique_ptr<IPC> channel_;
  const std::string request_;
  std::string reply_;
};

class Zedipc : public Subject {
 public:
  [[nodiscard]] const char* name() const override { return "zedipc"; }
  [[nodiscard]] bool can(const Work& /*work*/) const override { return true; }

  pid_t start_server(Crew& crew) override {
    const pid_t pid = crew.start("server", [] {
      throw std::runtime_error("ipcNotificationServer() gave " +
                               std::to_string(ipcNotificationServer()));
    });
    crew.wait_until("the server listens", [] { return port_answers(kServerPort); });
    return pid;
  }

  void receive(const Work& work, Board& board, int index) override {
    ipcSetAppID(index == 0 ? kReceiver : kReceiver + std::to_string(index));
    require(ipcRegisterNotificationCB(kNotification, on_message, &board) == kNotifyDone,
            "registering");
    wait_until_registered();
    if (work.kind == Kind::kIdle) start_dispatcher();
    board.ready();
    stay();
  }

  std::unique_ptr<Sender> make_sender(const Work& work) override {
    ipcSetAppID("tray");
    return std::make_unique<NotifySender>(work);
  }

  void echo(const Work& work, Board& board, const std::string& path) override {
    Pipe pipe;
    TCP tcp;
    require(work.tcp ? tcp.listen(kPort, "127.0.0.1") : pipe.listen(path.c_str()), "listening");
    board.ready();
    IPC& listener = work.tcp ? static_cast<IPC&>(tcp) : pipe;
    const std::unique_ptr<IPC> channel(listener.accept(-1));
    std::string message;
    int tag = 0;
    while (channel->read_msg(kFrameId, tag, message, kSizeLimit, -1)) {
      require(channel->write_msg(kFrameId, tag, message), "writing");
    }
  }

  std::unique_ptr<Caller> make_caller(const Work& work, const std::string& path) override {
    auto pipe = std::make_unique<Pipe>();
    auto tcp = std::make_unique<TCP>();
    require(work.tcp ? tcp->connect("127.0.0.1", kPort) : pipe->connect(path.c_str()),
            "connecting");
    std::unique_ptr<IPC> channel;
    if (work.tcp) {
      channel = std::move(tcp);
    } else {
      channel = std::move(pipe);
    }
    return std::make_unique<FrameCaller>(std::move(channel), work.size);
  }
};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  // No log, whatever the surroundings say, and the server of this machine.
  setenv("IPC_LOGMASK", "0", 1);
  setenv("NFY_LOGMASK", "0", 1);
  unsetenv("NOTIFY_SERVER");
  bench::Zedipc subject;
  return bench::run_program(subject, argc, argv);
}
