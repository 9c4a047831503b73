// SPDX-License-Identifier: MIT
#include "zedipc/rule_check.h"

#include <algorithm>
#include <map>

#include "zedipc/json_text.h"
#include "zedipc/text.h"

namespace command {

namespace {

using zedipc::RuleLine;

constexpr std::size_t kWords = 4;

std::string counted(std::size_t count, const char* what) {
  return std::to_string(count) + (count == 1 ? " rule " : " rules ") + what;
}

std::string quoted(const std::string& word) { return "'" + printable(word) + "'"; }

std::string what_is_wrong(const std::vector<std::string>& words) {
  if (!words.empty() && words[0] != "in" && words[0] != "out") {
    return "a rule begins with 'in' or 'out', not with " + quoted(words[0]);
  }
  if (words.size() > kWords && words[kWords][0] == '#') {
    return "a comment needs a line of its own";
  }
  return "a rule has three patterns behind 'in' or 'out', for the sender, the receiver and the "
         "notification; here are " +
         std::to_string(words.empty() ? 0 : words.size() - 1);
}

// Whether the last backslash has nothing behind it to take, so that nothing matches.
bool ends_in_backslash(const std::string& pattern) {
  std::size_t at = 0;
  while (at < pattern.size()) at += pattern[at] == '\\' ? 2 : 1;
  return at > pattern.size();
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + printable(word);
  return text;
}

}  // namespace

RuleFile::RuleFile(const std::string& path)
    : name_(printable(path)), lines_(zedipc::read_rules(read_file(path))) {}

std::string RuleFile::place(const RuleLine& line) const {
  return name_ + ":" + std::to_string(line.number) + ": ";
}

std::string RuleFile::error() const {
  if (lines_.empty() || lines_.back().is_rule()) return "";
  return place(lines_.back()) + what_is_wrong(lines_.back().words);
}

std::vector<std::string> RuleFile::warnings() const {
  std::vector<std::string> result;
  std::map<std::vector<std::string>, std::size_t> first;
  for (const RuleLine& line : lines_) {
    if (!line.is_rule()) continue;
    const auto [found, is_new] = first.emplace(line.words, line.number);
    if (!is_new) {
      result.push_back(place(line) + "the same rule is in line " + std::to_string(found->second));
    }
    const auto hopeless = std::find_if(line.words.begin(), line.words.end(), ends_in_backslash);
    if (hopeless != line.words.end()) {
      result.push_back(place(line) + "the rule matches nothing: " + quoted(*hopeless) +
                       " ends in a backslash, which needs a byte behind it");
    }
  }
  return result;
}

std::string RuleFile::counts() const {
  std::size_t inbound = 0;
  std::size_t outbound = 0;
  for (const RuleLine& line : lines_) {
    if (line.is_rule()) ++(line.inbound() ? inbound : outbound);
  }
  return counted(inbound, "for what comes in, ") + counted(outbound, "for what goes out");
}

bool RuleFile::external() const {
  return std::any_of(lines_.begin(), lines_.end(),
                     [](const RuleLine& line) { return line.is_rule(); });
}

std::string RuleFile::admitting(bool inbound, const std::string& from, const std::string& to,
                                const std::string& notification) const {
  for (const RuleLine& line : lines_) {
    if (!line.is_rule() || line.inbound() != inbound) continue;
    const zedipc::RuleSet one{{line.words[1], line.words[2], line.words[3]}};
    if (rule_match(from, to, notification, one)) return place(line) + joined(line.words);
  }
  return "";
}

}  // namespace command
