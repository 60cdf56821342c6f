// UTF-8 well-formedness, for text read from files and pipes.

#ifndef VELMAR_BASE_UTF8_H_
#define VELMAR_BASE_UTF8_H_

#include <cstddef>
#include <string_view>

namespace velmar {

// True when `bytes` is well-formed UTF-8 (no overlong forms, no surrogates,
// nothing above U+10FFFF).
bool isValidUtf8(std::string_view bytes);

// Length of the tail of `bytes` that is the start of a multi-byte character
// still missing its last bytes (0 to 3). Only a tail that could still become
// valid counts.
size_t incompleteUtf8Tail(std::string_view bytes);

}  // namespace velmar

#endif  // VELMAR_BASE_UTF8_H_
