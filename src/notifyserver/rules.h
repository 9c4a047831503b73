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

// Each rule is a permission: what none of them matches is refused.
using RuleSet = std::set<ConfigRule>;

// A line of a rule file that is neither blank nor a comment.
struct RuleLine {
  std::size_t number;              // from 1
  std::vector<std::string> words;  // of a rule: "in" or "out", and the three patterns

  [[nodiscard]] bool is_rule() const;
  // Of a rule: whether it permits what comes in.
  [[nodiscard]] bool inbound() const;
};

// The rules of a file, in order. Stops at the first line that is not a valid rule, which
// is then the last element.
std::vector<RuleLine> read_rules(const std::string& text);

// Replaces both sets with the rules of a file. Stops with false at the first line that is
// not a valid rule; the sets then hold the rules before it.
bool parse_config(const std::string& text, RuleSet& inbound, RuleSet& outbound);

// Whether the pattern matches the whole text. A star stands for any bytes, a
// backslash makes the byte after it literal, and everything else is compared byte
// by byte. A pattern that ends in a single backslash matches nothing. Takes time
// proportional to the product of both lengths at most, and no memory.
bool wildcard_match(const char* pattern, const char* text);

// Whether any rule matches all three.
bool rule_match(const std::string& from, const std::string& to, const std::string& notification,
                const RuleSet& rules);

// Replaces `words` with the words of the line, which white space separates.
void split_words(std::vector<std::string>& words, const std::string& line);

}  // namespace zedipc
