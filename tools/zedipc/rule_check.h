// SPDX-License-Identifier: MIT
// Checks a rule file, with the code that the server reads and matches it with.
#pragma once

#include <string>
#include <vector>

#include "notifyserver/rules.h"

namespace command {

class RuleFile {
 public:
  // Throws Failure if the file cannot be read.
  explicit RuleFile(const std::string& path);

  // The wrong line and what is wrong with it; "" if the server can start with the file.
  [[nodiscard]] std::string error() const;
  // Rules that are repeated, match nothing, or are covered by another one.
  [[nodiscard]] std::vector<std::string> warnings() const;
  // As in "1 rule for what comes in, 2 rules for what goes out". The server counts a
  // repeated rule once.
  [[nodiscard]] std::string counts() const;
  // Whether the server listens for other machines.
  [[nodiscard]] bool external() const;
  // The first rule that admits a notification, with its line; "" if none does.
  [[nodiscard]] std::string admitting(bool inbound, const std::string& from, const std::string& to,
                                      const std::string& notification) const;

 private:
  [[nodiscard]] std::string place(const zedipc::RuleLine& line) const;
  // A rule that admits all that this one does, or null. This one must match something.
  [[nodiscard]] const zedipc::RuleLine* find_wider(const zedipc::RuleLine& line) const;

  std::string name_;
  std::vector<zedipc::RuleLine> lines_;
};

}  // namespace command
