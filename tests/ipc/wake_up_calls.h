// SPDX-License-Identifier: MIT
// The system's answers about the dispatcher's wake-up pipe, where a test cannot have the
// system give them. A program that is built with wake_up_calls.cpp makes pipe2, read and
// write itself.
#pragma once

namespace zedipc::test {

// The next `count` pipes cannot be had.
void fail_pipes(int count, int error);
// How many were asked for.
int pipe_calls();

// The next `count` reads of, or writes to, this descriptor are interrupted by a signal.
void interrupt_reads(int fd, int count);
void interrupt_writes(int fd, int count);
// How many of them are still to come.
int interruptions_left();

}  // namespace zedipc::test
