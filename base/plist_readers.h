// The two property-list readers behind parsePropertyList, and the limits
// they share. Both treat their input as hostile: malformed, too deep or
// too large input answers null, never a crash, a hang or unbounded memory.

#ifndef VELMAR_BASE_PLIST_READERS_H_
#define VELMAR_BASE_PLIST_READERS_H_

#include <string>
#include <string_view>

#include "base/value.h"

namespace velmar {

// Containers nest at most this deep (the root is at depth 0). A deeper file
// is refused as a whole: a truncated manifest would read as a valid one.
constexpr int kMaxPropertyListDepth = 512;

// An XML property list (an optional UTF-8 byte-order mark, an optional
// <plist> element around one value). Null on malformed input.
Value parseXmlPropertyList(std::string_view bytes);

// The same, parsing `buffer` in place: no copy of a large file.
Value parseXmlPropertyListInPlace(std::string& buffer);

// A "bplist00" binary property list. Objects the file shares between
// several places stay shared in the Value (copy-on-write makes that safe);
// a file whose shared references would expand into a tree much larger than
// the file itself is refused, as are cycles.
//
// Both readers refuse text a property list cannot hold (see plist_text.h)
// and dates outside the years 1 to 9999 (see plist_date.h).
Value parseBinaryPropertyList(std::string_view bytes);

}  // namespace velmar

#endif  // VELMAR_BASE_PLIST_READERS_H_
