// SPDX-License-Identifier: MIT
// Virtual tables, as the Itanium C++ ABI lays them out.
#pragma once

#include <cstddef>
#include <cstring>

namespace zedipc::test {

// What a pointer to a member function is made of. On most processors the lowest bit of
// the first word tells a virtual function, and the rest is the offset in the table; on
// ARM the bit stands in the second word.
struct MemberPointer {
  std::ptrdiff_t function;
  std::ptrdiff_t adjustment;
};

template <typename Member>
MemberPointer taken_apart(Member member) {
  MemberPointer words{};
  static_assert(sizeof member == sizeof words, "not the Itanium ABI");
  std::memcpy(&words, &member, sizeof words);
  return words;
}

inline constexpr int kNotVirtual = -1;

// The place of a virtual function in its class's table.
template <typename Member>
int slot(Member member) {
  const MemberPointer words = taken_apart(member);
#if defined(__arm__) || defined(__aarch64__)
  if ((words.adjustment & 1) == 0) return kNotVirtual;
  return static_cast<int>(words.function / static_cast<std::ptrdiff_t>(sizeof(void*)));
#else
  if ((words.function & 1) == 0) return kNotVirtual;
  return static_cast<int>((words.function - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)));
#endif
}

// The functions of an object's table, as code that was compiled long ago finds them:
// called with the object ahead of the arguments. Takes no part in the checks of a
// sanitizer, which knows the functions by another type.
template <typename Result, typename... Arguments>
__attribute__((no_sanitize("undefined"))) Result call_slot(int number, void* object,
                                                           Arguments... arguments) {
  using Function = Result (*)(void*, Arguments...);
  void** table;
  std::memcpy(&table, object, sizeof table);
  Function function;
  std::memcpy(&function, &table[number], sizeof function);
  return function(object, arguments...);
}

}  // namespace zedipc::test
