// SPDX-License-Identifier: MIT
// MQTT: libmosquitto and a mosquitto of its own, with a topic for each receiver and one
// for all, at quality of service 0, which promises what zedipc promises. Without Nagle's
// algorithm, and with no limit on what may wait in the broker.
#include <mosquitto.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "harness/daemon.h"
#include "harness/subject.h"

namespace bench {

namespace {

constexpr char kOne[] = "paper/out/display";
constexpr char kAll[] = "paper/out";
constexpr int kKeepAlive = 600;
constexpr int kStep = 100;  // milliseconds

std::string configuration() {
  return "listener " + std::to_string(kPort) +
         " 127.0.0.1\n"
         "allow_anonymous true\n"
         "set_tcp_nodelay true\n"
         "max_queued_messages 0\n"
         "max_queued_bytes 0\n"
         "persistence false\n"
         "log_dest none\n";
}

void require(int result, const char* what) {
  if (result != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(result));
  }
}

const char* topic(const Work& work) { return work.kind == Kind::kBroadcast ? kAll : kOne; }

// What a client's callbacks report.
struct Events {
  Board* board;
  bool connected;
  bool subscribed;
};

Events& events(void* object) { return *static_cast<Events*>(object); }

void on_connect(mosquitto* /*client*/, void* object, int result) {
  events(object).connected = result == 0;
}

void on_subscribe(mosquitto* /*client*/, void* object, int /*id*/, int /*count*/,
                  const int* /*granted*/) {
  events(object).subscribed = true;
}

void on_message(mosquitto* /*client*/, void* object, const mosquitto_message* message) {
  const Nanoseconds at = now();
  events(object).board->arrived(at, static_cast<std::size_t>(message->payloadlen));
}

// Works until the callback has set `done`.
void run_until(mosquitto* client, const bool& done) {
  while (!done) require(mosquitto_loop(client, kStep, 1), "mosquitto_loop");
}

// A client lives as long as its process.
mosquitto* connect(Events& events) {
  mosquitto_lib_init();
  mosquitto* const client = mosquitto_new(nullptr, true, &events);
  if (client == nullptr) throw std::runtime_error("no memory for a client");
  mosquitto_connect_callback_set(client, on_connect);
  mosquitto_subscribe_callback_set(client, on_subscribe);
  mosquitto_message_callback_set(client, on_message);
  require(mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1), "mosquitto_int_option");
  require(mosquitto_connect(client, "127.0.0.1", kPort, kKeepAlive), "mosquitto_connect");
  run_until(client, events.connected);
  return client;
}

class Publisher : public Sender {
 public:
  explicit Publisher(const Work& work) : topic_(topic(work)), payload_(work.size, 'x') {}

  void send() override {
    require(mosquitto_publish(client_, nullptr, topic_, static_cast<int>(payload_.size()),
                              payload_.data(), 0, false),
            "mosquitto_publish");
  }
  void flush() override {
    while (mosquitto_want_write(client_)) require(mosquitto_loop(client_, kStep, 1), "writing");
  }

 private:
  Events events_{nullptr, false, false};
  mosquitto* const client_ = connect(events_);
  const char* const topic_;
  const std::string payload_;
};

class Mosquitto : public Subject {
 public:
  [[nodiscard]] const char* name() const override { return "mosquitto"; }

  pid_t start_server(Crew& crew) override {
    const std::string file = daemon_.directory().write("mosquitto.conf", configuration());
    const pid_t pid = daemon_.start("mosquitto", {"-c", file});
    crew.wait_until("mosquitto listens", [] { return port_answers(kPort); });
    return pid;
  }

  void receive(const Work& work, Board& board, int /*index*/) override {
    Events events{&board, false, false};
    mosquitto* const client = connect(events);
    require(mosquitto_subscribe(client, nullptr, topic(work), 0), "mosquitto_subscribe");
    run_until(client, events.subscribed);
    board.ready();
    require(mosquitto_loop_forever(client, -1, 1), "mosquitto_loop_forever");
  }

  std::unique_ptr<Sender> make_sender(const Work& work) override {
    return std::make_unique<Publisher>(work);
  }

 private:
  Daemon daemon_;
};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  bench::Mosquitto subject;
  return bench::run_program(subject, argc, argv);
}
