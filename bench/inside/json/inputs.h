// SPDX-License-Identifier: MIT
// The texts that are read and written.
#pragma once

#include <string>
#include <vector>

struct Input {
  std::string name;
  std::string text;
};

// Messages of the notification service as the library writes them, by their size, and
// larger values. All are compact, with keys in ascending order.
std::vector<Input> make_inputs();

// Whether two texts have the same bytes except for numbers, which may be written in
// several ways and are compared as doubles of fifteen digits.
bool same_content(const std::string& a, const std::string& b);
