// Every stripped bundle carries "VelmarBSCookie.plist" at its root, saying
// how it was made: the command line, the source bundle and the tool that
// stripped it. The engine hands it back as a rewritten file; the caller
// writes it.

#ifndef VELMAR_ENGINE_SUPPORT_COOKIE_H_
#define VELMAR_ENGINE_SUPPORT_COOKIE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "engine/support/support_host.h"
#include "base/value.h"

namespace velmar {

inline constexpr char kCookiePath[] = "VelmarBSCookie.plist";

// The process's arguments as the system reports them, program path first.
std::vector<std::string> processArguments();

// A version text read as a single-precision number the lenient way: leading
// blanks skipped, the longest numeric prefix taken, 0 when there is none.
// Numbers are taken as they are.
float versionNumber(const Value& version);

// The cookie dictionary: rawArguments and source always, version when the
// toolVersion option is set, version_fullString when toolName is.
Value makeCookie(const Value& options, const std::string& source, const std::vector<std::string>& arguments);

// Records the cookie unless the noCookie option is set. Answers 0.
int32_t leaveCookie(SupportHost& host, const SupportRequest& request);

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_COOKIE_H_
