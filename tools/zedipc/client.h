// SPDX-License-Identifier: MIT
// This process as a client of the notification service.
#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace command {

// The host that the library looks for the server on.
std::string server_host();

// Throws Failure unless the result is kNotifyDone.
void check(int result);

// What the result of a call means, in words for the user.
std::string reason(int result);

// A name that no other process uses, as in "zedipc.ping.1234".
std::string private_name(const std::string& command);

// Returns when the server has handled everything that this process has sent so far. Throws
// Failure if it does not within the time. A client's messages are handled in their order,
// and a notification that nobody can take comes back.
void wait_for_server(std::chrono::milliseconds patience = std::chrono::seconds(10));

// The library says once in each process that there is no log library; this hides it from
// those who have not asked for a log. Call it before all else of the library, while there
// is one thread.
void silence_log_notice();

}  // namespace command
