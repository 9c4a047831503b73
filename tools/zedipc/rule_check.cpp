// SPDX-License-Identifier: MIT
// What is wrong with a rule, and which rules are covered by others.
#include "zedipc/rule_check.h"

#include <algorithm>
#include <map>
#include <set>

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
  return "a rule has three patterns after 'in' or 'out', for the sender, the receiver and the "
         "notification; here are " +
         std::to_string(words.empty() ? 0 : words.size() - 1);
}

// Whether nothing follows the last backslash, so that nothing matches. A pattern ends at
// its first zero byte, as in the matcher.
bool ends_in_backslash(const std::string& pattern) {
  for (const char* at = pattern.c_str(); *at != '\0'; ++at) {
    if (*at == '\\' && *++at == '\0') return true;
  }
  return false;
}

// One text that stands for all those the pattern matches: it has a blank for each star. A
// pattern cannot contain a blank, so only a star takes it, and a star takes whatever else
// may stand there.
std::string typical_text(const std::string& pattern) {
  std::string text;
  for (const char* at = pattern.c_str(); *at != '\0'; ++at) {
    const bool literal = *at == '\\';
    if (literal) ++at;
    text += *at == '*' && !literal ? ' ' : *at;
  }
  return text;
}

// The same for a rule: its direction, and a text for each pattern.
std::vector<std::string> typical_words(const RuleLine& rule) {
  std::vector<std::string> words{rule.words[0]};
  for (std::size_t i = 1; i < kWords; ++i) words.push_back(typical_text(rule.words[i]));
  return words;
}

// Whether the rule admits a notification with these three texts, in this direction.
bool admits(const RuleLine& rule, const std::vector<std::string>& words) {
  for (std::size_t i = 1; i < kWords; ++i) {
    if (!zedipc::wildcard_match(rule.words[i].c_str(), words[i].c_str())) return false;
  }
  return rule.words[0] == words[0];
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

// Of rules that cover each other, the first counts as the wider one.
const RuleLine* RuleFile::find_wider(const RuleLine& line) const {
  const std::vector<std::string> words = typical_words(line);
  const auto found = std::find_if(lines_.begin(), lines_.end(), [&](const RuleLine& other) {
    return other.is_rule() && admits(other, words) && other.words != line.words &&
           (other.number < line.number || !admits(line, typical_words(other)));
  });
  return found == lines_.end() ? nullptr : &*found;
}

std::vector<std::string> RuleFile::warnings() const {
  std::vector<std::string> result;
  std::map<std::vector<std::string>, std::size_t> first;
  for (const RuleLine& line : lines_) {
    if (!line.is_rule()) continue;
    const auto [found, is_new] = first.emplace(line.words, line.number);
    const auto hopeless = std::find_if(line.words.begin(), line.words.end(), ends_in_backslash);
    if (!is_new) {
      result.push_back(place(line) + "the same rule is in line " + std::to_string(found->second));
    } else if (hopeless != line.words.end()) {
      result.push_back(place(line) + "the rule matches nothing: " + quoted(*hopeless) +
                       " ends in a backslash, which needs a byte after it");
    } else if (const RuleLine* const wide = find_wider(line)) {
      result.push_back(place(line) + "the rule adds nothing: line " + std::to_string(wide->number) +
                       " admits all that it admits");
    }
  }
  return result;
}

std::string RuleFile::counts() const {
  std::set<std::vector<std::string>> inbound;
  std::set<std::vector<std::string>> outbound;
  for (const RuleLine& line : lines_) {
    if (line.is_rule()) (line.inbound() ? inbound : outbound).insert(line.words);
  }
  return counted(inbound.size(), "for what comes in, ") +
         counted(outbound.size(), "for what goes out");
}

bool RuleFile::external() const {
  return std::any_of(lines_.begin(), lines_.end(),
                     [](const RuleLine& line) { return line.is_rule(); });
}

std::string RuleFile::admitting(bool inbound, const std::string& from, const std::string& to,
                                const std::string& notification) const {
  const std::vector<std::string> words{inbound ? "in" : "out", from, to, notification};
  for (const RuleLine& line : lines_) {
    if (line.is_rule() && admits(line, words)) return place(line) + joined(line.words);
  }
  return "";
}

}  // namespace command
