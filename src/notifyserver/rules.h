// SPDX-License-Identifier: MIT
// The rules for notifications that cross the machine's border.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace zedipc {

// One permission: three patterns, for the sender, the destination and the name of
// a notification as the message gives them.
struct ConfigRule {
  std::string from;
  std::string to;
  std::string notification;

  bool operator<(const ConfigRule& other) const;
};

// A rule permits; what no rule of the set matches is refused.
using RuleSet = std::set<ConfigRule>;

// A rule and where the file has it, or what a line has in the place of a rule.
struct RuleLine {
  std::size_t number;              // from 1
  std::vector<std::string> words;  // "in" or "out", and the three patterns

  [[nodiscard]] bool is_rule() const;
  // Of a rule: whether it is for what comes in.
  [[nodiscard]] bool inbound() const;
};

// The rules of a file, in its order. The first line that is no rule, comment or blank
// is the last one then.
std::vector<RuleLine> read_rules(const std::string& text);

// Reads the text of a rule file into the two sets, which are emptied first. False
// at the first line that is no rule, comment or blank; the rules ahead of it are
// in the sets then.
bool parse_config(const std::string& text, RuleSet& inbound, RuleSet& outbound);

// Whether any rule matches all three.
bool rule_match(const std::string& from, const std::string& to, const std::string& notification,
                const RuleSet& rules);

// The words of a line, separated by white space, replacing what `words` held.
void split_words(std::vector<std::string>& words, const std::string& line);

}  // namespace zedipc
