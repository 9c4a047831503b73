// SPDX-License-Identifier: MIT
#include "harness/crew.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

constexpr Nanoseconds kPatience = 20000000000;
constexpr unsigned kPause = 1000;  // microseconds between two looks

// Such a line is "VmHWM:      1234 kB"; a file without it gives 0.
long status_value(const std::string& file, const std::string& key) {
  std::ifstream in(file);
  std::string word;
  long value = 0;
  while (in >> word) {
    if (word == key + ":" && in >> value) return value;
  }
  return 0;
}

}  // namespace

Crew::~Crew() {
  for (const Member& member : members_) kill(member.pid, SIGKILL);
  for (const Member& member : members_) waitpid(member.pid, nullptr, 0);
}

pid_t Crew::start(const std::string& name, const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == -1) throw std::runtime_error("cannot start the " + name);
  if (pid != 0) {
    members_.push_back({pid, name});
    return pid;
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);  // it ended before the line above
  try {
    body();
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), problem.what());
  }
  _exit(1);
}

void Crew::wait_until(const std::string& what, const std::function<bool()>& condition) {
  const Nanoseconds deadline = now() + kPatience;
  while (!condition()) {
    require_all_alive();
    if (now() > deadline) throw std::runtime_error("waited in vain until " + what);
    usleep(kPause);
  }
}

void Crew::require_all_alive() {
  for (const Member& member : members_) {
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(member.pid), &info, WEXITED | WNOHANG | WNOWAIT);
    if (info.si_pid == member.pid) throw std::runtime_error("the " + member.name + " has ended");
  }
}

void stay() {
  for (;;) pause();
}

Nanoseconds cpu_time(pid_t pid) {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("cannot tell the processor time of process " + std::to_string(pid));
  }
  return Nanoseconds{time.tv_sec} * 1000000000 + time.tv_nsec;
}

long peak_memory(pid_t pid) {
  return status_value("/proc/" + std::to_string(pid) + "/status", "VmHWM");
}

long sleeps(pid_t pid) {
  long count = 0;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    count += status_value(thread.path() / "status", "voluntary_ctxt_switches");
  }
  return count;
}

}  // namespace bench
