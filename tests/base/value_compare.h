// Comparing two values the way a reader's or a store's tests need: same
// kinds, same key order, same contents, with numbers compared either bit for
// bit or as libplist keeps them (dates to the microsecond, NaN equal to NaN).
// A failure names the path to the first difference.

#ifndef VELMAR_TESTS_BASE_VALUE_COMPARE_H_
#define VELMAR_TESTS_BASE_VALUE_COMPARE_H_

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "base/value.h"

namespace velmar::testing {

enum class Numbers { BitIdentical, AsLibplistKeeps };

inline bool sameNumber(double x, double y, bool date, Numbers numbers) {
  if (numbers == Numbers::BitIdentical) return std::memcmp(&x, &y, sizeof x) == 0;
  if (date) return std::fabs(x - y) <= 1e-6;
  return x == y || (std::isnan(x) && std::isnan(y));
}

inline ::testing::AssertionResult identicalValues(const Value& a, const Value& b, Numbers numbers,
                                                  const std::string& where = "root") {
  if (a.type() != b.type()) return ::testing::AssertionFailure() << where << ": kinds differ";
  switch (a.type()) {
    case Value::Type::Real:
    case Value::Type::Date: {
      const double x = a.isReal() ? a.realValue() : a.dateValue().seconds;
      const double y = b.isReal() ? b.realValue() : b.dateValue().seconds;
      if (!sameNumber(x, y, a.isDate(), numbers))
        return ::testing::AssertionFailure() << where << ": " << x << " != " << y;
      break;
    }
    case Value::Type::Array:
      if (a.count() != b.count()) return ::testing::AssertionFailure() << where << ": sizes differ";
      for (size_t i = 0; i < a.count(); ++i)
        if (auto r = identicalValues(a.arr()[i], b.arr()[i], numbers, where + "[" + std::to_string(i) + "]"); !r)
          return r;
      break;
    case Value::Type::Dict:
      if (a.dict().keys() != b.dict().keys()) return ::testing::AssertionFailure() << where << ": keys differ";
      for (const auto& [key, item] : a.dict())
        if (auto r = identicalValues(item, b.get(key), numbers, where + "." + key); !r) return r;
      break;
    default:
      if (a != b)
        return ::testing::AssertionFailure() << where << ": " << a.description() << " != " << b.description();
  }
  return ::testing::AssertionSuccess();
}

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_BASE_VALUE_COMPARE_H_
