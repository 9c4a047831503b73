// SPDX-License-Identifier: MIT
// This process as a client of the notification service.
#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace command {

// The host that the library looks for the server on.
std::string server_host();

// Throws Failure if a call of the library gave a result other than kNotifyDone.
void check(int result);

// What a call's result means, in words for the user.
std::string reason(int result);

// A name that no other process uses, as in "zedipc.ping.1234".
std::string private_name(const std::string& command);

// Returns when the server has handled everything that this process has sent so far. Throws
// Failure if it does not within the time. A client's messages are handled in their order,
// and a notification that nobody can take comes back.
void wait_for_server(std::chrono::milliseconds patience = std::chrono::seconds(10));

// The library says once in each process that there is no log library. Somebody who has
// not asked for a log is not to see that. To be called ahead of all other calls, and
// while there is one thread.
void silence_log_notice();

}  // namespace command
