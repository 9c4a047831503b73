// SPDX-License-Identifier: MIT
// Texts that are JSON, nearly JSON, or no longer JSON, the same ones at each run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace zedipc::test {

class TextGenerator {
 public:
  explicit TextGenerator(std::uint32_t seed) : random_(seed) {}

  // A value with what the reader tolerates: missing and extra commas, odd words and
  // numbers, each kind of escape, keys that come twice.
  std::string text();

  // The same after up to four small accidents.
  std::string damaged_text();

 private:
  std::size_t below(std::size_t limit) { return random_() % limit; }
  bool one_in(std::size_t count) { return below(count) == 0; }
  template <std::size_t kCount>
  std::string any_of(const char* const (&choices)[kCount]) {
    return choices[below(kCount)];
  }

  std::string value(int levels);
  std::string space();
  std::string word();
  std::string number();
  std::string digits(std::size_t count);
  std::string quoted(std::size_t longest);
  std::string array(int levels);
  std::string object(int levels);
  std::string comma();
  void damage(std::string& text);

  std::mt19937 random_;
};

}  // namespace zedipc::test
