// Property lists made to hurt a reader: nesting past any sane depth,
// shared references that would expand into billions of objects, text no
// property list may hold. Shared by the reader's tests, the tool's hostile
// bundle tests and the fuzzers' seeds, so each shape is built one way.

#ifndef VELMAR_SYNTH_HOSTILE_PLISTS_H_
#define VELMAR_SYNTH_HOSTILE_PLISTS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace velmar::synth {

// A binary property list from its objects' bytes: the offset table and the
// trailer are computed; references are `refWidth` bytes wide.
std::string binaryPlist(const std::vector<std::string>& objects, int refWidth, uint64_t root = 0);

// An object reference of `width` bytes, big-endian.
std::string binaryRef(uint64_t index, int width);

// A binary array object of fewer than 15 references.
std::string binaryArrayObject(const std::vector<uint64_t>& refs, int width);

// `levels` arrays, each holding the next, as XML (about 15 bytes a level)
// and as binary (5 bytes a level).
std::string nestedXmlPlist(int levels);
std::string nestedBinaryPlist(int levels);

// Level k is an array of `fanOut` references to level k + 1, the last level
// a string: fanOut^levels strings once expanded, a few hundred bytes on disk.
std::string sharedReferencesPlist(int fanOut, int levels);

// { "<U+0000>": true }, the key a UTF-16 string of one NUL code unit.
std::string nulKeyBinaryPlist();

}  // namespace velmar::synth

#endif  // VELMAR_SYNTH_HOSTILE_PLISTS_H_
