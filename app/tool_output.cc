#include "app/tool_output.h"

#include <algorithm>

#include "base/plist_io.h"

namespace velmar::app {

namespace {

constexpr std::string_view kLeading = "<?xml ";
constexpr std::string_view kTrailing = "</plist>";

}  // namespace

Value PropertyListsFromOutput(std::string_view text, std::string* error) {
  Value lists = Value::makeArray();
  size_t rangeStart = 0;
  size_t leading = text.find(kLeading);
  while (leading != std::string_view::npos) {
    // Searched from the range start, not from the "<?xml ": a stray
    // "</plist>" before it is how interleaving shows.
    size_t trailing = text.find(kTrailing, rangeStart);
    if (trailing == std::string_view::npos) {
      if (error) *error = "cannot find trailing <?plist>.";
      return lists;
    }
    if (trailing < leading) {
      if (error) *error = "interleaved plists detected.";
      return lists;
    }
    size_t end = trailing + kTrailing.size();
    Value parsed = parsePropertyList(text.substr(leading, end - leading));
    if (parsed.isNull()) {
      if (error) *error = kPropertyListParseError;
      return lists;
    }
    lists.append(std::move(parsed));
    rangeStart = end;
    leading = text.find(kLeading, rangeStart);
  }
  if (lists.count() == 0 && error) *error = "cannot find leading <?xml .";
  return lists;
}

Value firstArray(const Value& replies) {
  for (const auto& reply : replies.arr()) {
    if (reply.isArray()) return reply;
  }
  return Value();
}

Value firstDictionaryWithKey(const Value& replies, std::string_view key) {
  for (const auto& reply : replies.arr()) {
    if (reply.isDict() && reply.contains(key)) return reply;
  }
  return Value();
}

std::vector<std::string> sortedNamesFromFirstArray(const Value& replies) {
  std::vector<std::string> names = firstArray(replies).strings();
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace velmar::app
