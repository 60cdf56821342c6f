// Reading and writing property lists, XML and binary. The readers are the
// project's own (see plist_readers.h); the writers use libplist.

#ifndef VELMAR_BASE_PLIST_IO_H_
#define VELMAR_BASE_PLIST_IO_H_

#include <string>
#include <string_view>

#include "base/value.h"

namespace velmar {

// Parses XML or binary property-list bytes. Null on malformed input.
Value parsePropertyList(std::string_view bytes);

// Reads and parses a file. Null when the file is missing, unreadable, larger
// than kMaxPropertyListFileSize, or not a property list.
Value readPropertyListFile(const std::string& path);
constexpr size_t kMaxPropertyListFileSize = size_t{1} << 30;

// XML text of a value. Sets are written as arrays; null members of
// containers are left out (there is no null in a property list). A null root
// gives an empty dictionary.
std::string toXml(const Value& v);
// Binary form, for tests and tools that want it.
std::string toBinary(const Value& v);

}  // namespace velmar

#endif  // VELMAR_BASE_PLIST_IO_H_
