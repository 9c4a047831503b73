// SPDX-License-Identifier: MIT
#include "notifyserver/rules.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "notifyserver/wildcard.h"

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

bool parse_line(const std::string& line, RuleSet& inbound, RuleSet& outbound) {
  const std::size_t first = line.find_first_not_of(' ');
  if (first == std::string::npos || line[first] == '#' || line[first] == '\0') return true;
  std::vector<std::string> words;
  split_words(words, line);
  if (words.size() != 4) return false;
  ConfigRule rule{std::move(words[1]), std::move(words[2]), std::move(words[3])};
  if (words[0] == "in") {
    inbound.insert(std::move(rule));
  } else if (words[0] == "out") {
    outbound.insert(std::move(rule));
  } else {
    return false;
  }
  return true;
}

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

bool parse_config(const std::string& text, RuleSet& inbound, RuleSet& outbound) {
  inbound.clear();
  outbound.clear();
  const std::string copy = normalised(text);
  std::size_t begin = 0;
  for (;;) {
    const std::size_t end = std::min(copy.find('\n', begin), copy.size());
    if (!parse_line(copy.substr(begin, end - begin), inbound, outbound)) return false;
    if (end == copy.size()) return true;
    begin = end + 1;
  }
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
