// SPDX-License-Identifier: MIT
// The keys of the messages and the values of "type". For message.cpp and envelope.cpp alone.
#pragma once

namespace zedipc {

// The values of "type".
inline constexpr char kTypeNotify[] = "notify";
inline constexpr char kTypeRegister[] = "register";
inline constexpr char kTypeUnregister[] = "unregister";
inline constexpr char kTypeRegisterObserver[] = "register_observer";
inline constexpr char kTypeUnregisterObserver[] = "unregister_observer";
inline constexpr char kTypeNotifyObserver[] = "notify_observer";
inline constexpr char kTypeUnicastError[] = "unicast_error";

// The keys, which are written in ascending order: "type" comes last.
inline constexpr char kKeyType[] = "type";
inline constexpr char kKeyFrom[] = "from";
inline constexpr char kKeyTo[] = "to";
inline constexpr char kKeyNotification[] = "notification";
inline constexpr char kKeyParameter[] = "parameter";
inline constexpr char kKeyFlags[] = "flags";
inline constexpr char kKeyPriority[] = "priority";
inline constexpr char kKeyReference[] = "reference";

}  // namespace zedipc
