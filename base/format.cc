#include "base/format.h"

#include <cctype>
#include <cstdio>

namespace velmar {

namespace {

bool isFlag(char c) { return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0'; }
bool isLength(char c) { return c == 'h' || c == 'l' || c == 'q' || c == 'z' || c == 'j' || c == 't' || c == 'L'; }

// Runs snprintf for one conversion whose modifiers (flags, width, precision) are
// `modifiers` and whose final letters are `conv` ("lld", "f", "s", ...).
template <class T>
std::string printOne(const std::string& modifiers, const char* conv, T arg) {
  std::string f = "%" + modifiers + conv;
  int n = std::snprintf(nullptr, 0, f.c_str(), arg);
  if (n <= 0) return {};
  std::string out(static_cast<size_t>(n) + 1, '\0');
  std::snprintf(out.data(), out.size(), f.c_str(), arg);
  out.resize(static_cast<size_t>(n));
  return out;
}

}  // namespace

std::string formatv(std::string_view fmt, const std::vector<FormatArg>& args) {
  std::string out;
  out.reserve(fmt.size() + 32);
  size_t next = 0;
  auto takeArg = [&]() -> Value {
    return next < args.size() ? args[next++].value() : Value();
  };
  for (size_t i = 0; i < fmt.size(); ++i) {
    char c = fmt[i];
    if (c != '%' || i + 1 >= fmt.size()) {
      out += c;
      continue;
    }
    size_t j = i + 1;
    std::string modifiers;
    while (j < fmt.size() && isFlag(fmt[j])) modifiers += fmt[j++];
    while (j < fmt.size() && (std::isdigit(static_cast<unsigned char>(fmt[j])) || fmt[j] == '.'))
      modifiers += fmt[j++];
    std::string length;
    while (j < fmt.size() && isLength(fmt[j])) length += fmt[j++];
    if (j >= fmt.size()) {
      out.append(fmt.substr(i));
      break;
    }
    char conv = fmt[j];
    i = j;
    switch (conv) {
      case '%': out += '%'; break;
      case '@': {
        std::string text = takeArg().description();
        out += modifiers.empty() ? text : printOne(modifiers, "s", text.c_str());
        break;
      }
      case 's':
      case 'S': {
        Value v = takeArg();
        std::string text = v.isNull() ? "(null)" : v.description();
        out += printOne(modifiers, "s", text.c_str());
        break;
      }
      case 'd':
      case 'i':
      case 'D': {
        Value v = takeArg();
        long long n = v.isString() ? 0 : static_cast<long long>(v.intValue());
        if (length == "h") n = static_cast<short>(n);
        else if (length.empty()) n = static_cast<int>(n);
        out += printOne(modifiers, "lld", n);
        break;
      }
      case 'u':
      case 'U':
      case 'x':
      case 'X':
      case 'o': {
        Value v = takeArg();
        unsigned long long n = v.isString() ? 0 : static_cast<unsigned long long>(v.intValue());
        if (length == "h") n = static_cast<unsigned short>(n);
        else if (length == "hh") n = static_cast<unsigned char>(n);
        else if (length.empty()) n = static_cast<unsigned>(n);
        char letters[4] = {'l', 'l', conv == 'U' ? 'u' : conv, 0};
        out += printOne(modifiers, letters, n);
        break;
      }
      case 'c': {
        Value v = takeArg();
        out += static_cast<char>(v.intValue());
        break;
      }
      case 'f':
      case 'F':
      case 'g':
      case 'G':
      case 'e':
      case 'E': {
        Value v = takeArg();
        char letters[2] = {conv, 0};
        out += printOne(modifiers, letters, v.realValue());
        break;
      }
      default:
        // Not a conversion we know: keep the text as written.
        out.append(fmt.substr(j - modifiers.size() - length.size() - 1, modifiers.size() + length.size() + 2));
        break;
    }
  }
  return out;
}

}  // namespace velmar
