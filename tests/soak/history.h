// SPDX-License-Identifier: MIT
// All that a message is judged by: the clients' lives, their registrations, the
// server's ends, and how far everybody has come.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "soak/event.h"
#include "soak/registrations.h"
#include "soak/rounds.h"

namespace zedipc::soak {

struct ClientLife {
  std::string name;
  bool remote;
  Time started;
  Time kill_begin = kNever;
  Time kill_end = kNever;
};

struct ServerKill {
  Time begin;
  Time end;                   // the next server listens
  std::map<Life, Time> back;  // since when a client is certainly on a later server
};

struct History {
  // What the thread of a callback may take to get to its report, once it was started.
  Time slowness = 3 * kSecond;
  std::map<Life, ClientLife> lives;
  std::vector<ServerKill> server_kills;
  Registrations registrations;
  Rounds rounds;

  [[nodiscard]] std::string name(Life life) const {
    const auto found = lives.find(life);
    const std::string number = "#" + std::to_string(life);
    return found == lives.end() ? number : found->second.name + number;
  }
};

struct Receipt {
  Life life;
  Record record;
  Time time;
  bool altered;
};

struct Report {
  int slot;
  Time time;
};

// A message on its way, as told by everybody who had to do with it.
struct Message {
  Id id = 0;
  std::string to;
  std::string name;
  Time sending = kNever;
  Time sent = kNever;  // the call returned
  int result = 0;
  std::vector<Receipt> receipts;
  std::vector<Report> reports;
  std::map<Life, std::vector<std::string>> seen;  // by observers: to which names it went

  [[nodiscard]] bool broadcast() const { return to == "*"; }
};

// Whether the registration is one of those that the message names.
inline bool meant_for(const Message& message, const Record& record) {
  return record.name == message.name &&
         (message.broadcast() || message.to == "1" || message.to == record.to);
}

}  // namespace zedipc::soak
