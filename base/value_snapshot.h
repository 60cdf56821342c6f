// A compact binary form of a parsed property list, for keeping it on disk
// between runs (parsed_file_store.h).
//
// Reading it back must cost far less than parsing the XML again, so equal
// subtrees are written once and come back as one shared Value (copy-on-write
// keeps that invisible to readers). A build manifest repeats the same item
// dictionaries across hundreds of identities: its 130,000 values fold into
// about 12,000 records, read in a few milliseconds.
//
// A snapshot is a list of records, each one value whose children are earlier
// records; the last is the root. Every field is checked on reading: a damaged
// or hostile snapshot answers null, never a crash, a hang or memory out of
// proportion to its size.

#ifndef VELMAR_BASE_VALUE_SNAPSHOT_H_
#define VELMAR_BASE_VALUE_SNAPSHOT_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "base/value.h"

namespace velmar {

// The snapshot of `root`, or false when it holds what a property list
// cannot (a null member, a set) or its encoding would exceed `maxBytes`.
bool encodeSnapshot(const Value& root, size_t maxBytes, std::string* out);

// The value a snapshot holds; null when malformed, nested deeper than a
// property list may be, or when its shared records would unfold into more
// than `maxTreeNodes` values.
Value decodeSnapshot(std::string_view bytes, uint64_t maxTreeNodes);

}  // namespace velmar

#endif  // VELMAR_BASE_VALUE_SNAPSHOT_H_
