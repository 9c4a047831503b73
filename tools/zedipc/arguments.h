// SPDX-License-Identifier: MIT
// The command line.
#pragma once

namespace command {

// Reads the arguments, sets NOTIFY_SERVER if they name a server, and runs the command.
// Returns the exit status. Throws what the commands throw.
int run(int argc, char** argv);

}  // namespace command
