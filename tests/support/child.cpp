// SPDX-License-Identifier: MIT
#include "support/child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "support/patience.h"

namespace zedipc::test {

namespace {

std::string contents(int fd) {
  struct stat status;
  fstat(fd, &status);
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t count = pread(fd, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}

// What a process has covered is written by exit and no other way.
#ifdef ZEDIPC_COVERAGE
constexpr bool kCoverage = true;
#else
constexpr bool kCoverage = false;
#endif

[[noreturn]] void end_by_exit(int status) {
  setenv(kEndsByExit, "1", 1);
  std::exit(status);
}

[[noreturn]] void end_child() {
  std::fflush(nullptr);
  const int status = ::testing::Test::HasFailure() ? 1 : 0;
  if (kCoverage) end_by_exit(status);
  _exit(status);
}

// Has a process end by exit if it does so within two seconds.
void ask_to_end(pid_t pid) {
  ::kill(pid, SIGTERM);
  eventually(
      [&] {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
        return info.si_pid == pid;
      },
      2000);
}

// A file in memory for what a process writes. Writing appends, since such a file has no
// lock for the place where its writers are: one thread's line would take the place of
// another's.
int new_output(const char* name) {
  const int fd = memfd_create(name, MFD_CLOEXEC);
  fcntl(fd, F_SETFL, O_APPEND);
  return fd;
}

}  // namespace

bool eventually(const std::function<bool()>& condition, int msec) {
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(patience(msec));
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

Child::Child(const Environment& environment, const std::function<void()>& body)
    : out_fd_(new_output("stdout")), err_fd_(new_output("stderr")) {
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(out_fd_, STDOUT_FILENO);
  dup2(err_fd_, STDERR_FILENO);
  for (const char* name : {"IPC_LOGMASK", "NFY_LOGMASK", "NOTIFY_SERVER"}) unsetenv(name);
  for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
  if (kCoverage) signal(SIGTERM, [](int) { end_by_exit(0); });
  body();
  end_child();
}

Child::~Child() {
  if (pid_ != -1) {
    kill(SIGKILL);
    wait();
  }
  close(out_fd_);
  close(err_fd_);
}

std::string Child::out() const { return contents(out_fd_); }

std::string Child::err() const { return contents(err_fd_); }

bool Child::wait_for_err(const std::string& text) const {
  return eventually([&] { return err().find(text) != std::string::npos; });
}

void Child::kill(int signal) {
  if (pid_ == -1) return;
  if (kCoverage && signal == SIGKILL) ask_to_end(pid_);
  ::kill(pid_, signal);
}

int Child::wait(int seconds) {
  if (pid_ == -1) return status_;
  int status = 0;
  const bool ended =
      eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, seconds * 1000);
  if (!ended) {
    kill(SIGKILL);
    waitpid(pid_, &status, 0);
  }
  pid_ = -1;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return status_;
}

ChildResult run_in_child(const Environment& environment, const std::function<void()>& body) {
  Child child(environment, body);
  const int status = child.wait();
  return {status, child.out(), child.err()};
}

}  // namespace zedipc::test
