// Text and path helpers shared by every layer: prefix and suffix tests that
// can ignore case, case-insensitive ordering, joining names for messages, and
// "/"-separated path text as bundle-relative paths are written.

#ifndef VELMAR_BASE_TEXT_H_
#define VELMAR_BASE_TEXT_H_

#include <string>
#include <string_view>
#include <vector>

namespace velmar {

enum class Compare { Literal, CaseInsensitive };

// False for an empty `affix`. Case-insensitive compares fold ASCII letters.
bool hasPrefix(std::string_view s, std::string_view affix, Compare how);
bool hasSuffix(std::string_view s, std::string_view affix, Compare how);

// Substring and equality tests that fold ASCII case. An empty part is never
// contained, as a search for the empty string finds nothing.
bool containsIgnoringCase(std::string_view s, std::string_view part);
bool equalIgnoringCase(std::string_view a, std::string_view b);

// Sorts names case-insensitively ascending (ties by bytes).
void sortIgnoringCase(std::vector<std::string>& names);
// Names joined by ", ", as lists are logged.
std::string joinNames(const std::vector<std::string>& names);
// The names sorted case-insensitively, each once, joined by ", ".
std::string joinSortedNames(std::vector<std::string> names);

// Path text, "/" separated, as bundle-relative paths are written.
// "a/b/c" -> "c"; "c" -> "c".
std::string lastPathComponent(std::string_view path);
// "a/b/c" -> "a/b"; "c" -> "".
std::string deletingLastPathComponent(std::string_view path);
// Joins with one "/"; an empty folder gives the name itself.
std::string appendingPathComponent(std::string_view folder, std::string_view name);

// Upper-cased copy (ASCII letters).
std::string upper(std::string_view s);
std::string lower(std::string_view s);

// Orders strings ignoring ASCII case; ties fall back to bytes so the order is total.
int caseInsensitiveCompare(std::string_view a, std::string_view b);
bool caseInsensitiveLess(std::string_view a, std::string_view b);

}  // namespace velmar

#endif  // VELMAR_BASE_TEXT_H_
