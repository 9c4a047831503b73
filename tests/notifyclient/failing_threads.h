// SPDX-License-Identifier: MIT
// Threads that cannot be had. The program that is linked with this has functions of its
// own for making them.
#pragma once

namespace zedipc::test {

// The next `count` calls of pthread_create() fail with EAGAIN.
void fail_threads(int count);

// The next `count` calls of pthread_attr_init() fail with ENOMEM.
void fail_attributes(int count);

}  // namespace zedipc::test
