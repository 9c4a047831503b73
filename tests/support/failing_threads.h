// SPDX-License-Identifier: MIT
// Threads that cannot be had. A program that is linked to failing_threads has functions of
// its own for making them.
#pragma once

#include <cstddef>

namespace zedipc::test {

// The next `count` calls of pthread_create() fail with EAGAIN.
void fail_threads(int count);

// The next `count` calls of pthread_attr_init() fail with ENOMEM.
void fail_attributes(int count);

// The next `count` calls of pthread_attr_setdetachstate(), or of
// pthread_attr_setstacksize(), fail with EINVAL.
void fail_detached(int count);
void fail_stack_sizes(int count);

// From now on pthread_attr_setstacksize() refuses less than `size` bytes.
void refuse_stacks_below(std::size_t size);

// The calls of pthread_attr_destroy() so far.
int destroyed_attributes();

}  // namespace zedipc::test
