#include "base/utf8.h"

namespace velmar {

namespace {

// Bytes of the character that `lead` starts, 0 for a byte no character may
// start with.
size_t sequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

// Whether the second byte fits the lead; this is where overlong forms,
// surrogates and code points above U+10FFFF are refused.
bool secondByteFits(unsigned char lead, unsigned char second) {
  switch (lead) {
    case 0xE0: return second >= 0xA0 && second <= 0xBF;
    case 0xED: return second >= 0x80 && second <= 0x9F;
    case 0xF0: return second >= 0x90 && second <= 0xBF;
    case 0xF4: return second >= 0x80 && second <= 0x8F;
    default: return second >= 0x80 && second <= 0xBF;
  }
}

bool isContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Bytes of the well-formed prefix of the character at `p` (up to `available`
// bytes), and whether the character is complete.
size_t wellFormedPrefix(const unsigned char* p, size_t available, bool* complete) {
  size_t need = sequenceLength(p[0]);
  *complete = false;
  if (need == 0) return 0;
  size_t have = 1;
  for (; have < need && have < available; ++have) {
    bool fits = have == 1 ? secondByteFits(p[0], p[1]) : isContinuation(p[have]);
    if (!fits) return have;
  }
  *complete = have == need;
  return have;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
  auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  size_t n = bytes.size();
  for (size_t i = 0; i < n;) {
    bool complete = false;
    size_t len = wellFormedPrefix(p + i, n - i, &complete);
    if (!complete) return false;
    i += len;
  }
  return true;
}

Utf8Char decodeUtf8(std::string_view bytes) {
  auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  Utf8Char c;
  bool complete = false;
  size_t len = wellFormedPrefix(p, bytes.size(), &complete);
  if (!complete) {
    c.length = len == 0 ? 1 : len;
    return c;
  }
  c.length = len;
  c.valid = true;
  static constexpr unsigned char kLeadMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  uint32_t cp = p[0] & kLeadMask[len];
  for (size_t i = 1; i < len; ++i) cp = (cp << 6) | (p[i] & 0x3F);
  c.codePoint = cp;
  return c;
}

void appendUtf8(std::string* out, uint32_t cp) {
  if (cp < 0x80) {
    *out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    *out += static_cast<char>(0xC0 | (cp >> 6));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    *out += static_cast<char>(0xE0 | (cp >> 12));
    *out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    *out += static_cast<char>(0xF0 | (cp >> 18));
    *out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    *out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

size_t incompleteUtf8Tail(std::string_view bytes) {
  auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  size_t n = bytes.size();
  // A split character starts at most three bytes before the end.
  for (size_t back = 1; back <= 3 && back <= n; ++back) {
    size_t start = n - back;
    if (isContinuation(p[start])) continue;
    bool complete = false;
    size_t len = wellFormedPrefix(p + start, back, &complete);
    return (!complete && len == back) ? back : 0;
  }
  return 0;
}

}  // namespace velmar
