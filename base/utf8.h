// UTF-8 well-formedness, for text read from files and pipes.

#ifndef VELMAR_BASE_UTF8_H_
#define VELMAR_BASE_UTF8_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velmar {

// True when `bytes` is well-formed UTF-8 (no overlong forms, no surrogates,
// nothing above U+10FFFF).
bool isValidUtf8(std::string_view bytes);

// Length of the tail of `bytes` that is the start of a multi-byte character
// still missing its last bytes (0 to 3). Only a tail that could still become
// valid counts.
size_t incompleteUtf8Tail(std::string_view bytes);

// The character at the start of `bytes` (which is not empty). When it is
// well-formed, `length` is its length and `codePoint` its value; otherwise
// `length` is the length of the maximal ill-formed subpart there (at least
// 1), the unit that one replacement character stands for.
struct Utf8Char {
  uint32_t codePoint = 0;
  size_t length = 0;
  bool valid = false;
};
Utf8Char decodeUtf8(std::string_view bytes);

// Appends the UTF-8 form of `codePoint` (at most U+10FFFF, not a surrogate).
void appendUtf8(std::string* out, uint32_t codePoint);

}  // namespace velmar

#endif  // VELMAR_BASE_UTF8_H_
