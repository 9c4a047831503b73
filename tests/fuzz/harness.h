// SPDX-License-Identifier: MIT
// What the fuzz harnesses share. A harness is one function, which is run with one input
// after another: by libFuzzer, which makes them up, or by replay.cpp, which takes files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The names are libFuzzer's.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace zedipc::test {

// Ends the process, which makes the input a finding, if `condition` does not hold. To
// standard output, since standard error is the log's.
void require(bool condition, const char* statement);

// The bytes of an input, taken from the front. Of a very long input only the beginning
// is looked at, so that it fits what a socket holds.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size);

  [[nodiscard]] bool empty() const { return at_ == bytes_.size(); }
  // The next byte; 0 if there is none.
  unsigned char byte();
  // The bytes up to `end`, which goes with them, or all that are left.
  std::string up_to(char end);
  std::string line() { return up_to('\n'); }
  std::string rest();

 private:
  std::string bytes_;
  std::size_t at_ = 0;
};

}  // namespace zedipc::test
