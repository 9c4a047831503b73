// SPDX-License-Identifier: MIT
#include "support/log_lines.h"

#include <regex>
#include <sstream>

namespace zedipc::test {

std::vector<LogLine> parse_log(const std::string& text) {
  static const std::regex pattern(
      R"(IPC\|([^:|]*):(\d+)\|(PID \d+)\|(-?\d+\.\d{3})\|([A-Z]+):([a-z]+)\|(.*))");
  std::vector<LogLine> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    std::smatch m;
    // Long messages are cut off ahead of the match: the library's regex recurses.
    const std::string head = line.substr(0, 200);
    if (!std::regex_match(head, m, pattern)) continue;
    const auto message = static_cast<std::size_t>(m.position(7));
    lines.push_back({m[1], std::stoi(m[2]), m[3], m[4], m[5], m[6], line.substr(message)});
  }
  return lines;
}

std::vector<std::string> log_messages(const std::string& text, const std::string& level,
                                      const std::string& channel) {
  std::vector<std::string> messages;
  for (const LogLine& line : parse_log(text)) {
    if (!level.empty() && line.level != level) continue;
    if (!channel.empty() && line.channel != channel) continue;
    messages.push_back(line.channel + ":" + line.level + "|" + without_addresses(line.message));
  }
  return messages;
}

std::string without_addresses(const std::string& text) {
  static const char kDigits[] = "0123456789abcdef";
  std::string result;
  std::size_t at = 0;
  for (;;) {
    const std::size_t found = text.find("0x", at);
    const std::size_t end =
        found == std::string::npos ? found : text.find_first_not_of(kDigits, found + 2);
    if (found == std::string::npos) return result + text.substr(at);
    result += text.substr(at, found - at) + "PTR";
    if (end == std::string::npos) return result;
    at = end;
  }
}

}  // namespace zedipc::test
