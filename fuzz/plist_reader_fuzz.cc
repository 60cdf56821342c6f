// The property-list reader on any bytes (XML or binary): it must answer,
// never crash, hang or exhaust memory; what it reads must survive being
// written and read back, in both formats.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/plist_io.h"
#include "base/value.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using velmar::Value;
  Value value = velmar::parsePropertyList(
      std::string_view(reinterpret_cast<const char*>(data), size));
  if (value.isNull()) return 0;
  // A first write may lose what its format cannot say (XML dates keep whole
  // seconds); after that, reading and writing again must change nothing.
  const std::string xml = velmar::toXml(value);
  Value fromXml = velmar::parsePropertyList(xml);
  if (fromXml.isNull() || velmar::toXml(fromXml) != xml) std::abort();
  // Compared through XML: a list read from binary and from XML says the
  // same when both print alike.
  const std::string binary = velmar::toBinary(value);
  Value fromBinary = velmar::parsePropertyList(binary);
  if (fromBinary.isNull() || velmar::toXml(fromBinary) != xml) std::abort();
  // Binary loses nothing: written again, the same bytes.
  if (velmar::toBinary(fromBinary) != binary) std::abort();
  return 0;
}
