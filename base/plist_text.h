// What text a property list may hold, in its strings and its keys.
//
// Both forms must be able to carry every string: XML 1.0 cannot hold NUL,
// the other C0 controls but tab, line feed and carriage return, U+FFFE or
// U+FFFF, nor anything that is not UTF-8 (character references included).
// The readers refuse a file holding such text as malformed, so everything
// read can be written again; the writers replace such text in a value made
// in code (see propertyListText) rather than write a broken file.

#ifndef VELMAR_BASE_PLIST_TEXT_H_
#define VELMAR_BASE_PLIST_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace velmar {

// Whether a property list may hold the character `codePoint`.
inline bool isPropertyListCharacter(uint32_t codePoint) {
  if (codePoint < 0x20) return codePoint == '\t' || codePoint == '\n' || codePoint == '\r';
  if (codePoint >= 0xD800 && codePoint <= 0xDFFF) return false;
  return codePoint != 0xFFFE && codePoint != 0xFFFF && codePoint <= 0x10FFFF;
}

// Whether every character of `text` is well-formed UTF-8 that a property
// list may hold.
bool isPropertyListText(std::string_view text);

// `text` with each character a property list may not hold, and each
// maximal ill-formed UTF-8 subpart, replaced by U+FFFD.
std::string propertyListText(std::string_view text);

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

}  // namespace velmar

#endif  // VELMAR_BASE_PLIST_TEXT_H_
