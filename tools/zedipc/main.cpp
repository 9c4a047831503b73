// SPDX-License-Identifier: MIT
// The command `zedipc`: the notification service from a shell.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <exception>

#include "zedipc/arguments.h"
#include "zedipc/output.h"

namespace {

// Keeps connections from getting the number of a standard stream that is closed.
void open_standard_streams() {
  int fd = 0;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd != -1 && fd <= STDERR_FILENO);
  if (fd != -1) close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  open_standard_streams();
  signal(SIGPIPE, SIG_IGN);  // the end of the reader is seen where it is written to
  try {
    return command::run(argc, argv);
  } catch (const command::OutputClosed&) {
    return command::kDone;
  } catch (const std::exception& error) {
    command::say(error.what());
    return command::kFailed;
  }
}
