// SPDX-License-Identifier: MIT
// Whether a notification may cross the machine's border: it matches the last of some rules.
// The floor compares in the same order, with a recursive matcher that knows only the star.
#include "notifyserver/rules.h"

#include <vector>

#include "inside.h"

namespace {

const std::string kFrom = "scheduler";
const std::string kTo = "display";
const std::string kName = "job.state.changed";

std::string rule_text(int count) {
  std::string text;
  for (int i = 1; i < count; ++i) text += "in app" + std::to_string(i) + "* * status.*\n";
  return text + "in sched* display job.*.changed\n";
}

void library(benchmark::State& state, int count) {
  zedipc::RuleSet inbound;
  zedipc::RuleSet outbound;
  require(zedipc::parse_config(rule_text(count), inbound, outbound), "rules");
  require(zedipc::rule_match(kFrom, kTo, kName, inbound), "a rule that matches");
  require(!zedipc::rule_match(kTo, kTo, kName, inbound), "no rule that matches");
  measure(state, [&] {
    bool permitted = zedipc::rule_match(kFrom, kTo, kName, inbound);
    benchmark::DoNotOptimize(permitted);
  });
}

bool bare_match(const char* pattern, const char* text) {
  for (; *pattern != '*'; ++pattern, ++text) {
    if (*pattern != *text) return false;
    if (*pattern == '\0') return true;
  }
  do {
    if (bare_match(pattern + 1, text)) return true;
  } while (*text++ != '\0');
  return false;
}

void floor(benchmark::State& state, int count) {
  std::vector<zedipc::RuleLine> rules = zedipc::read_rules(rule_text(count));
  const auto step = [&] {
    bool permitted = false;
    for (const zedipc::RuleLine& rule : rules) {
      permitted = bare_match(rule.words[1].c_str(), kFrom.c_str()) &&
                  bare_match(rule.words[2].c_str(), kTo.c_str()) &&
                  bare_match(rule.words[3].c_str(), kName.c_str());
      if (permitted) break;
    }
    benchmark::DoNotOptimize(permitted);
    return permitted;
  };
  require(step(), "a rule that matches");
  measure(state, step);
}

}  // namespace

void register_benchmarks() {
  for (const int count : {1, 10, 100}) {
    const std::string work = "rule_match/" + std::to_string(count);
    add_benchmark(work, "zedipc", [=](benchmark::State& state) { library(state, count); });
    add_benchmark(work, "floor", [=](benchmark::State& state) { floor(state, count); });
  }
}
