// SPDX-License-Identifier: MIT
// A client of a soak run: a process that registers, sends and receives at random, and
// reports all of it on its standard output.
#pragma once

#include <string>

#include "soak/event.h"

namespace zedipc::soak {

inline constexpr char kLocalHost[] = "127.0.0.1";
// The server takes whoever comes from here for another machine.
inline constexpr char kRemoteHost[] = "::1";

inline constexpr int kClients = 20;
inline constexpr int kRemoteClients = 5;

// The name of a client. The first only observes and is never disturbed, the last ones
// are remote.
std::string client_name(int number);

struct ClientOptions {
  int number;
  Life life;
  unsigned seed;
};

// Runs until the standard input ends; a line there stops all but the trips.
int run_client(const ClientOptions& options);

}  // namespace zedipc::soak
