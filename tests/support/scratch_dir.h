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
    std::string name = (std::filesystem::temp_directory_path() / "zedipc-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
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
