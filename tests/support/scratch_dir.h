// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace zedipc::test {

// A new empty directory, removed with all it holds when the object goes.
class ScratchDir {
 public:
  ScratchDir() {
    // A name with "0x" in it would look like an address where log lines are compared.
    do {
      std::string name = (std::filesystem::temp_directory_path() / "zedipc-test-XXXXXX").string();
      std::filesystem::remove(path_);
      path_ = mkdtemp(name.data());
    } while (path_.find("0x") != std::string::npos);
  }
  ~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  // The path of a file in the directory.
  [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }

  // Writes a file, and gives its path.
  [[nodiscard]] std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(file(name), std::ios::binary) << text;
    return file(name);
  }

 private:
  std::string path_;
};

}  // namespace zedipc::test
