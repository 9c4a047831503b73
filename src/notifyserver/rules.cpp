// SPDX-License-Identifier: MIT
// Parsing the rule file, and asking the rules.
#include "notifyserver/rules.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace zedipc {

namespace {

// isspace() of the default locale, whatever locale the process has set.
bool is_space(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// A TAB counts as a blank, and line ends may be CR LF.
std::string normalised(const std::string& text) {
  std::string copy;
  copy.reserve(text.size());
  for (const char byte : text) {
    if (byte != '\r') copy += byte == '\t' ? ' ' : byte;
  }
  return copy;
}

bool is_blank_or_comment(const std::string& line) {
  const std::size_t first = line.find_first_not_of(' ');
  return first == std::string::npos || line[first] == '#' || line[first] == '\0';
}

// Whether a step of the pattern that is no star matches the byte. A step is one byte
// long, or two with a backslash.
bool matches_byte(const char* pattern, char byte) {
  if (*pattern == '\\') ++pattern;
  return *pattern != '\0' && *pattern == byte;
}

const char* next_step(const char* pattern) { return pattern + (*pattern == '\\' ? 2 : 1); }

}  // namespace

bool ConfigRule::operator<(const ConfigRule& other) const {
  return std::tie(from, to, notification) < std::tie(other.from, other.to, other.notification);
}

void split_words(std::vector<std::string>& words, const std::string& line) {
  words.clear();
  auto at = line.begin();
  for (;;) {
    at = std::find_if_not(at, line.end(), is_space);
    if (at == line.end()) return;
    const auto end = std::find_if(at, line.end(), is_space);
    words.emplace_back(at, end);
    at = end;
  }
}

bool RuleLine::is_rule() const {
  return words.size() == 4 && (inbound() || words.front() == "out");
}

bool RuleLine::inbound() const { return words.front() == "in"; }

std::vector<RuleLine> read_rules(const std::string& text) {
  std::vector<RuleLine> rules;
  const std::string copy = normalised(text);
  std::size_t number = 0;
  for (std::size_t begin = 0; begin <= copy.size();) {
    const std::size_t end = std::min(copy.find('\n', begin), copy.size());
    const std::string line = copy.substr(begin, end - begin);
    begin = end + 1;
    ++number;
    if (is_blank_or_comment(line)) continue;
    RuleLine rule{number, {}};
    split_words(rule.words, line);
    rules.push_back(std::move(rule));
    if (!rules.back().is_rule()) break;
  }
  return rules;
}

bool parse_config(const std::string& text, RuleSet& inbound, RuleSet& outbound) {
  inbound.clear();
  outbound.clear();
  for (RuleLine& line : read_rules(text)) {
    if (!line.is_rule()) return false;
    RuleSet& rules = line.inbound() ? inbound : outbound;
    rules.insert({std::move(line.words[1]), std::move(line.words[2]), std::move(line.words[3])});
  }
  return true;
}

// Only the last star has to be reconsidered: whatever an earlier one could take
// instead, the last one can take too.
bool wildcard_match(const char* pattern, const char* text) {
  const char* star = nullptr;       // the pattern after the last star met
  const char* star_text = nullptr;  // the text after what that star takes
  while (*text != '\0') {
    if (*pattern == '*') {
      while (*pattern == '*') ++pattern;
      if (*pattern == '\0') return true;
      star = pattern;
      star_text = text;
    } else if (*pattern != '\0' && matches_byte(pattern, *text)) {
      pattern = next_step(pattern);
      ++text;
    } else if (star != nullptr) {
      pattern = star;
      text = ++star_text;
    } else {
      return false;
    }
  }
  while (*pattern == '*') ++pattern;
  return *pattern == '\0';
}

bool rule_match(const std::string& from, const std::string& to, const std::string& notification,
                const RuleSet& rules) {
  return std::any_of(rules.begin(), rules.end(), [&](const ConfigRule& rule) {
    return wildcard_match(rule.from.c_str(), from.c_str()) &&
           wildcard_match(rule.to.c_str(), to.c_str()) &&
           wildcard_match(rule.notification.c_str(), notification.c_str());
  });
}

}  // namespace zedipc
