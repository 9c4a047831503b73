// SPDX-License-Identifier: MIT
// Standard input, line by line as it comes.
#pragma once

#include <optional>
#include <string>

namespace command {

class Lines {
 public:
  struct Line {
    std::string text;      // without its end
    unsigned long number;  // from 1
  };

  // Waits for more of the input, and reads it; false at its end. Throws Failure.
  bool read();
  // The next line that has been read to its end, if there is one. The input's last line
  // needs no end.
  std::optional<Line> next();

 private:
  std::string text_;
  std::size_t begin_ = 0;  // of what has not been given away
  unsigned long number_ = 0;
};

}  // namespace command
