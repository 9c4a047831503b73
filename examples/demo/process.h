// SPDX-License-Identifier: MIT
// A program run as a child process, whose lines are read and which is given lines.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace demo {

// The child never outlives this process: the destructor kills it, and the kernel does
// should this process end in any other way.
class Process {
 public:
  // Starts a program; its standard error goes the way of its standard output.
  // Throws std::runtime_error if that fails.
  Process(std::string name, const std::string& program, const std::vector<std::string>& arguments);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] pid_t pid() const { return pid_; }

  // For poll(2): readable when there is output or its end; -1 after the end.
  [[nodiscard]] int output() const { return output_; }

  // The lines that are complete by now. Blocks if output() is not readable. At the end
  // of the output it waits for the end of the process.
  std::vector<std::string> read_lines();

  void send_line(const std::string& line) const;
  void signal(int number) const;

  [[nodiscard]] bool ended() const { return ended_; }
  // Whether it ended with status 0.
  [[nodiscard]] bool succeeded() const { return ended_ && status_ == 0; }
  // Its exit status, or -1 if it was ended by a signal.
  [[nodiscard]] int exit_status() const;
  // How it ended, in words, as in "exit status 1".
  [[nodiscard]] std::string describe_end() const;

 private:
  void reap();

  std::string name_;
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string partial_;  // a line that is not complete yet
  bool ended_ = false;
  int status_ = 0;  // as waitpid(2) gives it
};

// The directory that this program was started from.
std::string own_directory();

}  // namespace demo
