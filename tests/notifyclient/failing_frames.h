// SPDX-License-Identifier: MIT
// Writes that fail at a moment of the test's choosing, which no real peer can arrange.
// The program that is linked with this has a send() of its own.
#pragma once

namespace zedipc::test {

// Of the notification frames that this process's client sends from now on, `count` fail
// once `let_pass` have gone out. Nothing of a failed frame is sent, so that the peer is
// in step.
void fail_frames(int let_pass, int count = 1);

}  // namespace zedipc::test
