// SPDX-License-Identifier: MIT
// What the example programs share: how they end, and how they say that there is no server.
#pragma once

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace example {

// The exit status of every example.
constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

// Ctrl-C (SIGINT) and SIGTERM, as something to wait for.
//
// Make it first of all: threads inherit the mask of the thread that starts them, and
// the library starts its own at the first call. With the signals blocked in all of
// them, one thread fetches a signal at a moment of its own choice, and none has to
// live with the narrow rules of a signal handler.
class EndSignal {
 public:
  EndSignal() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  }

  // Returns when the program is asked to end. A second signal ends it at once, in case
  // the tidying up waits for a server that does not answer.
  void wait() const {
    int signal = 0;
    sigwait(&signals_, &signal);
    pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
  }

  // Waits until `fd` has input; false if the program is asked to end first.
  [[nodiscard]] bool comes_after_input_on(int fd) const {
    const int signals = signalfd(-1, &signals_, SFD_CLOEXEC);
    pollfd waited[] = {{signals, POLLIN, 0}, {fd, POLLIN, 0}};
    poll(waited, 2, -1);
    if (signals != -1) close(signals);
    return waited[0].revents == 0;
  }

 private:
  sigset_t signals_;
};

// The host that the library looks for the notification server on.
inline std::string server_host() {
  const char* const host = std::getenv("NOTIFY_SERVER");
  return host != nullptr ? host : "127.0.0.1";
}

// Why a Pipe cannot listen.
inline std::string cannot_listen(const std::string& program, const std::string& path) {
  return program + ": cannot listen on " + path +
         ": a process listens there already, or the file cannot be made, or its name is longer "
         "than 107 bytes. Take another name.\n";
}

// What kNotifyNotConnected nearly always means.
inline std::string no_server() {
  return "no notification server answers at " + server_host() +
         ", port 5899. Start the program 'server', or name its host in NOTIFY_SERVER.";
}

}  // namespace example
