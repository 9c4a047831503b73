// SPDX-License-Identifier: MIT
// What the notification server and its clients agree on besides the form of the messages, which
// docs/protocol.md describes and message.h reads and writes.
#pragma once

namespace zedipc {

constexpr unsigned short NOTIFY_PORT = 5899;

constexpr unsigned int NOTIFY_FRAME_ID = 0x4E4659;  // "NFY" after a zero byte
constexpr int NOTIFY_FRAME_TAG = 0;                 // written, never looked at
constexpr int NOTIFY_MAX_MSG = 524288;              // bytes of text that a reader accepts

// Destinations that name no receiver.
inline constexpr char kToAll[] = "*";
inline constexpr char kToHighestPriority[] = "1";

// The values of "type".
inline constexpr char kTypeNotify[] = "notify";
inline constexpr char kTypeRegister[] = "register";
inline constexpr char kTypeUnregister[] = "unregister";
inline constexpr char kTypeRegisterObserver[] = "register_observer";
inline constexpr char kTypeUnregisterObserver[] = "unregister_observer";
inline constexpr char kTypeNotifyObserver[] = "notify_observer";
inline constexpr char kTypeUnicastError[] = "unicast_error";

}  // namespace zedipc
