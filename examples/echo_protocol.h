// SPDX-License-Identifier: MIT
// What the two ends of the echo channel have agreed upon.
#pragma once

namespace example {

// The number that begins each frame; a reader skips anything else. Take one of your own
// for each protocol.
constexpr unsigned int kEchoFrame = 0x4543484F;

// The longest payload that a reader accepts, in bytes: what a peer can make it allocate.
constexpr int kEchoLimit = 65536;

}  // namespace example
