// SPDX-License-Identifier: MIT
// The server's log lines, with the sessions by name.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "support/log_lines.h"
#include "support/server_process.h"

namespace zedipc::test {

inline const Environment kAllLevels{{"NFY_LOGMASK", "255"}};
inline const Environment kErrorsAndNotes{{"NFY_LOGMASK", "40"}};
inline const Environment kNotes{{"NFY_LOGMASK", "32"}};
inline const Environment kInfos{{"NFY_LOGMASK", "64"}};

class ServerLog {
 public:
  explicit ServerLog(ServerProcess& server) : server_(server) {}

  // What the sessions have logged since forget(), as "level|message", without the lines
  // that settle() brings. The address of a session stands as S1, S2 and so on, in the
  // order in which the sessions were accepted.
  [[nodiscard]] std::vector<std::string> lines() const {
    std::vector<std::string> all = all_lines();
    all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(forgotten_));
    return all;
  }

  void forget() { forgotten_ = all_lines().size(); }

  // Waits until this line is the last one that was logged; false after 10 seconds.
  [[nodiscard]] bool wait_for_last(const std::string& line) const {
    return eventually([&] {
      const std::vector<std::string> now = lines();
      return !now.empty() && now.back() == line;
    });
  }

 private:
  [[nodiscard]] std::vector<std::string> all_lines() const {
    static const std::string kAccepted = "ipcNotificationServer(): accepted new session (ipc=";
    std::map<std::string, std::string> names;
    std::vector<std::string> result;
    std::size_t sessions = 0;
    for (const LogLine& line : parse_log(server_.err())) {
      if (line.channel != "NFY") continue;
      if (line.message.rfind(kAccepted, 0) == 0) {
        const std::string address = line.message.substr(kAccepted.size());
        names[address.substr(0, address.find(')'))] = "S" + std::to_string(++sessions);
      }
      if (line.message.rfind("ipcNotificationServer()", 0) == 0) continue;
      if (line.message.find("'settle'") != std::string::npos) continue;
      result.push_back(line.level + "|" + named(line.message, names));
    }
    return result;
  }

  static std::string named(std::string text, const std::map<std::string, std::string>& names) {
    std::size_t at = 0;
    while ((at = text.find("0x", at)) != std::string::npos) {
      const std::size_t end = text.find_first_not_of("0123456789abcdef", at + 2);
      const auto found = names.find(text.substr(at, end - at));
      if (found != names.end()) text.replace(at, found->first.size(), found->second);
      ++at;
    }
    return text;
  }

  ServerProcess& server_;
  std::size_t forgotten_ = 0;
};

}  // namespace zedipc::test
