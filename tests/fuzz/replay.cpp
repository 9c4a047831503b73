// SPDX-License-Identifier: MIT
// Runs a harness with each file of some directories, without libFuzzer.
//   fuzz_NAME DIRECTORY|FILE...
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/harness.h"

namespace {

using Paths = std::vector<std::filesystem::path>;

// The files of a directory, or the one file; none if there is no such thing.
Paths files_of(const char* argument) {
  std::error_code ignored;
  if (std::filesystem::is_regular_file(argument, ignored)) return {argument};
  const std::filesystem::directory_iterator entries(argument, ignored);
  Paths files(begin(entries), end(entries));
  return files;
}

void run(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY|FILE...\n", argv[0]);
    return 2;
  }
  LLVMFuzzerInitialize(&argc, &argv);
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    const Paths files = files_of(argv[i]);
    if (files.empty()) {
      std::fprintf(stderr, "%s: there is nothing to run in %s\n", argv[0], argv[i]);
      return 1;
    }
    for (const std::filesystem::path& file : files) {
      // The last name that comes out is that of the input that fails.
      std::printf("%s\n", file.c_str());
      std::fflush(stdout);
      run(file);
    }
    count += files.size();
  }
  std::printf("%zu inputs\n", count);
  return 0;
}
