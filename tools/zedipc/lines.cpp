// SPDX-License-Identifier: MIT
// Blocks of standard input, cut into lines.
#include "zedipc/lines.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "zedipc/output.h"

namespace command {

bool Lines::read() {
  char chunk[65536];
  ssize_t count;
  do {
    count = ::read(STDIN_FILENO, chunk, sizeof chunk);
  } while (count == -1 && errno == EINTR);
  if (count == -1) {
    throw Failure(std::string("cannot read standard input: ") + std::strerror(errno));
  }
  text_.erase(0, begin_);
  begin_ = 0;
  text_.append(chunk, static_cast<std::size_t>(count));
  const bool last = count == 0 && !text_.empty();
  if (last) text_ += '\n';
  return count > 0 || last;
}

std::optional<Lines::Line> Lines::next() {
  const std::size_t end = text_.find('\n', begin_);
  if (end == std::string::npos) return std::nullopt;
  Line line{text_.substr(begin_, end - begin_), ++number_};
  begin_ = end + 1;
  return line;
}

}  // namespace command
