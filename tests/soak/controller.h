// SPDX-License-Identifier: MIT
// The course of a soak run.
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include "soak/account.h"
#include "soak/stage.h"

namespace zedipc::soak {

struct Options {
  int seconds = 600;
  unsigned seed = 0;
};

struct Outcome {
  Totals totals;
  unsigned kills = 0;
  unsigned stalls = 0;
  unsigned restarts = 0;
  Usage first;
  Usage last;
  std::vector<std::string> problems;
};

class Controller {
 public:
  explicit Controller(const Options& options);

  // False if no server could be started at all.
  bool start();
  // To the end, or to the first thing after which it makes no sense to go on.
  Outcome run();

 private:
  struct Disturbed {
    Time until;
    bool dead;  // else stopped
  };

  [[nodiscard]] bool stuck() const;
  bool turn();
  void feed();
  void progress();
  void restore_clients(bool all);
  void disturb_client();
  bool disturb(Time part, bool with_restarts);
  bool restart_server();
  bool measure(Usage& usage);
  bool finish();
  void add_problem(const std::string& problem) { outcome_.problems.push_back(problem); }
  Time between(Time least, Time most);

  const Options options_;
  std::mt19937 random_;
  const Time origin_;
  const Time window_;  // of a measurement
  Account account_;
  Stage stage_;
  std::map<int, Disturbed> disturbed_;
  Time fed_;         // up to here all events have been told to the account
  Time judged_ = 0;  // the last look at it
  Time told_;
  Time held_up_ = 0;  // by processes that took their time to die or to start
  bool failed_ = false;
  Outcome outcome_;
};

}  // namespace zedipc::soak
