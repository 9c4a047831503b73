// SPDX-License-Identifier: MIT
// The notification as an environment, and the shell or program that gets it.
#include "zedipc/execute.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include "zedipc/output.h"
#include "zedipc/text.h"

namespace command {

namespace {

constexpr char kPrefix[] = "ZEDIPC_";

// A file in memory: a pipe would have to be fed while the command runs.
class Input {
 public:
  explicit Input(const std::string& text) : fd_(memfd_create("parameter", MFD_CLOEXEC)) {
    for (std::size_t done = 0; fd_ != -1 && done < text.size();) {
      const ssize_t count = write(fd_, text.data() + done, text.size() - done);
      if (count <= 0) break;
      done += static_cast<std::size_t>(count);
    }
    lseek(fd_, 0, SEEK_SET);
  }
  ~Input() { close(fd_); }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  [[nodiscard]] int fd() const { return fd_; }

 private:
  int fd_;
};

// What posix_spawn needs besides the command.
class SpawnSettings {
 public:
  explicit SpawnSettings(int input) {
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);  // the one that this process ignores
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  posix_spawn_file_actions_t files{};
  posix_spawnattr_t attributes{};
};

// "NAME=VALUE"; a zero byte would end the value, so it becomes an escape.
std::string variable(const std::string& name, const std::string& value) {
  std::string text = kPrefix + name + "=";
  for (const char byte : value) {
    if (byte == '\0') {
      text += "\\u0000";
    } else {
      text += byte;
    }
  }
  return text;
}

std::vector<std::string> environment_of(const Message& message) {
  std::vector<std::string> result{variable("FROM", message.from), variable("TO", message.to),
                                  variable("NOTIFICATION", message.notification),
                                  variable("FLAGS", std::to_string(message.flags))};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const auto same = [&](const std::string& ours) {
      return text.compare(0, ours.find('=') + 1, ours, 0, ours.find('=') + 1) == 0;
    };
    if (std::none_of(result.begin(), result.begin() + 4, same)) result.push_back(text);
  }
  return result;
}

// A null-terminated array for posix_spawn, of the strings' own text.
std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (std::string& text : strings) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

std::string end_in_words(int status) {
  if (WIFSIGNALED(status)) return std::string("signal ") + strsignal(WTERMSIG(status));
  return "exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Execution::Execution(const std::string& command, bool shell) : command_(printable(command)) {
  if (shell) {
    words_ = {"/bin/sh", "-c", command};
    return;
  }
  std::istringstream in(command);
  for (std::string word; in >> word;) words_.push_back(word);
  if (words_.empty()) throw Failure("--exec has no command");
}

void Execution::run(const Message& message) const {
  const Input input(valid_json(message.parameter.dump()));
  const SpawnSettings settings(input.fd());
  std::vector<std::string> words = words_;
  std::vector<std::string> environment = environment_of(message);
  pid_t pid = -1;
  const int error = posix_spawnp(&pid, words.front().c_str(), &settings.files, &settings.attributes,
                                 pointers(words).data(), pointers(environment).data());
  if (error == E2BIG) {
    say("cannot run '" + command_ + "' for " + printable(message.notification) + " from " +
        clipped(printable(message.from), 40) + ": its names are too long");
    return;
  }
  if (error != 0) throw Failure("cannot run '" + command_ + "': " + std::strerror(error));
  int status = 0;
  while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
  }
  if (status != 0) say("'" + command_ + "' ended with " + end_in_words(status));
}

}  // namespace command
