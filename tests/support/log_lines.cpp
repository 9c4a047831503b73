// SPDX-License-Identifier: MIT
#include "support/log_lines.h"

#include <algorithm>
#include <regex>
#include <sstream>

namespace zedipc::test {

namespace {

// Takes the part of `line` up to `end` off its front.
std::string take(std::string& line, char end) {
  const std::size_t found = line.find(end);
  if (found == std::string::npos) return std::string();
  const std::string part = line.substr(0, found);
  line.erase(0, found + 1);
  return part;
}

bool is_number(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// IPC|file:line|PID 1234|12.345|channel:level|message
bool parse_line(std::string line, LogLine& result) {
  if (take(line, '|') != "IPC") return false;
  result.file = take(line, ':');
  const std::string number = take(line, '|');
  result.process = take(line, '|');
  result.stamp = take(line, '|');
  result.channel = take(line, ':');
  result.level = take(line, '|');
  result.message = line;
  if (!is_number(number) || result.process.rfind("PID ", 0) != 0 || result.level.empty()) {
    return false;
  }
  result.line = std::stoi(number);
  return true;
}

}  // namespace

std::vector<LogLine> parse_log(const std::string& text) {
  std::vector<LogLine> lines;
  std::istringstream in(text);
  std::string line;
  LogLine parsed;
  while (std::getline(in, line)) {
    if (in.eof()) break;  // its end is still to be written
    if (parse_line(line, parsed)) lines.push_back(parsed);
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

std::vector<std::string> without_removals(std::vector<std::string> lines) {
  lines.erase(std::remove_if(lines.begin(), lines.end(),
                             [](const std::string& line) {
                               static const std::regex removal(
                                   "IPC:debug\\|PTR->set_callback(\\(\\) called with \\(nil\\)"
                                   "|\\(\\): (empty callback map|no callback registered)).*");
                               return std::regex_match(line, removal);
                             }),
              lines.end());
  return lines;
}

std::string without_missing_library(const std::string& text) {
  static const std::regex line(
      "DBGLOG <PID [0-9]+>: dlopen\\(/home/svclog/lib/liblog\\.so\\.2\\) returned 0, "
      "logging disabled\\.\n");
  return std::regex_replace(text, line, "", std::regex_constants::format_first_only);
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
