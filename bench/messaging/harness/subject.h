// SPDX-License-Identifier: MIT
// What a system has to be able to do so that it can be measured. Each process of a run
// calls one of the functions: the sender's those that say so, on its main thread.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "harness/board.h"
#include "harness/crew.h"
#include "harness/work.h"

namespace bench {

// The sending end of a connection.
class Sender {
 public:
  virtual ~Sender() = default;
  // Sends the message that the sender was made for to one receiver, or to all where the
  // work is a broadcast. May leave it in a buffer.
  virtual void send() = 0;
  // Returns when everything is on its way.
  virtual void flush() {}
};

// The asking end of a round trip.
class Caller {
 public:
  virtual ~Caller() = default;
  // Sends a payload of the work's size, and gives the size of what came back.
  virtual std::size_t call() = 0;
};

class Subject {
 public:
  virtual ~Subject() = default;
  [[nodiscard]] virtual const char* name() const = 0;

  // Starts the server that messages go through, and waits until it listens. Gives its
  // process, or 0 if the system has no server.
  virtual pid_t start_server(Crew& /*crew*/) { return 0; }

  // For each receiver: reports itself ready, then all that arrives; never returns.
  virtual void receive(const Work& work, Board& board, int index) = 0;

  // For the sender, when all receivers are ready.
  virtual std::unique_ptr<Sender> make_sender(const Work& work) = 0;

  // Whether there is a form of this work that can be compared.
  [[nodiscard]] virtual bool can(const Work& work) const { return work.kind != Kind::kRoundTrip; }

  // Sends every payload back that comes; never returns. Reports itself ready when it can
  // be connected to, by a name that is a path in `directory` where the work is not TCP.
  virtual void echo(const Work& /*work*/, Board& /*board*/, const std::string& /*path*/) {}
  // For the asking process, when the other one is ready.
  virtual std::unique_ptr<Caller> make_caller(const Work& /*work*/, const std::string& /*path*/) {
    return nullptr;
  }
};

// The port of servers that leave the choice.
inline constexpr unsigned short kPort = 5990;

// The measurement program for a subject.
int run_program(Subject& subject, int argc, char** argv);

}  // namespace bench
