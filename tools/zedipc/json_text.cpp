// SPDX-License-Identifier: MIT
// Where a text stops being JSON: the library's reader does not say.
#include "zedipc/json_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "zedipc/output.h"
#include "zedipc/text.h"

namespace command {

namespace {

using zedipc::JSObject;

constexpr std::size_t kShown = 60;  // bytes of a line before the place, and after it

// What a beginning of a text leaves open.
struct Open {
  bool in_string = false;
  std::string closers;  // the brackets that close it
};

Open open_at_end(const std::string& beginning) {
  Open open;
  for (std::size_t at = 0; at < beginning.size(); ++at) {
    const char c = beginning[at];
    if (c == '"') {
      open.in_string = !open.in_string;
    } else if (open.in_string) {
      if (c == '\\') ++at;
    } else if (c == '{' || c == '[') {
      open.closers += c == '{' ? '}' : ']';
    } else if ((c == '}' || c == ']') && !open.closers.empty()) {
      open.closers.pop_back();
    }
  }
  std::reverse(open.closers.begin(), open.closers.end());
  return open;
}

constexpr char kBlanks[] = " \t\r\n";

bool is_blank(const std::string& text) {
  return text.find_first_not_of(kBlanks) == std::string::npos;
}

bool is_whole_value(const std::string& text) {
  const int length = JSObject().parse(text.c_str());
  return length > 0 && static_cast<std::size_t>(length) == text.size();
}

// Whether some ending makes a value of this beginning of a text. The library says that a
// text is broken, but not where, and it alone knows what it tolerates: so it is asked about
// each ending that a beginning can need.
bool can_be_completed(const std::string& beginning) {
  const Open open = open_at_end(beginning);
  const auto completes = [&](const char* ending) {
    return is_whole_value(beginning + ending + open.closers);
  };
  if (open.in_string) {
    const auto endings = {"\"", "\":0", "\\\"", "\\\":0"};
    return std::any_of(endings.begin(), endings.end(), completes);
  }
  const auto endings = {"", "0", ":0", "rue", "ue", "alse", "lse", "se", "e", "ull", "ll", "l"};
  return std::any_of(endings.begin(), endings.end(), completes);
}

// Where a broken text stops making sense: after its longest beginning that can be
// completed. Shorter ones can be completed too.
std::size_t place_of_error(const std::string& text) {
  std::size_t good = 0;
  std::size_t bad = text.size() + 1;
  while (bad - good > 1) {
    const std::size_t middle = good + (bad - good) / 2;
    (can_be_completed(text.substr(0, middle)) ? good : bad) = middle;
  }
  return good;
}

// Where a text is from, and how many lines precede it there.
struct Source {
  std::string name;
  unsigned long lines_before = 0;
};

// "name:LINE:COLUMN: reason", the line, and a caret under the place.
Failure error_at(const std::string& text, std::size_t place, const Source& source,
                 const std::string& reason) {
  const std::size_t line_begin = place == 0 ? 0 : text.rfind('\n', place - 1) + 1;
  const std::size_t line_end = std::min(text.find('\n', place), text.size());
  const auto before_place = std::count(text.begin(), text.begin() + static_cast<long>(place), '\n');
  const unsigned long number = 1 + source.lines_before + static_cast<unsigned long>(before_place);
  const std::size_t size_before = std::min(place - line_begin, kShown);
  const std::size_t size_after = std::min(line_end - place, kShown);
  const std::string before = (size_before < place - line_begin ? "..." : "") +
                             printable(text.substr(place - size_before, size_before));
  const std::string after =
      printable(text.substr(place, size_after)) + (size_after < line_end - place ? "..." : "");
  return Failure(source.name + ":" + std::to_string(number) + ":" +
                 std::to_string(place - line_begin + 1) + ": " + reason + "\n  " + before + after +
                 "\n  " + std::string(width(before), ' ') + "^");
}

}  // namespace

JSObject read_json(const std::string& text, const std::string& name, unsigned long line) {
  const Source source{name, line == 0 ? 0 : line - 1};
  JSObject value;
  const int length = value.parse(text.c_str());
  const auto stopped = static_cast<std::size_t>(length);
  if (length >= 0 && stopped == text.size() && !is_blank(text)) return value;
  if (length >= 0 && stopped <= text.size()) {
    const bool none = is_blank(text.substr(0, stopped));
    const std::size_t place =
        none ? std::min(text.find_first_not_of(kBlanks), text.size()) : stopped;
    if (place == text.size()) {
      throw Failure(name + (line == 0 ? "" : ":" + std::to_string(line)) +
                    ": there is no JSON value");
    }
    throw error_at(text, place, source,
                   none ? "no JSON value begins like this (a text needs quotes)"
                        : "a JSON value ends before this, and nothing may follow it");
  }
  const std::size_t place = length < 0 ? place_of_error(text) : text.size();
  if (place < text.size()) {
    throw error_at(text, place, source, "the JSON value cannot go on like this");
  }
  // Shown right after the text: the end of a file's last line would put it on an empty one.
  throw error_at(text, text.find_last_not_of(kBlanks) + 1, source,
                 "the JSON value is cut off here");
}

std::string read_file(const std::string& path) {
  const bool standard = path == "-";
  const std::unique_ptr<FILE, int (*)(FILE*)> file(
      standard ? stdin : std::fopen(path.c_str(), "rbe"),
      standard ? [](FILE*) { return 0; } : std::fclose);
  const std::string name = standard ? "standard input" : "'" + printable(path) + "'";
  if (file == nullptr) throw Failure("cannot open " + name + ": " + std::strerror(errno));
  std::string text;
  char chunk[65536];
  for (std::size_t count; (count = std::fread(chunk, 1, sizeof chunk, file.get())) > 0;) {
    text.append(chunk, count);
  }
  if (std::ferror(file.get()) != 0) {
    throw Failure("cannot read " + name + ": " + std::strerror(errno));
  }
  return text;
}

}  // namespace command
