// SPDX-License-Identifier: MIT
// Counting by sender, destination and name, and a table of the counts.
#include "zedipc/traffic.h"

#include <algorithm>
#include <cstdio>

#include "zedipc/text.h"
#include "zedipc/view.h"

namespace command {

namespace {

// Names come from the network, and so does their number: the rest is counted together.
constexpr std::size_t kMostRows = 10000;
constexpr char kOthers[] = "(others)";
constexpr std::size_t kWidestNotification = 32;

std::string padded(const std::string& text, std::size_t characters) {
  const std::size_t has = width(text);
  return has >= characters ? text : text + std::string(characters - has, ' ');
}

}  // namespace

void Traffic::add(const Message& message) {
  Key key{printable(message.notification), printable(message.from), printable(message.to)};
  if (counts_.size() >= kMostRows && counts_.count(key) == 0) {
    key = Key{kOthers, kOthers, kOthers};
  }
  Count& count = counts_[key];
  ++count.total;
  ++count.since;
  count.last = message.time;
  ++total_;
}

void Traffic::end_interval(double seconds) {
  rate_ = 0;
  for (auto& [key, count] : counts_) {
    count.rate = seconds > 0 ? static_cast<double>(count.since) / seconds : 0;
    count.since = 0;
    rate_ += count.rate;
  }
}

std::vector<Traffic::Row> Traffic::sorted(const std::string& sort) const {
  std::vector<Row> rows(counts_.begin(), counts_.end());  // by name
  const auto by = [&rows](auto value) {
    std::stable_sort(rows.begin(), rows.end(),
                     [&](const Row& a, const Row& b) { return value(a.second) > value(b.second); });
  };
  if (sort == "count") by([](const Count& count) { return count.total; });
  if (sort == "rate") by([](const Count& count) { return count.rate; });
  if (sort == "time") by([](const Count& count) { return count.last; });
  return rows;
}

std::string Traffic::line(const Row& row, std::size_t notification_width) const {
  const auto& [notification, from, to] = row.first;
  const Count& count = row.second;
  char numbers[96];
  std::snprintf(numbers, sizeof numbers, "%9lu %9.1f %5.1f%%  ", count.total, count.rate,
                100 * static_cast<double>(count.total) / static_cast<double>(total_));
  return numbers + time_of_day(count.last) + "  " +
         padded(clipped(notification, notification_width), notification_width) + "  " + from +
         " -> " + to;
}

std::vector<std::string> Traffic::table(const std::string& sort, std::size_t lines,
                                        std::size_t columns) const {
  const std::vector<Row> rows = sorted(sort);
  std::size_t notification_width = sizeof "NOTIFICATION" - 1;
  for (const Row& row : rows) {
    notification_width = std::max(notification_width, width(std::get<0>(row.first)));
  }
  notification_width = std::min(notification_width, kWidestNotification);

  char head[96];
  std::snprintf(head, sizeof head, "%lu deliveries, %.1f a second, by ", total_, rate_);
  char names[96];
  std::snprintf(names, sizeof names, "%9s %9s %6s  %-12s  ", "COUNT", "RATE", "SHARE", "LAST");
  std::vector<std::string> result{
      clipped(head + sort, columns),
      clipped(names + padded("NOTIFICATION", notification_width) + "  FROM -> TO", columns)};
  for (const Row& row : rows) {
    if (result.size() >= lines) break;
    result.push_back(clipped(line(row, notification_width), columns));
  }
  return result;
}

}  // namespace command
