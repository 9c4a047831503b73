// SPDX-License-Identifier: MIT
// A thread that passes the log on, and drops what nobody reads.
#include "zedipc/log_relay.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "zedipc/output.h"

namespace command {

namespace {

constexpr std::size_t kMostKept = std::size_t{256} * 1024;
constexpr std::chrono::seconds kForTheRest{1};

bool log_is_wanted() {
  return std::getenv("IPC_LOGMASK") != nullptr || std::getenv("NFY_LOGMASK") != nullptr;
}

bool can_keep_waiting(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return false;
  return S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || isatty(fd) == 1;
}

// Lines that wait for the reader.
class Backlog {
 public:
  void add(const char* text, std::size_t size) {
    for (const char* const end = text + size; text < end;) {
      const char* const line_end = std::find(text, end, '\n');
      const bool whole = line_end != end;
      line_.append(text, line_end + (whole ? 1 : 0));
      text = line_end + (whole ? 1 : 0);
      if (whole || line_.size() > kMostKept) finish_line();
    }
  }

  // Takes what there is of a line for a whole one.
  void finish_line() {
    if (text_.size() + line_.size() > kMostKept) {
      ++lost_;
    } else if (!line_.empty()) {
      note_loss();
      text_ += line_;
    }
    line_.clear();
  }

  // A pipe that poll() calls writable takes that much.
  void write_some(int fd) {
    const ssize_t count = write(fd, text_.data(), std::min<std::size_t>(text_.size(), PIPE_BUF));
    if (count > 0) {
      text_.erase(0, static_cast<std::size_t>(count));
    } else if (errno != EINTR && errno != EAGAIN) {
      text_.clear();  // the reader has gone
    }
    if (text_.empty()) note_loss();
  }

  [[nodiscard]] bool empty() const { return text_.empty(); }

 private:
  void note_loss() {
    if (lost_ == 0) return;
    text_ += "zedipc: " + std::to_string(lost_) +
             " lines of the log are missing here: nobody read standard error\n";
    lost_ = 0;
  }

  std::string text_;
  std::string line_;  // the beginning of the next one
  unsigned long lost_ = 0;
};

// Returns when it is asked to end and has passed on everything.
void relay(int from, int to, int end) {
  Backlog backlog;
  char chunk[65536];
  for (bool ending = false;;) {
    pollfd waited[] = {
        {from, POLLIN, 0}, {backlog.empty() ? -1 : to, POLLOUT, 0}, {ending ? -1 : end, POLLIN, 0}};
    // At the end it takes what is there, and waits for no more.
    if (poll(waited, 3, ending && backlog.empty() ? 0 : -1) == 0) return;
    if (waited[0].revents != 0) {
      const ssize_t count = read(from, chunk, sizeof chunk);
      if (count > 0) backlog.add(chunk, static_cast<std::size_t>(count));
    } else if (waited[2].revents != 0) {
      ending = true;
      backlog.finish_line();
    }
    if (waited[1].revents != 0) backlog.write_some(to);
  }
}

[[noreturn]] void give_up() {
  throw Failure(std::string("cannot pass on the log: ") + std::strerror(errno));
}

}  // namespace

LogRelay::LogRelay() {
  if (!log_is_wanted() || !can_keep_waiting(STDERR_FILENO)) return;
  int ends[2];
  error_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  end_ = eventfd(0, EFD_CLOEXEC);
  if (error_ == -1 || end_ == -1 || pipe2(ends, O_CLOEXEC) != 0) give_up();
  std::promise<void> done;
  passed_on_ = done.get_future();
  std::thread([from = ends[0], to = error_, end = end_, done = std::move(done)]() mutable {
    relay(from, to, end);
    done.set_value();
  }).detach();
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
}

// The descriptors stay open: the thread may still use them, and the process is ending.
LogRelay::~LogRelay() {
  if (!passed_on_.valid()) return;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t count = write(end_, &one, sizeof one);
  if (passed_on_.wait_for(kForTheRest) == std::future_status::ready) dup2(error_, STDERR_FILENO);
}

}  // namespace command
