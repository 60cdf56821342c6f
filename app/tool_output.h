// Reading the tool's replies: cutting the XML property lists out of its
// standard output, and picking the reply a caller wants out of them.
//
// The tool prints its replies as XML property lists on standard output, and
// may print log lines before, between and after them; those are ignored.

#ifndef VELMAR_APP_TOOL_OUTPUT_H_
#define VELMAR_APP_TOOL_OUTPUT_H_

#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace velmar::app {

// Every property list in `text`, in print order, as an array Value (never
// null). On a problem the lists parsed so far are returned and `error` (when
// given) says what went wrong:
//   "cannot find leading <?xml ."      no list at all
//   "cannot find trailing <?plist>."   a "<?xml " with no "</plist>" after it
//   "interleaved plists detected."     a "</plist>" before the "<?xml " it should close
//   the parser's text                  a cut-out piece that does not parse
// `error` is left alone when all went well.
Value PropertyListsFromOutput(std::string_view text, std::string* error);

// The text given for a cut-out piece that is not a property list.
inline constexpr const char kPropertyListParseError[] =
    "The data couldn't be read because it isn't in the correct format.";

// The first reply that is an array; null when there is none (or `replies`
// is null, a failed query).
Value firstArray(const Value& replies);

// The first reply that is a dictionary holding `key`; null when none does.
Value firstDictionaryWithKey(const Value& replies, std::string_view key);

// The strings of the first array reply, sorted by plain comparison; empty
// when there is no such reply. This is how the known products and known
// variants are read.
std::vector<std::string> sortedNamesFromFirstArray(const Value& replies);

// Why a query failed, in the tool's own words, for one line on screen: the
// first line of standard error, else of standard output, that holds
// "ERROR", from just after its "ERROR: " on; else the last line of standard
// error; else what the exit status says. Empty for status 0 without an
// error line.
std::string toolFailureReason(std::string_view standardOutput, std::string_view standardError,
                              int status);

}  // namespace velmar::app

#endif  // VELMAR_APP_TOOL_OUTPUT_H_
