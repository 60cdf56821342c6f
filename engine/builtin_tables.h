// The four tables each engine class carries: processor map, known products,
// known factory variants (stations) and in-house tool map.
//
// Every engine class owns its own copy (see Stripper3::tables()), built on
// first use. Only the known-products table ever changes afterwards: the
// manifest engine narrows it to the bundle it analyses.

#ifndef VELMAR_ENGINE_BUILTIN_TABLES_H_
#define VELMAR_ENGINE_BUILTIN_TABLES_H_

#include <string>
#include <vector>

#include "base/value.h"

namespace velmar {

struct BuiltInTables {
  Value processorMap;     // processor id -> chip generation
  Value knownProducts;    // board code -> {processor, model, ...}
  Value factoryVariants;  // station short name -> {PersonalizationVariants, ...}
  Value toolMap;          // tool name as files spell it -> short key

  // Builds each table not built yet; a second call changes nothing, even
  // for a products table that analysis has narrowed to nothing.
  void initialize();

  // Sorted case-insensitively ascending.
  std::vector<std::string> knownProductNames() const;
  std::vector<std::string> knownFactoryVariantNames() const;
  std::vector<std::string> toolNames() const;
  // The tool's short key, or null.
  Value queryExcludeFileName(const std::string& toolName) const;
};

Value builtInProcessorMap();
Value builtInKnownProducts();
Value builtInFactoryVariants();
Value builtInToolMap();

// A dictionary's keys sorted case-insensitively ascending.
std::vector<std::string> sortedKeys(const Value& dict);

}  // namespace velmar

#endif  // VELMAR_ENGINE_BUILTIN_TABLES_H_
