#include "app/tool_output.h"

#include <algorithm>

#include "base/format.h"
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

namespace {

std::vector<std::string_view> nonEmptyLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
    if (!line.empty()) lines.push_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

}  // namespace

std::string toolFailureReason(std::string_view standardOutput, std::string_view standardError,
                              int status) {
  for (std::string_view stream : {standardError, standardOutput}) {
    for (std::string_view line : nonEmptyLines(stream)) {
      size_t error = line.find("ERROR");
      if (error == std::string_view::npos) continue;
      // The engine's prefix ("XXX ERROR: ") says nothing to the user.
      size_t colon = line.find(": ", error);
      if (colon != std::string_view::npos && colon + 2 < line.size()) line.remove_prefix(colon + 2);
      return std::string(line);
    }
  }
  std::vector<std::string_view> errorLines = nonEmptyLines(standardError);
  if (!errorLines.empty()) return std::string(errorLines.back());
  if (status != 0) return format("velmarbs ended with status %d.", status);
  return std::string();
}

}  // namespace velmar::app
