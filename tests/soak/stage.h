// SPDX-License-Identifier: MIT
// The processes of a soak run, and what they tell.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "demo/process.h"
#include "soak/client.h"
#include "soak/event.h"
#include "soak/growth.h"
#include "support/scratch_dir.h"

namespace zedipc::soak {

class Stage {
 public:
  explicit Stage(unsigned seed);

  // Starts a server and waits until it listens; false if it does not.
  bool start_server();
  void kill_server();

  void start_client(int number);
  void kill_client(int number);
  void stop_client(int number);
  void continue_client(int number);
  // Has all clients make trips only.
  void quieten() const;

  // Waits for at most `msec` for what the processes tell, and reads it.
  void read(int msec);

  // Everything that was written before this has been read.
  [[nodiscard]] Time heard_until() const;
  // The events up to `time` in the order of their times.
  std::vector<Event> take_events(Time time);

  [[nodiscard]] Usage server_usage() const { return usage_of(server_.process->pid()); }
  // What the server holds when all clients are connected, and nothing else.
  [[nodiscard]] bool complete(const Usage& usage) const;

  // Ends that nobody asked for, and lines that are no reports.
  [[nodiscard]] const std::vector<std::string>& problems() const { return problems_; }
  [[nodiscard]] bool broken() const { return broken_; }
  // Events that came later than they may.
  [[nodiscard]] unsigned late() const { return late_; }

 private:
  struct Member {
    Life life = 0;
    std::unique_ptr<demo::Process> process;
    Time silent = 0;  // had nothing more to say then
  };

  bool read_once(int msec);
  void read_process(demo::Process& process, Life life);
  void take_line(const demo::Process& process, Life life, const std::string& line);
  void kill(demo::Process& process, Life life);
  void add(const Event& event);

  const unsigned seed_;
  const test::ScratchDir dir_;
  const std::string rules_;
  Member server_;
  Usage empty_server_;
  Time server_killed_ = 0;
  Life lives_ = 0;
  std::map<int, Member> members_;
  std::multimap<Time, Event> events_;
  Time taken_ = 0;
  unsigned late_ = 0;
  bool dying_ = false;  // of the process whose lines are read
  bool broken_ = false;
  std::vector<std::string> problems_;
};

}  // namespace zedipc::soak
