// SPDX-License-Identifier: MIT
// The notification server as a program of its own. Any process can be the server by
// giving it a thread; there is to be one per machine.
//
//   server              serves this machine
//   server RULE_FILE    serves other machines too, as far as the rules allow
#include <zedipc/notify.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "program.h"

namespace {

const char* reason(int result) {
  switch (result) {
    case zedipc::kServerNotStarted:
      return "port 5899 cannot be opened. Most likely another server runs already.";
    case zedipc::kServerNoRuleFile:
      return "the rule file cannot be opened. Check its name and permissions.";
    case zedipc::kServerBadRuleFile:
      return "the rule file has a line that is no rule. A rule is 'in' or 'out' and three "
             "patterns: from, to, notification.";
    default:
      return "the library gave a result that this program does not know.";
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) {
    std::fprintf(stderr, "usage: server [RULE_FILE]\n");
    return example::kUsage;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);  // each line goes out when it is complete
  const char* const rule_file = argc == 2 ? argv[1] : nullptr;

  // The server does not return once it runs, so a thread beside it waits for the end.
  // There is nothing to tidy up: clients notice that the connection is gone.
  const example::EndSignal end;
  std::thread([end] {
    end.wait();
    std::printf("server: ended\n");
    std::_Exit(example::kDone);
  }).detach();

  std::printf("server: opening port 5899\n");
  const int result = zedipc::ipcNotificationServer(rule_file);
  std::fprintf(stderr, "server: cannot start: %s\n", reason(result));
  return example::kFailed;
}
