// SPDX-License-Identifier: MIT
// The rules: what the service promises about one message.
//
// A unicast that was sent is received by exactly one registration, or reported to its
// sender exactly once, and not both. It goes to a registration that may have stood, and
// not past one of a higher priority that did; it is not reported while one stood.
// A broadcast is received exactly once by each registration that stood until the
// message had been read, and by no other that may not have stood. Observers that stood
// see every delivery, and all of them the same number.
//
// Nothing is promised for a message that was lost, and for what a broadcast reached,
// - when the server was killed before the message was finished, or when the sender has
//   not been known to be connected to the present server when it sent ("with the server");
// - when the sender was killed before the message was finished ("with the sender");
// - for a unicast, when it was handed to a registration of a client that was killed
//   before the message was finished ("with the receiver").
// A message is finished after some whole rounds, see rounds.h. A busy system can take
// seconds to end a process that was killed, and until then what is sent to it is written
// without an error: such a message is told apart, as sent to the dying. Even in these windows
// nothing may come twice, come to the wrong one, or be received and reported too.
#pragma once

#include <string>
#include <vector>

#include "soak/history.h"

namespace zedipc::soak {

// Notifications of this name stay within the machine.
inline constexpr char kInside[] = "soak.inside";

struct Verdict {
  enum Outcome {
    kDelivered,
    kReturned,  // delivered, after at least one client had sent it back
    kReported,  // by the server
    kGivenUp,   // the same, after at least one client had sent it back
    kRefused,   // by the sender's own library: the call failed
    kLostServer,
    kLostSender,
    kLostReceiver,
    kSentToDying,
    kBroadcast,
    kWrong
  };

  Outcome outcome = kWrong;
  unsigned demanded = 0;  // receipts of a broadcast that had to be there, and are
  unsigned free = 0;      // those that might have been missing
  unsigned observed = 0;  // observers whose account was compared
  std::vector<std::string> problems;
};

// The message has to be finished, and all about it been told.
Verdict judge(const History& history, const Message& message);

// When everything about it has happened and been told; kNever if that is to come.
Time settled(const History& history, const Message& message);

// Its story, one line for each event, with times in milliseconds from `origin`.
std::string describe(const History& history, const Message& message, Time origin);

}  // namespace zedipc::soak
