// SPDX-License-Identifier: MIT
// A locale in which numbers are written in another way.
#pragma once

#include <clocale>
#include <cstring>
#include <string>

namespace zedipc::test {

// A locale whose decimal point is a comma, while this object lives, if one is installed.
class CommaLocale {
 public:
  CommaLocale() : before_(std::setlocale(LC_NUMERIC, nullptr)) {
    for (const char* const name : {"de_DE.UTF-8", "fr_FR.UTF-8", "es_ES.UTF-8", "it_IT.UTF-8",
                                   "nl_NL.UTF-8", "pl_PL.UTF-8", "ru_RU.UTF-8", "de_DE", "fr_FR"}) {
      installed_ = std::setlocale(LC_NUMERIC, name) != nullptr &&
                   std::strcmp(std::localeconv()->decimal_point, ",") == 0;
      if (installed_) return;
    }
  }
  ~CommaLocale() { std::setlocale(LC_NUMERIC, before_.c_str()); }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

  [[nodiscard]] bool installed() const { return installed_; }

 private:
  std::string before_;
  bool installed_ = false;
};

inline constexpr char kNoLocale[] = "no locale with a decimal comma is installed";

}  // namespace zedipc::test
