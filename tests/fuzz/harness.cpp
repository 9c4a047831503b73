// SPDX-License-Identifier: MIT
#include "fuzz/harness.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace zedipc::test {

namespace {

constexpr std::size_t kMaxInput = 65536;

}  // namespace

void require(bool condition, const char* statement) {
  if (condition) return;
  std::printf("\nfuzz: this does not hold: %s\n", statement);
  std::fflush(stdout);
  std::abort();
}

Input::Input(const std::uint8_t* data, std::size_t size)
    : bytes_(reinterpret_cast<const char*>(data), std::min(size, kMaxInput)) {}

unsigned char Input::byte() { return empty() ? 0 : static_cast<unsigned char>(bytes_[at_++]); }

std::string Input::up_to(char end) {
  const std::size_t found = std::min(bytes_.find(end, at_), bytes_.size());
  const std::string text = bytes_.substr(at_, found - at_);
  at_ = std::min(found + 1, bytes_.size());
  return text;
}

std::string Input::rest() {
  const std::string text = bytes_.substr(at_);
  at_ = bytes_.size();
  return text;
}

}  // namespace zedipc::test

// No log, unless the environment asks for one.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  setenv("IPC_LOGMASK", "0", 0);
  setenv("NFY_LOGMASK", "0", 0);
  return 0;
}
