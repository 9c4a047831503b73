// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "harness/board.h"

namespace bench::floor_subject {

inline constexpr char kNotification[] = "paper.out";

// Registers under this name, has a thread read, and a thread of its own report each
// message to the board. Returns when the server knows the registration.
void start_receiver(unsigned short port, const std::string& name, Board& board);

}  // namespace bench::floor_subject
