// SPDX-License-Identifier: MIT
/// @file
/// Symbol visibility of the library's interface.
#ifndef ZEDIPC_EXPORT_H
#define ZEDIPC_EXPORT_H

/// Marks what the library exports. Everything else stays inside it.
#define ZEDIPC_EXPORT __attribute__((visibility("default")))
/// Marks what an exported class keeps to itself.
#define ZEDIPC_HIDDEN __attribute__((visibility("hidden")))

#endif  // ZEDIPC_EXPORT_H
