// printf-style formatting with "%@" for Values, as the engine's messages are
// written. Supported conversions: %@ (a Value's description; a missing
// object prints "(null)"), %d %i %u %x %X %ld %lu %hX ... with flags and
// width, %f %g %e, %s and %S (a C string), %%. An argument of the wrong kind
// is converted the way a reader would expect (a number for %@ prints its
// decimal text, a string for %d prints 0).

#ifndef VELMAR_BASE_FORMAT_H_
#define VELMAR_BASE_FORMAT_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/value.h"

namespace velmar {

class FormatArg {
 public:
  FormatArg(const Value& v) : v_(v) {}
  FormatArg(const char* s) : v_(s ? Value(s) : Value()) {}
  FormatArg(const std::string& s) : v_(Value(s)) {}
  FormatArg(std::string_view s) : v_(Value(s)) {}
  FormatArg(int i) : v_(static_cast<int64_t>(i)) {}
  FormatArg(long i) : v_(static_cast<int64_t>(i)) {}
  FormatArg(long long i) : v_(static_cast<int64_t>(i)) {}
  FormatArg(unsigned i) : v_(static_cast<int64_t>(i)) {}
  FormatArg(unsigned long i) : v_(static_cast<int64_t>(i)) {}
  FormatArg(unsigned long long i) : v_(static_cast<int64_t>(i)) {}
  FormatArg(double d) : v_(d) {}
  FormatArg(bool b) : v_(b) {}

  const Value& value() const { return v_; }

 private:
  Value v_;
};

std::string formatv(std::string_view fmt, const std::vector<FormatArg>& args);

template <class... Args>
std::string format(std::string_view fmt, const Args&... args) {
  return formatv(fmt, std::vector<FormatArg>{FormatArg(args)...});
}

}  // namespace velmar

#endif  // VELMAR_BASE_FORMAT_H_
