// Helpers over Values that the engines use everywhere: option reading and
// merging partial results. Text and path helpers live in base/text.h.

#ifndef VELMAR_ENGINE_COLLECTION_EXTRAS_H_
#define VELMAR_ENGINE_COLLECTION_EXTRAS_H_

#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "base/value.h"

namespace velmar {

// Options may arrive as numbers or strings: a missing key is false, a number
// is its truth value, a string is true when it begins with "y" or "Y"
// ("yes", "Yup"), so "true" and "1" are false. Anything else is false.
bool boolForKey(const Value& dict, std::string_view key);

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

}  // namespace velmar

#endif  // VELMAR_ENGINE_COLLECTION_EXTRAS_H_
