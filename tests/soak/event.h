// SPDX-License-Identifier: MIT
// What happened in a soak run: one line of text each, as the clients report it.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <tuple>

namespace zedipc::soak {

// Microseconds of the clock that all processes of the machine share.
using Time = std::int64_t;
inline constexpr Time kMillisecond = 1000;
inline constexpr Time kSecond = 1000 * kMillisecond;
inline constexpr Time kNever = std::numeric_limits<Time>::max();

Time now();

// A client's process: one that is started again has a new life.
using Life = std::uint32_t;

// A message's number names its sender's life. It travels in the parameter, and in the
// flags for observers, who see no parameter.
using Id = std::uint32_t;
inline constexpr unsigned kCounterBits = 20;
inline constexpr Life kLives = 1U << (32 - kCounterBits);

constexpr Id make_id(Life life, std::uint32_t counter) { return life << kCounterBits | counter; }
constexpr Life life_of(Id id) { return id >> kCounterBits; }
constexpr std::uint32_t counter_of(Id id) { return id & ((1U << kCounterBits) - 1); }

// What a client has registered. Several slots are several callbacks of one pair.
struct Record {
  std::string to;
  std::string name;
  int slot = 0;

  bool operator==(const Record& other) const {
    return std::tie(to, name, slot) == std::tie(other.to, other.name, other.slot);
  }
  bool operator<(const Record& other) const {
    return std::tie(to, name, slot) < std::tie(other.to, other.name, other.slot);
  }
};

// Registrations that are for no notification of their own.
inline const Record kObserver{"-", "observer", 0};
inline const Record kSecondErrorCallback{"-", "error", 1};

struct Event {
  enum Kind {
    // From clients. `value` is a priority or a result.
    kSending,        // id, record.to, record.name
    kSent,           // id, value
    kReceived,       // id, record: the registration whose callback ran
    kAltered,        // the same, of a message that is not as it was sent
    kReported,       // id, record.slot: a unicast error
    kSeen,           // id, record.to: an observation
    kRegistering,    // record, value
    kRegistered,     // record, value
    kUnregistering,  // record
    kUnregistered,   // record, value
    // From the controller.
    kStarted,      // record.to: the client's name; value: whether it is a remote one
    kKilled,       // after `begin`, and gone by `time`
    kServerKilled  // at `begin`; the next server listens at `time`
  };

  Kind kind;
  Time time;
  Life life = 0;
  Id id = 0;
  Record record;
  int value = 0;
  Time begin = 0;
};

// A line without its end, for the clients' kinds.
std::string to_line(const Event& event);
// Nothing if the line is no event.
std::optional<Event> parse_line(const std::string& line, Life life);

}  // namespace zedipc::soak
