// Reading and writing property lists, XML and binary (see plist_readers.h
// for the readers, plist_xml_writer.cc and plist_binary_writer.cc for the
// layouts written).

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
// gives an empty dictionary. Whatever was read is written as it was read
// (XML keeps dates to the second); a value made in code is written as a
// property list can hold it: in strings and keys each character it cannot
// hold (plist_text.h) becomes U+FFFD, and dates come into the years 1 to
// 9999 (plist_date.h).
std::string toXml(const Value& v);
// Binary form, for tests and tools that want it; the same rules.
std::string toBinary(const Value& v);

}  // namespace velmar

#endif  // VELMAR_BASE_PLIST_IO_H_
