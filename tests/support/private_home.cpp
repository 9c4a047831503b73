// SPDX-License-Identifier: MIT
// Runs a program with a /home of its own, which it can write to and in which it finds the
// directories and links of the real one, but for "svclog": so that tests can put a log
// library at its fixed place without touching the system. The variable PRIVATE_HOME tells
// the program of it. Where the system does not allow that, runs it as it is.
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>

#include "support/own_namespace.h"

namespace fs = std::filesystem;

namespace {

const char kHome[] = "/home";

struct Contents {
  std::map<fs::path, int> directories;  // held open, to be reached when they are covered
  std::map<fs::path, fs::path> links;
};

Contents contents_of_home() {
  Contents contents;
  for (const fs::directory_entry& entry : fs::directory_iterator(kHome)) {
    const fs::path& path = entry.path();
    if (path.filename() == "svclog") continue;
    if (entry.is_symlink()) {
      contents.links[path] = fs::read_symlink(path);
    } else if (entry.is_directory()) {
      contents.directories[path] = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    }
  }
  return contents;
}

void restore(const Contents& contents) {
  for (const auto& [path, target] : contents.links) fs::create_symlink(target, path);
  for (const auto& [path, fd] : contents.directories) {
    fs::create_directory(path);
    const std::string source = "/proc/self/fd/" + std::to_string(fd);
    if (mount(source.c_str(), path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
      throw std::system_error(errno, std::generic_category(), path);
    }
  }
}

// False if the system does not allow it.
bool make_home() {
  const fs::path working_directory = fs::current_path();
  if (!zedipc::test::enter_namespace(CLONE_NEWNS)) return false;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (!fs::is_directory(kHome)) return false;
  const Contents contents = contents_of_home();
  if (mount("tmpfs", kHome, "tmpfs", 0, "mode=755") != 0) return false;
  restore(contents);
  fs::current_path(working_directory);  // it may be in the covered /home
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: private_home PROGRAM [ARGUMENT ...]\n");
    return 2;
  }
  unsetenv("PRIVATE_HOME");
  try {
    if (make_home()) setenv("PRIVATE_HOME", "1", 1);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "private_home: %s\n", error.what());
    return 1;
  }
  execvp(argv[1], argv + 1);
  std::fprintf(stderr, "private_home: cannot run %s: %s\n", argv[1], std::strerror(errno));
  return 1;
}
