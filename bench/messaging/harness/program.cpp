// SPDX-License-Identifier: MIT
// messaging_SUBJECT WORK SECONDS FLOOD: does the work for that long, with so many messages
// in a flood. Ends with 0 and the results, with 1 if something went wrong, with 2 if called
// wrongly, and with 77 and the reason if this machine cannot do it.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include "harness/daemon.h"
#include "harness/measure.h"

namespace bench {

namespace {

constexpr int kFailed = 1;
constexpr int kWrongCall = 2;
constexpr int kSkipped = 77;

int run(Subject& subject, char** arguments) {
  const Work work = parse_work(arguments[0]);
  const Limits limits{std::atof(arguments[1]), std::atoi(arguments[2])};
  if (limits.seconds <= 0 || limits.flood <= 0) throw std::runtime_error("no limits");
  if (!subject.can(work)) throw NotInstalled("it has no form of " + work.name);
  for (const Result& result : measure(subject, work, limits)) print(subject.name(), result);
  return 0;
}

}  // namespace

int run_program(Subject& subject, int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s WORK SECONDS FLOOD\n", argv[0]);
    return kWrongCall;
  }
  try {
    return run(subject, argv + 1);
  } catch (const NotInstalled& reason) {
    std::fprintf(stderr, "%s\n", reason.what());
    return kSkipped;
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "%s, %s: %s\n", subject.name(), argv[1], problem.what());
    return kFailed;
  }
}

}  // namespace bench
