// UTF-8 checks for text that arrives from a child process in pieces.
//
// A pipe hands over bytes in chunks of any size, so a character may be split
// between two chunks. Utf8ChunkDecoder holds such a split tail back until the
// next chunk completes it; a chunk that is not UTF-8 for any other reason is
// dropped whole, so the text gathered is always valid UTF-8.

#ifndef VELMAR_APP_UTF8_TEXT_H_
#define VELMAR_APP_UTF8_TEXT_H_

#include <string>
#include <string_view>

#include "base/utf8.h"

namespace velmar::app {

class Utf8ChunkDecoder {
 public:
  // Text decoded from `chunk` together with any tail held back from the last
  // chunk; empty when the bytes are not UTF-8 (they are then dropped).
  std::string decode(std::string_view chunk);

  // Bytes held back at the end of the stream never became a character.
  bool hasPendingBytes() const { return !pending_.empty(); }

 private:
  std::string pending_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UTF8_TEXT_H_
