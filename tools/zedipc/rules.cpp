// SPDX-License-Identifier: MIT
// zedipc rules: whether a rule file is right, and what it admits.
#include "zedipc/commands.h"
#include "zedipc/output.h"
#include "zedipc/rule_check.h"

namespace command {

namespace {

int explain(const RuleFile& file, const std::vector<std::string>& question) {
  const std::string rule =
      file.admitting(question[0] == "in", question[1], question[2], question[3]);
  Output().line(rule.empty() ? "no rule admits it" : rule);
  return rule.empty() ? kFailed : kDone;
}

}  // namespace

int rules(const RulesOptions& options) {
  const RuleFile file(options.file);
  for (const std::string& warning : file.warnings()) say(warning);
  if (!file.error().empty()) throw Failure(file.error());
  if (!options.explain.empty()) return explain(file, options.explain);
  const Output output;
  output.line(file.counts());
  output.line(file.external() ? "the server listens on all addresses: other machines can connect"
                              : "the server listens on 127.0.0.1: no other machine can connect");
  return kDone;
}

}  // namespace command
