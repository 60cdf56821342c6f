// Value literals for tests: dictOf({{"k", v}}), setOf({...}), arrayOf({...}).

#ifndef VELMAR_TESTS_BASE_VALUE_LITERALS_H_
#define VELMAR_TESTS_BASE_VALUE_LITERALS_H_

#include <initializer_list>
#include <utility>

#include "base/value.h"

namespace velmar::testing {

inline Value dictOf(std::initializer_list<std::pair<const char*, Value>> items) {
  Value d = Value::makeDict();
  for (const auto& [key, value] : items) d.set(key, value);
  return d;
}
inline Value setOf(std::initializer_list<Value> items) { return Value::makeSet(items); }
inline Value arrayOf(std::initializer_list<Value> items) { return Value::makeArray(items); }

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_BASE_VALUE_LITERALS_H_
