// Small helpers over Values that the engines use everywhere: option reading,
// one-line printing of collections, merging partial results, and prefix and
// suffix tests that can ignore case.

#ifndef VELMAR_ENGINE_COLLECTION_EXTRAS_H_
#define VELMAR_ENGINE_COLLECTION_EXTRAS_H_

#include <string>
#include <string_view>
#include <vector>

#include "engine/value.h"

namespace velmar {

// Options may arrive as numbers or strings: a missing key is false, a number
// is its truth value, a string is true when it begins with "y" or "Y"
// ("yes", "Yup"), so "true" and "1" are false. Anything else is false.
bool boolForKey(const Value& dict, std::string_view key);

// The members' descriptions in enumeration order joined by ", ". Sets
// enumerate sorted. Not a collection: its description.
std::string niceDescription(const Value& collection);

// Adds each member of `other` that `receiver` does not hold yet, in order
// (arrays append at the end). Duplicates already in the receiver stay.
// Always true. A null receiver becomes an empty collection of its kind first.
bool deepMergeArray(Value& receiver, const Value& other);
bool deepMergeSet(Value& receiver, const Value& other);

// Merges `other` into `receiver` key by key: missing keys are taken over,
// arrays, dictionaries and sets under the same key are merged recursively,
// equal leaves pass, and anything else logs
// "!!! WARNING cannot merge %@->%@ for key %@." and stops with false (keys
// merged before the conflict stay merged).
bool deepMergeDictionary(Value& receiver, const Value& other);

// The class name a merge warning prints for a value.
std::string className(const Value& v);

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

#endif  // VELMAR_ENGINE_COLLECTION_EXTRAS_H_
