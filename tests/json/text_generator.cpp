// SPDX-License-Identifier: MIT
#include "json/text_generator.h"

#include <algorithm>

namespace zedipc::test {

std::string TextGenerator::text() { return space() + value(4) + space() + (one_in(8) ? "," : ""); }

std::string TextGenerator::damaged_text() {
  std::string result = text();
  for (std::size_t count = below(5); count > 0; --count) damage(result);
  return result;
}

std::string TextGenerator::value(int levels) {
  const std::size_t choice = below(levels > 0 ? 10 : 6);
  if (choice < 1) return word();
  if (choice < 3) return number();
  if (choice < 6) return quoted(6);
  return choice < 8 ? array(levels - 1) : object(levels - 1);
}

std::string TextGenerator::space() {
  static const char* const kSpaces[] = {" ", "\t", "\n", "\r\n", "  "};
  return one_in(4) ? any_of(kSpaces) : "";
}

std::string TextGenerator::word() {
  static const char* const kWords[] = {"true", "false", "null"};
  static const char* const kOddWords[] = {"falsy", "fals", "fals ", "truefalse", "nullx", "True",
                                          "tru",   "nul",  "nan",   "x",         ""};
  return one_in(5) ? any_of(kOddWords) : any_of(kWords);
}

std::string TextGenerator::number() {
  static const char* const kNumbers[] = {"0",
                                         "-",
                                         "-0",
                                         "-0.0",
                                         "007",
                                         "1.",
                                         "1e",
                                         "1e+",
                                         "-.5",
                                         "-.",
                                         "-e1",
                                         "1E-2",
                                         "2147483647",
                                         "2147483648",
                                         "-2147483648",
                                         "-2147483649",
                                         "1e400",
                                         "1e999",
                                         "0x1F",
                                         "+1",
                                         ".5",
                                         "1.5.2",
                                         "--1",
                                         "1-2",
                                         "9223372036854775807",
                                         "9223372036854775808",
                                         "-9223372036854775809",
                                         "99999999999999999999",
                                         "0.1",
                                         "1e21",
                                         "999999999",
                                         "1000000000",
                                         "-999999999"};
  if (one_in(3)) return any_of(kNumbers);
  std::string result = (one_in(3) ? "-" : "") + digits(1 + below(12));
  if (one_in(3)) result += "." + digits(below(20));
  if (one_in(5)) result += (one_in(2) ? "e" : "E") + std::string(one_in(2) ? "-" : "") + digits(2);
  return result;
}

std::string TextGenerator::digits(std::size_t count) {
  std::string result;
  while (count-- > 0) result += static_cast<char>('0' + below(10));
  return result;
}

std::string TextGenerator::quoted(std::size_t longest) {
  static const char* const kEscapes[] = {
      "\\b",   "\\f",   "\\n",     "\\r",      "\\t",     "\\\"",      "\\\\",
      "\\/",   "\\q",   "\\u0041", "\\u00e9",  "\\u20AC", "\\u0000",   "\\uD83D\\uDE00",
      "\\u12", "\\u",   "\\u-1 2", "\\u 12z",  "\\uzzzz", "\\101",     "\\0",
      "\\377", "\\777", "\\18z",   "\\0a\\\\", "\\8",     "\\u00\\\"1"};
  std::string result = "\"";
  for (std::size_t count = below(longest + 1); count > 0; --count) {
    if (one_in(4)) {
      result += any_of(kEscapes);
    } else if (one_in(8)) {
      const char byte = static_cast<char>(1 + below(255));
      result += byte == '"' || byte == '\\' ? '~' : byte;
    } else {
      result += static_cast<char>('a' + below(26));
    }
  }
  return result + "\"";
}

std::string TextGenerator::comma() {
  static const char* const kOdd[] = {"", " ", ",,", ", ,"};
  return one_in(12) ? any_of(kOdd) : space() + "," + space();
}

std::string TextGenerator::array(int levels) {
  std::string result = "[" + space();
  for (std::size_t count = below(5); count > 0; --count) {
    result += value(levels);
    if (count > 1 || one_in(6)) result += comma();
  }
  return result + space() + "]";
}

std::string TextGenerator::object(int levels) {
  static const char* const kKeys[] = {"\"a\"", "\"b\"", "\"\"", "\"ab\"", "\"\\u0061\"", "\"z\""};
  std::string result = "{" + space();
  for (std::size_t count = below(5); count > 0; --count) {
    result += one_in(4) ? quoted(3) : any_of(kKeys);
    result += space() + ":" + space();
    if (!one_in(10)) result += value(levels);
    if (count > 1 || one_in(6)) result += comma();
  }
  return result + space() + "}";
}

void TextGenerator::damage(std::string& text) {
  static const std::string kBytes = "\"\\{}[],:-+.0179eEutfnlas \t\n\r\f\x01\x7F\xFF";
  if (text.empty()) return;
  const std::size_t at = below(text.size());
  const std::size_t length = std::min<std::size_t>(1 + below(6), text.size() - at);
  switch (below(6)) {
    case 0:
      text.erase(at, 1);
      break;
    case 1:
      text.insert(at, 1, kBytes[below(kBytes.size())]);
      break;
    case 2:
      text[at] = kBytes[below(kBytes.size())];
      break;
    case 3:
      text.insert(at, text.substr(at, length));
      break;
    case 4:
      text.erase(at, length);
      break;
    default:
      if (one_in(3)) text.resize(at);
      break;
  }
}

}  // namespace zedipc::test
