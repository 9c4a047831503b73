// SPDX-License-Identifier: MIT
// What to measure, by its name in the results.
#pragma once

#include <cstddef>
#include <string>

namespace bench {

enum class Kind {
  kRoundTrip,  // round_trip/pipe/SIZE, round_trip/tcp/SIZE: there and back, with no server
  kLatency,    // unicast_latency/SIZE: one message on its way at a time
  kFlood,      // unicast_flood/SIZE: as many as will go
  kBroadcast,  // broadcast/RECEIVERS/SIZE: one message at a time, for all of them
  kIdle,       // idle_wakeups: nothing is sent at all
};

struct Work {
  std::string name;
  Kind kind;
  bool tcp;          // of a round trip; otherwise it goes over a local socket
  int receivers;     // 1 for all but a broadcast
  std::size_t size;  // bytes of the payload
};

// Throws std::runtime_error, with the reason, for a name of no work.
Work parse_work(const std::string& name);

}  // namespace bench
