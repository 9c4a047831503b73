// SPDX-License-Identifier: MIT
// Namespaces for the programs that start a test in surroundings of its own.
#pragma once

#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace zedipc::test {

inline void write_file(const char* path, const std::string& text) {
  FILE* const file = std::fopen(path, "we");
  if (file == nullptr) return;
  std::fputs(text.c_str(), file);
  std::fclose(file);
}

// Enters new namespaces of these kinds, as who the caller is. Users other than root may
// have them in a user namespace of their own. False where the system does not allow it.
inline bool enter_namespace(int kinds) {
  if (unshare(kinds) == 0) return true;
  const unsigned uid = getuid();
  const unsigned gid = getgid();
  if (unshare(CLONE_NEWUSER | kinds) != 0) return false;
  write_file("/proc/self/setgroups", "deny");
  write_file("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1");
  write_file("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1");
  return true;
}

}  // namespace zedipc::test
