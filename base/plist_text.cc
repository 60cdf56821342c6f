#include "base/plist_text.h"

#include <cstring>

#include "base/utf8.h"

namespace velmar {

namespace {

// Printable ASCII and the three blanks: the bytes that need no decoding.
bool isPlainByte(unsigned char c) { return (c >= 0x20 && c < 0x80) || c == '\t' || c == '\n' || c == '\r'; }

// Whether none of the eight bytes in `word` is below 0x20 or above 0x7F:
// the common case that needs no look at single bytes. (A byte below 0x20
// borrows into its top bit when 0x20 is taken from it, while its own top
// bit is clear.)
bool allPrintableAscii(uint64_t word) {
  constexpr uint64_t kOnes = 0x0101010101010101, kTops = 0x8080808080808080;
  return ((word | ((word - kOnes * 0x20) & ~word)) & kTops) == 0;
}

}  // namespace

bool isPropertyListText(std::string_view text) {
  // Reading keeps every string and key to this rule, so the plain case
  // goes eight bytes at a time.
  size_t i = 0;
  for (uint64_t word; i + 8 <= text.size(); i += 8) {
    std::memcpy(&word, text.data() + i, 8);
    if (!allPrintableAscii(word)) break;
  }
  while (i < text.size()) {
    if (isPlainByte(static_cast<unsigned char>(text[i]))) {
      ++i;
      continue;
    }
    Utf8Char c = decodeUtf8(text.substr(i));
    if (!c.valid || !isPropertyListCharacter(c.codePoint)) return false;
    i += c.length;
  }
  return true;
}

std::string propertyListText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    if (isPlainByte(static_cast<unsigned char>(text[i]))) {
      out += text[i++];
      continue;
    }
    Utf8Char c = decodeUtf8(text.substr(i));
    if (c.valid && isPropertyListCharacter(c.codePoint))
      out.append(text.substr(i, c.length));
    else
      out.append(kReplacementCharacter);
    i += c.length;
  }
  return out;
}

}  // namespace velmar
