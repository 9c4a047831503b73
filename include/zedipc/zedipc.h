// SPDX-License-Identifier: MIT
/// @file
/// The whole interface of the library in one header.
#ifndef ZEDIPC_ZEDIPC_H
#define ZEDIPC_ZEDIPC_H

#include <zedipc/ipc.h>
#include <zedipc/jsobject.h>
#include <zedipc/notify.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#endif  // ZEDIPC_ZEDIPC_H
