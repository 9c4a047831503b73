// SPDX-License-Identifier: MIT
#include "soak/controller.h"

#include <algorithm>
#include <cstdio>

#include "support/instrumented.h"

namespace zedipc::soak {

namespace {

using test::kInstrumented;

// Under a sanitizer the threads of a busy process wait for its allocator, not in turn.
constexpr Time kSlowness = (kInstrumented ? 15 : 3) * kSecond;
// What happened may be written this much later.
constexpr Time kReportDelay = 5 * kSecond;
constexpr Time kJudgePause = kSecond / 2;
constexpr Time kProgressPause = 60 * kSecond;
// A round takes less than a second, but the machine may be busy.
constexpr Time kRoundLimit = 60 * kSecond;
constexpr Time kMostComplete = 30 * kSecond;

}  // namespace

Controller::Controller(const Options& options)
    : options_(options),
      random_(options.seed),
      origin_(now()),
      window_(std::min<Time>(60, options.seconds / 10) * kSecond),
      account_(origin_, kSlowness),
      stage_(options.seed),
      fed_(origin_ - kReportDelay),
      told_(origin_) {}

bool Controller::start() {
  if (!stage_.start_server()) return false;
  for (int number = 0; number < kClients; ++number) stage_.start_client(number);
  return true;
}

// The server's last life takes the second half, and is measured at both ends.
Outcome Controller::run() {
  const Time length = options_.seconds * kSecond;
  const bool done = disturb(length * 2 / 5, true) && disturb(length * 9 / 20, false) &&
                    measure(outcome_.first) && disturb(length - window_, false) &&
                    measure(outcome_.last) && finish();
  auto& problems = outcome_.problems;
  const auto append = [&](const std::vector<std::string>& more) {
    problems.insert(problems.end(), more.begin(), more.end());
  };
  if (done) append(growth(outcome_.first, outcome_.last, !kInstrumented));
  append(stage_.problems());
  append(account_.problems());
  if (!problems.empty() && stage_.late() != 0) {
    add_problem(std::to_string(stage_.late()) + " reports came too late: the machine is too busy");
  }
  outcome_.totals = account_.totals();
  return outcome_;
}

Time Controller::between(Time least, Time most) {
  return least + static_cast<Time>(random_() % static_cast<unsigned long>(most - least));
}

// One look at everything; false if the run makes no sense any more.
bool Controller::turn() {
  stage_.read(20);
  restore_clients(false);
  if (now() > judged_ + kJudgePause) feed();
  if (!failed_ && !stage_.broken() && stuck()) {
    std::string names;
    for (const Life life : account_.history().rounds.awaited()) {
      names += " " + account_.history().name(life);
    }
    // A client to which the system refuses a callback's thread waits for that callback
    // for ever once it unregisters it.
    add_problem("no trips for a minute by" + names +
                ": they hang, or the system has refused them threads");
    failed_ = true;
  }
  return !failed_ && !stage_.broken();
}

bool Controller::stuck() const {
  return fed_ > std::max(origin_, account_.history().rounds.newest()) + kRoundLimit;
}

void Controller::feed() {
  judged_ = now();
  fed_ = std::max(fed_, stage_.heard_until() - kReportDelay);
  for (const Event& event : stage_.take_events(fed_)) account_.note(event);
  account_.judge_settled(fed_);
  progress();
}

void Controller::progress() {
  if (now() < told_ + kProgressPause) return;
  told_ = now();
  std::printf("  after %3ld s: %lu unicasts, %zu problems\n",
              static_cast<long>((told_ - origin_) / kSecond), account_.totals().unicasts(),
              account_.problems().size() + stage_.problems().size());
  std::fflush(stdout);
}

void Controller::restore_clients(bool all) {
  const Time time = now();
  for (auto it = disturbed_.begin(); it != disturbed_.end();) {
    const auto& [number, disturbed] = *it;
    if (!all && disturbed.until > time) {
      ++it;
      continue;
    }
    if (disturbed.dead) {
      stage_.start_client(number);
    } else {
      stage_.continue_client(number);
    }
    it = disturbed_.erase(it);
  }
}

void Controller::disturb_client() {
  const int number = static_cast<int>(between(1, kClients));
  if (disturbed_.count(number) != 0) return;
  if (between(0, 2) == 0) {
    stage_.kill_client(number);
    ++outcome_.kills;
    disturbed_[number] = {now() + between(0, kSecond / 2), true};
  } else {
    stage_.stop_client(number);
    ++outcome_.stalls;
    disturbed_[number] = {now() + between(50 * kMillisecond, 800 * kMillisecond), false};
  }
}

// Until this much of the run is over.
bool Controller::disturb(Time part, bool with_restarts) {
  Time next_client = now() + between(0, 2 * kSecond);
  Time next_server = now() + between(3 * kSecond, 6 * kSecond);
  while (now() < origin_ + part + held_up_) {
    if (!turn()) return false;
    const Time begin = now();
    if (begin > next_client) {
      disturb_client();
      next_client = now() + between(kSecond / 4, 2 * kSecond);
    }
    if (with_restarts && now() > next_server) {
      if (!restart_server()) return false;
      next_server = now() + between(8 * kSecond, 25 * kSecond);
    }
    held_up_ += now() - begin;
  }
  return true;
}

bool Controller::restart_server() {
  stage_.kill_server();
  ++outcome_.restarts;
  const Time start = now() + between(0, kSecond);
  while (now() < start) {
    if (!turn()) return false;
  }
  if (stage_.start_server()) return true;
  add_problem("the server did not start again");
  return false;
}

// With all clients connected, for the length of a window.
bool Controller::measure(Usage& usage) {
  restore_clients(true);
  const Time deadline = now() + kMostComplete;
  while (!stage_.complete(stage_.server_usage()) && now() < deadline) {
    if (!turn()) return false;
  }
  std::vector<Usage> samples;
  const Time end = now() + window_;
  while (now() < end) {
    if (!turn()) return false;
    samples.push_back(stage_.server_usage());
  }
  usage = typical(samples);
  if (!stage_.complete(usage)) {
    add_problem("the server holds " + std::to_string(usage.descriptors) + " descriptors and " +
                std::to_string(usage.threads) + " threads, which is not what its clients need");
  }
  return true;
}

// Lets all that is on its way come to its end.
bool Controller::finish() {
  stage_.quieten();
  const Time quiet = now();
  while (fed_ < quiet || account_.open(quiet) != 0) {
    if (!turn()) return false;
  }
  return true;
}

}  // namespace zedipc::soak
