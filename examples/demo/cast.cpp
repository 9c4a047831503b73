// SPDX-License-Identifier: MIT
#include "demo/cast.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace demo {

namespace {

constexpr std::chrono::seconds kLongestWait{15};
constexpr int kLookAgain = 20;  // milliseconds
constexpr int kMoment = 3;      // milliseconds

bool begins_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

int open_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const int fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd == -1) {
    throw std::runtime_error(std::string("cannot wait for signals: ") + std::strerror(errno));
  }
  return fd;
}

// What a line says to the ledger, "" if nothing: that something came, or failed to. Of
// a failure to send it keeps what was to be sent, without the reason.
std::string arrival_in(const std::string& text) {
  if (begins_with(text, "cannot send ")) return text.substr(0, text.find(':'));
  for (const char* beginning : {"got ", "saw ", "nobody took "}) {
    if (begins_with(text, beginning)) return text;
  }
  return "";
}

}  // namespace

Cast::Cast(Screen& screen, Ledger& ledger, Clock::time_point deadline)
    : screen_(screen), ledger_(ledger), deadline_(deadline), signals_(open_signals()) {}

Cast::~Cast() { close(signals_); }

void Cast::start(const std::string& name, const std::string& program,
                 const std::vector<std::string>& arguments) {
  auto process = std::make_unique<Process>(name, own_directory() + "/" + program, arguments);
  lines_.erase(name);
  told_to_end_.erase(name);
  const auto former =
      std::find_if(processes_.begin(), processes_.end(),
                   [&](const std::unique_ptr<Process>& p) { return p->name() == name; });
  if (former != processes_.end()) {
    *former = std::move(process);
  } else {
    processes_.push_back(std::move(process));
  }
}

const Process& Cast::operator[](const std::string& name) const {
  for (const auto& process : processes_) {
    if (process->name() == name) return *process;
  }
  throw std::logic_error("no process was started as " + name);
}

bool Cast::said(const std::string& name, const std::string& beginning) const {
  const auto found = lines_.find(name);
  return found != lines_.end() &&
         std::any_of(found->second.begin(), found->second.end(),
                     [&](const std::string& line) { return begins_with(line, beginning); });
}

void Cast::end(const std::string& name, int signal) {
  const Process& process = (*this)[name];
  told_to_end_.insert(name);
  process.signal(signal);
  wait_until(name + " ends", [&] { return process.ended(); });
}

void Cast::wait_until(const std::string& what, const std::function<bool()>& condition) {
  if (!happens_within(kLongestWait, condition)) {
    throw StoryError("waited in vain until " + what);
  }
}

bool Cast::happens_within(std::chrono::milliseconds patience,
                          const std::function<bool()>& condition) {
  const Clock::time_point limit = std::min(Clock::now() + patience, deadline_);
  for (;;) {
    check();
    if (condition()) return true;
    if (Clock::now() >= deadline_) throw StoryError("the demo takes too long");
    if (Clock::now() >= limit) return false;
    pump();
  }
}

// Waits a while for output, and takes what has come. Processes that one cause makes
// speak do so in any order; giving all of them a moment makes the order of the lines
// the same each time, or nearly so.
void Cast::pump() {
  if (poll_outputs(kLookAgain).empty()) return;
  usleep(kMoment * 1000);
  for (Process* const process : poll_outputs(0)) read_from(*process, process->read_lines());
}

std::vector<Process*> Cast::poll_outputs(int timeout_msec) {
  std::vector<Process*> running;
  std::vector<pollfd> polled{{signals_, POLLIN, 0}};
  for (const auto& process : processes_) {
    if (process->ended()) continue;
    running.push_back(process.get());
    polled.push_back({process->output(), POLLIN, 0});
  }
  if (poll(polled.data(), polled.size(), timeout_msec) == -1) {
    if (errno == EINTR) return {};
    throw std::runtime_error(std::string("cannot wait for output: ") + std::strerror(errno));
  }
  if (polled[0].revents != 0) throw StoryError("interrupted");
  std::vector<Process*> readable;
  for (std::size_t i = 0; i < running.size(); ++i) {
    if (polled[i + 1].revents != 0) readable.push_back(running[i]);
  }
  return readable;
}

void Cast::read_from(const Process& process, const std::vector<std::string>& lines) {
  const std::string prefix = process.name() + ": ";
  for (const std::string& line : lines) {
    // What the library says of its log, once in each process, is no part of the story.
    if (begins_with(line, "DBGLOG <")) continue;
    // The programs name themselves too; once is enough.
    const std::string text = begins_with(line, prefix) ? line.substr(prefix.size()) : line;
    screen_.line(process.name(), text);
    lines_[process.name()].push_back(text);
    const std::string arrival = arrival_in(text);
    if (!arrival.empty()) ledger_.record({process.name(), arrival});
  }
}

void Cast::check() const {
  if (!ledger_.unexpected().empty()) throw StoryError("something unexpected has arrived");
  for (const auto& process : processes_) {
    if (process->ended() && told_to_end_.count(process->name()) == 0) {
      throw StoryError(process->name() + " ended by itself: " + process->describe_end());
    }
  }
}

}  // namespace demo
