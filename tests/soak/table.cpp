// SPDX-License-Identifier: MIT
#include "soak/table.h"

#include <cstdio>
#include <sstream>

namespace zedipc::soak {

namespace {

class Table {
 public:
  void row(const std::string& what, const std::string& value) {
    char line[128];
    std::snprintf(line, sizeof line, "  %-40s %s\n", what.c_str(), value.c_str());
    out_ << line;
  }
  void row(const std::string& what, unsigned long value) { row(what, std::to_string(value)); }
  void row(const std::string& what, long first, long last) {
    row(what, std::to_string(first) + " -> " + std::to_string(last));
  }
  [[nodiscard]] std::string text() const { return out_.str(); }

 private:
  std::ostringstream out_;
};

}  // namespace

std::string table(const Options& options, const Outcome& outcome) {
  const Totals& totals = outcome.totals;
  Table table;
  table.row("seconds", static_cast<unsigned long>(options.seconds));
  table.row("seed", static_cast<unsigned long>(options.seed));
  table.row("unicasts sent", totals.unicasts());
  table.row("  delivered", totals.count(Verdict::kDelivered));
  table.row("  returned, then delivered", totals.count(Verdict::kReturned));
  table.row("  reported by the server", totals.count(Verdict::kReported));
  table.row("  returned, then reported", totals.count(Verdict::kGivenUp));
  table.row("  refused and reported by the call", totals.count(Verdict::kRefused));
  table.row("  lost with a killed server", totals.count(Verdict::kLostServer));
  table.row("  lost with a killed sender", totals.count(Verdict::kLostSender));
  table.row("  lost with a killed receiver", totals.count(Verdict::kLostReceiver));
  table.row("  sent to a process being killed", totals.count(Verdict::kSentToDying));
  table.row("broadcasts sent", totals.count(Verdict::kBroadcast));
  table.row("  receipts that had to be", totals.demanded);
  table.row("  receipts that need not have been", totals.free);
  table.row("observers' accounts compared", totals.observed);
  table.row("clients killed", static_cast<unsigned long>(outcome.kills));
  table.row("clients stopped for a while", static_cast<unsigned long>(outcome.stalls));
  table.row("server restarts", static_cast<unsigned long>(outcome.restarts));
  table.row("server's descriptors", outcome.first.descriptors, outcome.last.descriptors);
  table.row("server's threads", outcome.first.threads, outcome.last.threads);
  table.row("server's memory, kB", outcome.first.memory, outcome.last.memory);
  table.row("messages judged wrong", totals.count(Verdict::kWrong));
  return table.text();
}

std::vector<std::string> shortcomings(const Totals& totals) {
  std::vector<std::string> result;
  const auto want = [&](bool good, const char* problem) {
    if (!good) result.emplace_back(problem);
  };
  const unsigned long delivered =
      totals.count(Verdict::kDelivered) + totals.count(Verdict::kReturned);
  // How long the system takes to end what was killed says nothing about the service.
  const unsigned long unicasts = totals.unicasts() - totals.count(Verdict::kSentToDying);
  want(delivered > 0, "no unicast was delivered");
  want(delivered > unicasts / 2, "less than half of the unicasts were delivered");
  want(totals.lost() * 20 < unicasts, "more than a twentieth of the unicasts were lost");
  want(totals.count(Verdict::kReported) > 0, "no unicast was reported");
  want(totals.count(Verdict::kReturned) + totals.count(Verdict::kGivenUp) > 0,
       "no unicast was sent back");
  want(totals.demanded > totals.free, "less than half of the broadcasts' receipts had to be");
  want(totals.observed > unicasts / 2, "less than half of the unicasts were observed");
  return result;
}

}  // namespace zedipc::soak
