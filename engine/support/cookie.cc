#include "engine/support/cookie.h"

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "engine/collection_extras.h"
#include "base/format.h"
#include "engine/log_object.h"

namespace velmar {

std::vector<std::string> processArguments() {
  std::ifstream in("/proc/self/cmdline", std::ios::binary);
  std::string raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<std::string> arguments;
  size_t start = 0;
  while (start < raw.size()) {
    size_t end = raw.find('\0', start);
    if (end == std::string::npos) end = raw.size();
    arguments.push_back(raw.substr(start, end - start));
    start = end + 1;
  }
  return arguments;
}

float versionNumber(const Value& version) {
  if (version.isNumber()) return static_cast<float>(version.realValue());
  const std::string& text = version.str();
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  const size_t start = i;
  auto digits = [&] {
    size_t from = i;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
    return i - from;
  };
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  size_t mantissa = digits();
  if (i < text.size() && text[i] == '.') {
    ++i;
    mantissa += digits();
  }
  if (mantissa == 0) return 0;
  size_t end = i;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    if (digits() > 0) end = i;
  }
  return std::strtof(text.substr(start, end - start).c_str(), nullptr);
}

Value makeCookie(const Value& options, const std::string& source, const std::vector<std::string>& arguments) {
  Value cookie = Value::makeDict();
  cookie.set("rawArguments", Value::stringArray(arguments));
  cookie.set("source", source);
  const Value toolName = options.get("toolName");
  const Value toolVersion = options.get("toolVersion");
  if (!toolVersion.isNull())
    cookie.set("version", format("%f", static_cast<double>(versionNumber(toolVersion))));
  if (!toolName.isNull()) {
    std::string full = format("%@ -- Version %@, built %s %s", toolName, toolVersion, __DATE__, __TIME__);
    std::erase(full, '\n');
    cookie.set("version_fullString", full);
  }
  return cookie;
}

int32_t leaveCookie(SupportHost& host, const SupportRequest& request) {
  if (boolForKey(host.supportOptions(), "noCookie")) return 0;
  LogObject::sharedLogger().Log("+++ Oreo's left.  No milk.");
  host.recordModifiedFile(kCookiePath,
                          makeCookie(host.supportOptions(), host.supportBundleRoot(), processArguments()));
  return 0;
}

}  // namespace velmar
