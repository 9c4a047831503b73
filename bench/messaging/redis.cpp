// SPDX-License-Identifier: MIT
// Redis: hiredis and a redis-server of its own, with a channel for each receiver and one
// for all. Nothing is stored, and nothing is too much for a subscriber's buffer. In a
// flood the answers to PUBLISH are read in batches.
#include <hiredis/hiredis.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "harness/daemon.h"
#include "harness/subject.h"

namespace bench {

namespace {

constexpr char kOne[] = "paper.out.display";
constexpr char kAll[] = "paper.out";
constexpr int kBatch = 64;
constexpr std::size_t kMessageParts = 3;  // "message", the channel, the payload

const char* channel(const Work& work) { return work.kind == Kind::kBroadcast ? kAll : kOne; }

struct FreeReply {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

// A connection lives as long as its process.
redisContext* connect() {
  redisContext* const context = redisConnect("127.0.0.1", kPort);
  if (context == nullptr || context->err != 0) throw std::runtime_error("cannot connect");
  return context;
}

Reply next_reply(redisContext* context) {
  void* reply = nullptr;
  if (redisGetReply(context, &reply) != REDIS_OK) throw std::runtime_error(context->errstr);
  return Reply(static_cast<redisReply*>(reply));
}

class Publisher : public Sender {
 public:
  explicit Publisher(const Work& work)
      : channel_(channel(work)), receivers_(work.receivers), payload_(work.size, 'x') {}

  void send() override {
    redisAppendCommand(context_, "PUBLISH %s %b", channel_, payload_.data(), payload_.size());
    if (++pending_ == kBatch) flush();
  }
  void flush() override {
    for (; pending_ > 0; --pending_) {
      const Reply reply = next_reply(context_);
      if (reply->type != REDIS_REPLY_INTEGER || reply->integer != receivers_) {
        throw std::runtime_error("not all receivers were served");
      }
    }
  }

 private:
  redisContext* const context_ = connect();
  const char* const channel_;
  const int receivers_;
  const std::string payload_;
  int pending_ = 0;
};

class Redis : public Subject {
 public:
  [[nodiscard]] const char* name() const override { return "redis"; }

  pid_t start_server(Crew& crew) override {
    const pid_t pid = daemon_.start(
        "redis-server", {"--port", std::to_string(kPort), "--bind", "127.0.0.1", "--save", "",
                         "--appendonly", "no", "--client-output-buffer-limit", "pubsub 0 0 0",
                         "--loglevel", "warning", "--dir", daemon_.directory().file("")});
    crew.wait_until("redis-server listens", [] { return port_answers(kPort); });
    return pid;
  }

  void receive(const Work& work, Board& board, int /*index*/) override {
    redisContext* const context = connect();
    redisAppendCommand(context, "SUBSCRIBE %s", channel(work));
    next_reply(context);
    board.ready();
    for (;;) {
      const Reply reply = next_reply(context);
      const Nanoseconds at = now();
      if (reply->type == REDIS_REPLY_ARRAY && reply->elements == kMessageParts) {
        board.arrived(at, reply->element[kMessageParts - 1]->len);
      }
    }
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
  bench::Redis subject;
  return bench::run_program(subject, argc, argv);
}
