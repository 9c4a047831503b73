// SPDX-License-Identifier: MIT
// A long run of the notification service under disturbance, with an account of every
// message: soak [SECONDS [SEED]]. Ends with 0 if all went well, with 1 if not, with 2
// if it could not run.
#include <unistd.h>
#include <zedipc/notify.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>
#include <string>
#include <vector>

#include "soak/arguments.h"
#include "soak/client.h"
#include "soak/controller.h"
#include "soak/table.h"

using namespace zedipc;
using namespace zedipc::soak;

namespace {

constexpr int kPassed = 0;
constexpr int kFailed = 1;
constexpr int kCannotRun = 2;

constexpr std::size_t kMostStories = 20;

// The controller has to keep pace with all the others, and what else runs on the machine
// is not to suffer.
void give_way() { [[maybe_unused]] const int niceness = nice(5); }

int run_server(const char* rules) {
  std::printf("ipcNotificationServer() returned %d\n", ipcNotificationServer(rules));
  return kFailed;
}

ClientOptions client_options(char** arguments) {
  const auto number = [&](int i) { return std::strtoul(arguments[i], nullptr, 10); };
  return {static_cast<int>(number(0)), static_cast<Life>(number(1)),
          static_cast<unsigned>(number(2))};
}

void print_problems(const std::vector<std::string>& problems) {
  const std::size_t shown = std::min(problems.size(), kMostStories);
  for (std::size_t i = 0; i < shown; ++i) std::printf("soak: %s\n", problems[i].c_str());
  if (shown < problems.size()) std::printf("soak: and %zu more\n", problems.size() - shown);
}

int run_soak(const Options& options) {
  // A client that logs would mix its lines with its reports.
  setenv("NFY_LOGMASK", "0", 1);
  setenv("IPC_LOGMASK", "0", 1);
  std::printf("soak: %d seconds, seed %u\n", options.seconds, options.seed);
  std::fflush(stdout);
  Controller controller(options);
  if (!controller.start()) {
    std::fprintf(stderr, "soak: cannot start a server on port 5899; does one run already?\n");
    return kCannotRun;
  }
  Outcome outcome = controller.run();
  for (const std::string& problem : shortcomings(outcome.totals)) {
    outcome.problems.push_back(problem);
  }
  std::printf("%s", table(options, outcome).c_str());
  print_problems(outcome.problems);
  std::printf("soak: %s\n", outcome.problems.empty() ? "passed" : "FAILED");
  return outcome.problems.empty() ? kPassed : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string role = argc > 1 ? argv[1] : "";
  if (role == "server" || role == "client") give_way();
  if (role == "server" && argc == 3) return run_server(argv[2]);
  if (role == "client" && argc == 5) return run_client(client_options(argv + 2));
  Options options;
  options.seed = std::random_device()() % 1000000;
  const std::string problem = read_arguments({argv + 1, argv + argc}, options);
  if (!problem.empty()) {
    std::fprintf(stderr, "soak: %s\nusage: soak [SECONDS [SEED]]\n", problem.c_str());
    return kCannotRun;
  }
  try {
    return run_soak(options);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "soak: %s\n", failure.what());
    return kCannotRun;
  }
}
