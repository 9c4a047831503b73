// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "harness/board.h"

namespace bench::floor_subject {

inline constexpr char kNotification[] = "paper.out";

// Registers under this name and starts a thread that reads; for each message another thread
// reports to the board. Returns when the server knows the registration.
void start_receiver(unsigned short port, const std::string& name, Board& board);

}  // namespace bench::floor_subject
