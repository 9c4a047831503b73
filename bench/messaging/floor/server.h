// SPDX-License-Identifier: MIT
#pragma once

namespace bench::floor_subject {

// A server with a thread for each connection, and one lock around all it does. Never
// returns.
[[noreturn]] void serve(unsigned short port);

}  // namespace bench::floor_subject
