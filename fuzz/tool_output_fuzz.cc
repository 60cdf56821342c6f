// The cutter that finds the tool's replies in its standard output, on any
// text: log lines, partial and interleaved lists, binary noise.

#include <cstdint>
#include <string>
#include <string_view>

#include "app/tool_output.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string error;
  velmar::Value replies = velmar::app::PropertyListsFromOutput(text, &error);
  velmar::app::firstArray(replies);
  velmar::app::firstDictionaryWithKey(replies, "validProducts");
  velmar::app::sortedNamesFromFirstArray(replies);
  return 0;
}
