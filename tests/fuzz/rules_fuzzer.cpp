// SPDX-License-Identifier: MIT
// The rule file, and what its rules match, against a second reader and matcher.
//
// An input is three lines, a notification's sender, destination and name, and then the
// text of a rule file.
#include <array>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/harness.h"
#include "notifyserver/rules.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

using Words = std::array<std::string, 3>;
using Rules = std::set<Words>;

// A byte of a pattern, or a star.
struct Step {
  bool star;
  char byte;
};

// The steps of a pattern; false if it ends in a backslash that takes nothing.
bool read_pattern(const std::string& pattern, std::vector<Step>& steps) {
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == '*') {
      steps.push_back({true, 0});
    } else if (pattern[i] != '\\') {
      steps.push_back({false, pattern[i]});
    } else if (++i < pattern.size()) {
      steps.push_back({false, pattern[i]});
    } else {
      return false;
    }
  }
  return true;
}

// Both are looked at up to their first zero byte. Keeps, step by step, which beginnings
// of the text the pattern so far matches.
bool matches(const std::string& pattern, const std::string& text) {
  const std::string subject = text.c_str();
  std::vector<Step> steps;
  if (!read_pattern(pattern.c_str(), steps)) return false;
  std::vector<bool> matched(subject.size() + 1, false);
  matched[0] = true;
  for (const Step& step : steps) {
    std::vector<bool> next(matched.size(), false);
    for (std::size_t i = 0; i < matched.size(); ++i) {
      if (step.star) {
        next[i] = matched[i] || (i > 0 && next[i - 1]);
      } else {
        next[i] = i > 0 && matched[i - 1] && subject[i - 1] == step.byte;
      }
    }
    matched = next;
  }
  return matched.back();
}

bool matches(const Words& rule, const Words& subject) {
  return matches(rule[0], subject[0]) && matches(rule[1], subject[1]) &&
         matches(rule[2], subject[2]);
}

bool any_matches(const Rules& rules, const Words& subject) {
  for (const Words& rule : rules) {
    if (matches(rule, subject)) return true;
  }
  return false;
}

std::vector<std::string> words_of(const std::string& line) {
  std::vector<std::string> words(1);
  for (const char byte : line) {
    if (byte == ' ' || byte == '\v' || byte == '\f') {
      words.emplace_back();
    } else {
      words.back() += byte;
    }
  }
  std::vector<std::string> result;
  for (const std::string& word : words) {
    if (!word.empty()) result.push_back(word);
  }
  return result;
}

bool read_line(std::string line, Rules& inbound, Rules& outbound) {
  while (line[0] == ' ') line.erase(0, 1);
  if (line[0] == '\0' || line[0] == '#') return true;
  const std::vector<std::string> words = words_of(line);
  if (words.size() != 4 || (words[0] != "in" && words[0] != "out")) return false;
  (words[0] == "in" ? inbound : outbound).insert({words[1], words[2], words[3]});
  return true;
}

bool read_rules(const std::string& text, Rules& inbound, Rules& outbound) {
  std::string plain;
  for (const char byte : text) {
    if (byte != '\r') plain += byte == '\t' ? ' ' : byte;
  }
  std::istringstream lines(plain);
  std::string line;
  while (std::getline(lines, line)) {
    if (!read_line(line, inbound, outbound)) return false;
  }
  return true;
}

Rules plain(const RuleSet& rules) {
  Rules result;
  for (const ConfigRule& rule : rules) result.insert({rule.from, rule.to, rule.notification});
  return result;
}

void check_matches(const Rules& model, const RuleSet& rules, const Words& subject) {
  require(plain(rules) == model, "the rules are those of the file");
  require(rule_match(subject[0], subject[1], subject[2], rules) == any_matches(model, subject),
          "the rules match what they say");
  for (const Words& rule : model) {
    for (const std::string& pattern : rule) {
      for (const std::string& text : subject) {
        require(wildcard_match(pattern.c_str(), text.c_str()) == matches(pattern, text),
                "a pattern matches what it says");
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string from = input.line();
  const std::string to = input.line();
  const Words subject{from, to, input.line()};
  const std::string text = input.rest();

  RuleSet inbound{{"old", "old", "old"}};
  RuleSet outbound = inbound;
  Rules model_inbound;
  Rules model_outbound;
  require(parse_config(text, inbound, outbound) == read_rules(text, model_inbound, model_outbound),
          "the file is valid, or not");
  check_matches(model_inbound, inbound, subject);
  check_matches(model_outbound, outbound, subject);
  return 0;
}
