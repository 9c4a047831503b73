// SPDX-License-Identifier: MIT
// What is to be said of a rule file, which is read and matched by the server's own code.
#pragma once

#include <string>
#include <vector>

#include "notifyserver/rules.h"

namespace command {

class RuleFile {
 public:
  // Throws Failure if the file cannot be read.
  explicit RuleFile(const std::string& path);

  // "" if the server can start with it, else the line and what is wrong with it.
  [[nodiscard]] std::string error() const;
  // Rules that are there twice, that match nothing, or that another one covers.
  [[nodiscard]] std::vector<std::string> warnings() const;
  // As in "1 rule for what comes in, 2 rules for what goes out". One that is there twice
  // is one rule to the server.
  [[nodiscard]] std::string counts() const;
  // Whether the server listens for other machines.
  [[nodiscard]] bool external() const;
  // The first rule that admits a notification, with its line; "" if none does.
  [[nodiscard]] std::string admitting(bool inbound, const std::string& from, const std::string& to,
                                      const std::string& notification) const;

 private:
  [[nodiscard]] std::string place(const zedipc::RuleLine& line) const;
  // A rule that admits all that this one admits; null if there is none. This one has to
  // match something.
  [[nodiscard]] const zedipc::RuleLine* find_wider(const zedipc::RuleLine& line) const;

  std::string name_;
  std::vector<zedipc::RuleLine> lines_;
};

}  // namespace command
