// SPDX-License-Identifier: MIT
// The processes of the demo, and waiting for what they do.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "demo/ledger.h"
#include "demo/process.h"
#include "demo/screen.h"

namespace demo {

// The story cannot go on.
class StoryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using Clock = std::chrono::steady_clock;

// Prints each line of each process, lines of the same moment in the order in which the
// processes were first started, and enters those that tell of an arrival in the
// ledger. When it goes, all processes are killed.
class Cast {
 public:
  Cast(Screen& screen, Ledger& ledger, Clock::time_point deadline);
  ~Cast();
  Cast(const Cast&) = delete;
  Cast& operator=(const Cast&) = delete;

  // Starts one of the programs beside this one. A former process of the name must
  // have ended.
  void start(const std::string& name, const std::string& program,
             const std::vector<std::string>& arguments = {});

  // A process that was started, whether it has ended or not.
  [[nodiscard]] const Process& operator[](const std::string& name) const;

  // Whether the process has printed a line that begins so.
  [[nodiscard]] bool said(const std::string& name, const std::string& beginning) const;

  // Ends a process by a signal, and waits for its end.
  void end(const std::string& name, int signal);

  // Waits for a condition, looking again whenever a process has printed something, and
  // every few milliseconds. `what` completes "waited in vain until ...". Throws
  // StoryError if it takes too long, if something unexpected arrives, if a process
  // ends that was not told to, or if the demo is interrupted.
  void wait_until(const std::string& what, const std::function<bool()>& condition);

  // The same, but gives false after `patience`.
  bool happens_within(std::chrono::milliseconds patience, const std::function<bool()>& condition);

 private:
  void pump();
  // Those that have output, or have ended.
  std::vector<Process*> poll_outputs(int timeout_msec);
  void read_from(const Process& process, const std::vector<std::string>& lines);
  void check() const;

  Screen& screen_;
  Ledger& ledger_;
  Clock::time_point deadline_;
  int signals_;  // a descriptor that is readable once the demo is to end
  std::vector<std::unique_ptr<Process>> processes_;        // in order of their first start
  std::map<std::string, std::vector<std::string>> lines_;  // of each process
  std::set<std::string> told_to_end_;
};

}  // namespace demo
