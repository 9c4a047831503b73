// SPDX-License-Identifier: MIT
// Plays a story with the example programs: starts each as a process, has them talk, kills
// some of them, and checks that all that should arrive does.
//
//   demo
//
// The exit status is 0 only if everything arrived. Takes about 12 seconds, 10 of which
// are the pause that a client makes before it looks for a lost server.
#include <signal.h>
#include <unistd.h>
#include <zedipc/tcp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "common/tcp_table.h"
#include "demo/cast.h"
#include "demo/ledger.h"
#include "demo/screen.h"
#include "demo/story.h"
#include "program.h"

namespace {

constexpr std::chrono::seconds kLongestStory{35};
constexpr unsigned int kLastResort = 39;  // seconds, to an end by SIGALRM

// Whether a server could open its port; says why if not.
bool port_is_free() {
  zedipc::TCP probe;
  if (probe.listen(common::kPort, "127.0.0.1")) return true;
  const std::string owner = common::describe_port_owner();
  if (owner.empty()) {
    std::fprintf(stderr,
                 "demo: port %d cannot be opened on 127.0.0.1, and nobody is to be seen who has "
                 "it. Is the loopback interface up?\n",
                 common::kPort);
  } else {
    std::fprintf(stderr,
                 "demo: port %d, which the notification server needs, is taken by %s. End that "
                 "process, or run the demo in a network namespace of its own.\n",
                 common::kPort, owner.c_str());
  }
  return false;
}

std::string summary(const demo::Ledger& ledger) {
  const auto count = [&](const std::string& beginning) {
    const auto begins = [&](const demo::Arrival& arrival) {
      return arrival.second.compare(0, beginning.size(), beginning) == 0;
    };
    return std::to_string(
        std::count_if(ledger.expected().begin(), ledger.expected().end(), begins));
  };
  return "all " + count("got ") + " expected notifications arrived, the monitor saw all " +
         count("saw ") + " deliveries, and the printer was told of all " + count("nobody took ") +
         " failures";
}

// Says what went wrong, and of everything that is missing or too much, what it is.
void explain(const demo::Screen& screen, const demo::Ledger& ledger, const std::string& reason) {
  screen.verdict(false, "FAILED: " + reason);
  for (const demo::Arrival& arrival : ledger.missing()) {
    screen.verdict(false, "missing: " + demo::describe(arrival));
  }
  for (const demo::Arrival& arrival : ledger.unexpected()) {
    screen.verdict(false, "unexpected: " + demo::describe(arrival));
  }
}

bool play() {
  demo::Screen screen;
  demo::Ledger ledger;
  try {
    demo::Cast cast(screen, ledger, demo::Clock::now() + kLongestStory);
    demo::Story(screen, ledger, cast).play();
  } catch (const demo::StoryError& error) {
    explain(screen, ledger, error.what());
    return false;
  }
  const bool good = ledger.missing().empty() && ledger.unexpected().empty();
  if (!good) {
    explain(screen, ledger, "not everything is as it should be");
    return false;
  }
  std::putchar('\n');
  screen.verdict(true, summary(ledger));
  return true;
}

}  // namespace

int main(int argc, char** /*argv*/) {
  if (argc != 1) {
    std::fprintf(stderr, "usage: demo\n");
    return example::kUsage;
  }
  alarm(kLastResort);
  signal(SIGPIPE, SIG_IGN);   // a broken pipe is to end the demo like any other failure
  unsetenv("NOTIFY_SERVER");  // the story takes place on this machine
  if (!port_is_free()) return example::kFailed;
  try {
    return play() ? example::kDone : example::kFailed;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "demo: %s\n", error.what());
    return example::kFailed;
  }
}
