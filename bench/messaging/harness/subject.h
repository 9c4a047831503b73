// SPDX-License-Identifier: MIT
// What a system must be able to do to be measured. Each process of a run calls one of the
// functions: the sender those that say so, on its main thread.
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
  // Sends the message that the sender was made for to one receiver, or, in a broadcast, to
  // all. It may stay in a buffer.
  virtual void send() = 0;
  // Returns when everything is on its way.
  virtual void flush() {}
};

// The asking end of a round trip.
class Caller {
 public:
  virtual ~Caller() = default;
  // Sends a payload of the work's size, and returns the size of what came back.
  virtual std::size_t call() = 0;
};

class Subject {
 public:
  virtual ~Subject() = default;
  [[nodiscard]] virtual const char* name() const = 0;

  // Starts the server that messages go through, and waits until it listens. Returns its
  // process, or 0 if the system has no server.
  virtual pid_t start_server(Crew& /*crew*/) { return 0; }

  // For each receiver: reports itself ready, then all that arrives; never returns.
  virtual void receive(const Work& work, Board& board, int index) = 0;

  // For the sender, when all receivers are ready.
  virtual std::unique_ptr<Sender> make_sender(const Work& work) = 0;

  // Whether the system can do this work in a form that compares.
  [[nodiscard]] virtual bool can(const Work& work) const { return work.kind != Kind::kRoundTrip; }

  // Sends back every payload that arrives; never returns. Reports itself ready when it can
  // be connected to; without TCP, by a path in `directory`.
  virtual void echo(const Work& /*work*/, Board& /*board*/, const std::string& /*path*/) {}
  // For the asking process, once the other one is ready.
  virtual std::unique_ptr<Caller> make_caller(const Work& /*work*/, const std::string& /*path*/) {
    return nullptr;
  }
};

// The port of servers that can be told one.
inline constexpr unsigned short kPort = 5990;

// The measurement program for a subject.
int run_program(Subject& subject, int argc, char** argv);

}  // namespace bench
