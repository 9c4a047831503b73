// SPDX-License-Identifier: MIT
#include "demo/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace demo {

namespace {

struct PipeEnds {
  int read = -1;
  int write = -1;

  PipeEnds() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    read = ends[0];
    write = ends[1];
  }
  ~PipeEnds() {
    if (read != -1) close(read);
    if (write != -1) close(write);
  }
  PipeEnds(const PipeEnds&) = delete;
  PipeEnds& operator=(const PipeEnds&) = delete;

  // Gives an end away.
  static int take(int& end) { return std::exchange(end, -1); }
};

// In the child, between fork and exec.
[[noreturn]] void become(const char* program, char* const* argv, const PipeEnds& input,
                         const PipeEnds& output, const PipeEnds& failure, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);  // the parent ended before the line above
  setpgid(0, 0);                      // so that Ctrl-C reaches the parent alone
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  dup2(input.read, STDIN_FILENO);
  dup2(output.write, STDOUT_FILENO);
  dup2(output.write, STDERR_FILENO);
  execv(program, argv);
  const int reason = errno;
  [[maybe_unused]] const ssize_t written = write(failure.write, &reason, sizeof reason);
  _exit(1);
}

// A null-terminated array for exec.
std::vector<char*> argument_array(const std::string& program,
                                  const std::vector<std::string>& arguments) {
  std::vector<char*> array{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments)
    array.push_back(const_cast<char*>(argument.c_str()));
  array.push_back(nullptr);
  return array;
}

ssize_t read_some(int fd, void* data, std::size_t size) {
  ssize_t count;
  do {
    count = read(fd, data, size);
  } while (count == -1 && errno == EINTR);
  return count;
}

}  // namespace

Process::Process(std::string name, const std::string& program,
                 const std::vector<std::string>& arguments)
    : name_(std::move(name)) {
  PipeEnds input;
  PipeEnds output;
  PipeEnds failure;  // closes by itself when exec succeeds
  const std::vector<char*> argv = argument_array(program, arguments);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) become(program.c_str(), argv.data(), input, output, failure, parent);
  if (pid_ == -1) {
    throw std::runtime_error("cannot start " + name_ + ": " + std::strerror(errno));
  }
  close(PipeEnds::take(failure.write));
  int reason = 0;
  if (read_some(failure.read, &reason, sizeof reason) == sizeof reason) {
    waitpid(pid_, nullptr, 0);
    throw std::runtime_error("cannot run " + program + ": " + std::strerror(reason) +
                             ". Build all example programs; they belong into one directory.");
  }
  input_ = PipeEnds::take(input.write);
  output_ = PipeEnds::take(output.read);
}

Process::~Process() {
  if (!ended_) {
    kill(pid_, SIGKILL);
    reap();
  }
  close(input_);
}

std::vector<std::string> Process::read_lines() {
  char chunk[4096];
  const ssize_t count = read_some(output_, chunk, sizeof chunk);
  std::vector<std::string> lines;
  if (count <= 0) {
    if (!partial_.empty()) lines.push_back(std::exchange(partial_, ""));
    reap();
    return lines;
  }
  partial_.append(chunk, static_cast<std::size_t>(count));
  for (std::size_t end; (end = partial_.find('\n')) != std::string::npos;) {
    lines.push_back(partial_.substr(0, end));
    partial_.erase(0, end + 1);
  }
  return lines;
}

void Process::send_line(const std::string& line) const {
  const std::string text = line + "\n";  // short enough for a pipe to take whole
  if (write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error("cannot write to " + name_ + ": " + std::strerror(errno));
  }
}

void Process::signal(int number) const {
  if (!ended_) kill(pid_, number);
}

void Process::reap() {
  while (waitpid(pid_, &status_, 0) == -1 && errno == EINTR) {
  }
  ended_ = true;
  close(std::exchange(output_, -1));
}

int Process::exit_status() const { return WIFEXITED(status_) ? WEXITSTATUS(status_) : -1; }

std::string Process::describe_end() const {
  if (WIFSIGNALED(status_)) return std::string("signal: ") + strsignal(WTERMSIG(status_));
  return "exit status " + std::to_string(exit_status());
}

std::string own_directory() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

}  // namespace demo
