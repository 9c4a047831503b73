// SPDX-License-Identifier: MIT
#include "soak/stage.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "support/raw_peer.h"
#include "support/server_process.h"

namespace zedipc::soak {

namespace {

// So that a client need not wait for the controller to read.
constexpr int kReportBuffer = 1 << 20;
constexpr Time kLongRead = kSecond / 5;
constexpr Time kServerStart = 20 * kSecond;

// What is inside stays there: no rule lets it pass.
constexpr char kRules[] = "in * * soak.open.*\nout * * soak.open.*\n";

std::string own_program() { return std::filesystem::read_symlink("/proc/self/exe").string(); }

}  // namespace

Stage::Stage(unsigned seed) : seed_(seed), rules_(dir_.write("rules", kRules)) {}

bool Stage::start_server() {
  if (test::port_is_open(test::kNotifyPort)) return false;  // another server's
  server_.process = std::make_unique<demo::Process>("server", own_program(),
                                                    std::vector<std::string>{"server", rules_});
  const Time deadline = now() + kServerStart;
  while (!test::port_is_open(test::kNotifyPort)) {
    read(5);
    if (server_.process->ended() || now() > deadline) return false;
  }
  if (server_killed_ == 0) {
    empty_server_ = server_usage();
  } else {
    add({Event::kServerKilled, now(), 0, 0, {}, 0, server_killed_});
  }
  return true;
}

void Stage::kill_server() {
  server_killed_ = now();
  kill(*server_.process, 0);
}

void Stage::start_client(int number) {
  Member& member = members_[number];
  member.life = ++lives_;
  const unsigned seed = seed_ * 7919 + member.life * 2;
  add({Event::kStarted,
       now(),
       member.life,
       0,
       {client_name(number), "", 0},
       number >= kClients - kRemoteClients ? 1 : 0,
       0});
  member.process = std::make_unique<demo::Process>(
      client_name(number), own_program(),
      std::vector<std::string>{"client", std::to_string(number), std::to_string(member.life),
                               std::to_string(seed)});
  fcntl(member.process->output(), F_SETPIPE_SZ, kReportBuffer);
  member.silent = now();
}

void Stage::kill_client(int number) {
  const Member& member = members_.at(number);
  const Time begin = now();
  kill(*member.process, member.life);
  add({Event::kKilled, now(), member.life, 0, {}, 0, begin});
}

void Stage::stop_client(int number) { members_.at(number).process->signal(SIGSTOP); }

void Stage::continue_client(int number) { members_.at(number).process->signal(SIGCONT); }

void Stage::quieten() const {
  for (const auto& [number, member] : members_) member.process->send_line("quiet");
}

void Stage::kill(demo::Process& process, Life life) {
  process.signal(SIGKILL);
  dying_ = true;
  while (!process.ended()) read_process(process, life);
  dying_ = false;
}

void Stage::read_process(demo::Process& process, Life life) {
  for (const std::string& line : process.read_lines()) take_line(process, life, line);
  if (!process.ended() || dying_) return;
  problems_.push_back(process.name() + " ended by itself: " + process.describe_end() + "\n");
  broken_ = true;
}

// The last line of a process that is killed may be cut off.
void Stage::take_line(const demo::Process& process, Life life, const std::string& line) {
  if (const auto event = parse_line(line, life)) {
    add(*event);
  } else if (!dying_ && line.rfind("DBGLOG <", 0) != 0) {  // what the library says of its log
    problems_.push_back(process.name() + " wrote: " + line + "\n");
  }
}

void Stage::read(int msec) {
  const Time end = now() + kLongRead;
  while (read_once(msec) && now() < end) msec = 0;
}

// Whether there was anything.
bool Stage::read_once(int msec) {
  std::vector<Member*> members;
  std::vector<pollfd> outputs;
  const auto watch = [&](Member& member) {
    if (member.process == nullptr || member.process->ended()) return;
    members.push_back(&member);
    outputs.push_back({member.process->output(), POLLIN, 0});
  };
  watch(server_);
  for (auto& [number, member] : members_) watch(member);
  const Time begin = now();
  const bool any = poll(outputs.data(), outputs.size(), msec) > 0;
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    if (outputs[i].revents != 0) {
      read_process(*members[i]->process, members[i]->life);
    } else {
      members[i]->silent = begin;
    }
  }
  return any;
}

Time Stage::heard_until() const {
  Time time = now();
  for (const auto& [number, member] : members_) {
    if (!member.process->ended()) time = std::min(time, member.silent);
  }
  return time;
}

void Stage::add(const Event& event) {
  if (event.time < taken_) ++late_;
  events_.emplace(event.time, event);
}

std::vector<Event> Stage::take_events(Time time) {
  std::vector<Event> events;
  const auto end = events_.upper_bound(time);
  for (auto it = events_.begin(); it != end; ++it) events.push_back(it->second);
  events_.erase(events_.begin(), end);
  taken_ = time;
  return events;
}

bool Stage::complete(const Usage& usage) const {
  return usage.descriptors == empty_server_.descriptors + kClients &&
         usage.threads == empty_server_.threads + kClients;
}

}  // namespace zedipc::soak
