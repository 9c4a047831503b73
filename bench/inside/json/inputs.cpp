// SPDX-License-Identifier: MIT
#include "json/inputs.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace {

constexpr char kNotification60[] =
    R"({"notification":"paper.out","to":"display","type":"unregister"})";
constexpr char kNotification100[] =
    R"({"flags":0,"from":"printer","notification":"paper.out","parameter":{"tray":2},"to":"*",)"
    R"("type":"notify"})";
constexpr char kNotification200[] =
    R"({"flags":0,"from":"scheduler","notification":"job.state.changed","parameter":{"id":4711,)"
    R"("owner":"Anna Keller","pages":12,"progress":0.375,"state":"printing"},)"
    R"("reference":268435456,"to":"display","type":"notify"})";
constexpr char kNotification400[] =
    R"({"flags":3,"from":"scheduler","notification":"job.state.changed","parameter":{"error":null,)"
    R"("file":"/var/spool/jobs/report-2021-04-30.pdf","id":4711,"owner":"Anna Keller",)"
    R"("pages":{"done":12,"failed":0,"total":32},"progress":0.375,"state":"printing",)"
    R"("title":"Quarterly report \"North\"","trays":[{"level":0.82,"paper":"A4"},)"
    R"({"level":0.11,"paper":"A3"}],"urgent":true},"reference":268435456,"to":"display",)"
    R"("type":"notify"})";

std::string number_text(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.16g", value);
  return text;
}

// Key number `index` in a form that sorts as the numbers do.
std::string key_text(int index) {
  char text[32];
  std::snprintf(text, sizeof text, "\"setting%05d\":", index);
  return text;
}

template <typename Item>
std::string joined(char begin, char end, int count, const Item& item) {
  std::string text(1, begin);
  for (int i = 0; i < count; ++i) {
    if (i != 0) text += ',';
    text += item(i);
  }
  return text + end;
}

// About 64 KiB: groups of settings of every kind.
std::string make_object() {
  return joined('{', '}', 420, [](int group) {
    const std::string number = std::to_string(group + 1);
    return key_text(group) + R"({"comment":"what setting )" + number +
           R"( is there for, in a few words","default":)" + std::to_string(group * 37 % 1000) +
           R"(,"enabled":)" + (group % 3 == 0 ? "true" : "false") + R"(,"limits":[-)" + number +
           R"(,)" + number + R"(00],"scale":)" + number_text(group / 8.0) + R"(,"unit":null})";
  });
}

// Numbers that need all the digits that are written.
std::string make_doubles() {
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> value(-1000.0, 1000.0);
  return joined('[', ']', 100000, [&](int) { return number_text(value(random)); });
}

std::string make_records() {
  return joined('[', ']', 1000, [](int index) {
    const std::string number = std::to_string(index);
    return R"({"city":"Winterthur","email":"anna.keller.)" + number +
           R"(@example.com","name":"Anna Keller )" + number +
           R"(","note":"calls back \"soon\", says she","phone":"+41 52 000 )" + number +
           R"(","street":"Technikumstrasse )" + number + R"("})";
  });
}

bool is_number(const char* at) { return *at == '-' || (*at >= '0' && *at <= '9'); }

}  // namespace

std::vector<Input> make_inputs() {
  return {{"notification_60", kNotification60},   {"notification_100", kNotification100},
          {"notification_200", kNotification200}, {"notification_400", kNotification400},
          {"object_64k", make_object()},          {"doubles_100000", make_doubles()},
          {"records_1000", make_records()}};
}

bool same_content(const std::string& a, const std::string& b) {
  const char* left = a.c_str();
  const char* right = b.c_str();
  while (*left != '\0' || *right != '\0') {
    if (is_number(left) && is_number(right)) {
      char* left_end = nullptr;
      char* right_end = nullptr;
      const double value = std::strtod(left, &left_end);
      const double other = std::strtod(right, &right_end);
      if (std::abs(value - other) > 1e-15 * std::abs(value)) return false;
      left = left_end;
      right = right_end;
    } else if (*left++ != *right++) {
      return false;
    }
  }
  return true;
}
