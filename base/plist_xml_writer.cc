// The XML property-list writer. Its layout is the one the project's
// consumers have always read: the XML declaration and document type on
// their own lines, one element a line indented by tabs, empty containers
// as <array/> and <dict/>, data as base64 lines of at most 76 characters
// less 8 for each level of indentation (the indentation stops growing at 8
// tabs inside a data element), integers in signed decimal, reals with 17
// significant digits, dates as "YYYY-MM-DDTHH:MM:SSZ" to the whole second.
//
// Writing recurses once per level of nesting: the readers refuse files
// nested deeper than kMaxPropertyListDepth, and a value built in code that
// deep would already exhaust the stack when it is freed.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>

#include "base/plist_date.h"
#include "base/plist_io.h"
#include "base/plist_text.h"
#include "base/utf8.h"

namespace velmar {

namespace {

constexpr std::string_view kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFooter = "</plist>\n";
constexpr int kMaxDataIndent = 8;

// What a byte of a string's text asks of the writer.
enum class ByteClass : uint8_t { Plain, Escape, Control, NonAscii };

struct ByteClasses {
  ByteClass of[256];
  constexpr ByteClasses() : of() {
    for (int c = 0; c < 256; ++c) {
      if (c >= 0x80)
        of[c] = ByteClass::NonAscii;
      else if (c == '&' || c == '<' || c == '>')
        of[c] = ByteClass::Escape;
      else if (c < 0x20 && c != '\t' && c != '\n' && c != '\r')
        of[c] = ByteClass::Control;
      else
        of[c] = ByteClass::Plain;
    }
  }
};
constexpr ByteClasses kByteClasses;

bool hasMembers(const Value& v) {
  if (v.isDict()) {
    for (const auto& entry : v.dict())
      if (!entry.second.isNull()) return true;
    return false;
  }
  if (v.isSet()) return !v.setItems().empty();  // a set holds no nulls
  for (const Value& item : v.arr())
    if (!item.isNull()) return true;
  return false;
}

class XmlWriter {
 public:
  explicit XmlWriter(std::string* out) : out_(*out) {}

  void value(const Value& v, int depth) {
    indent(depth);
    switch (v.type()) {
      case Value::Type::Null:  // left out by the containers; a null root is an empty dictionary
      case Value::Type::Dict:
        if (!hasMembers(v)) {
          out_ += "<dict/>\n";
          return;
        }
        out_ += "<dict>\n";
        for (const auto& [key, item] : v.dict()) {
          if (item.isNull()) continue;
          indent(depth + 1);
          element("key", key);
          value(item, depth + 1);
        }
        closing("dict", depth);
        return;
      case Value::Type::Array:
      case Value::Type::Set:
        if (!hasMembers(v)) {
          out_ += "<array/>\n";
          return;
        }
        out_ += "<array>\n";
        if (v.isSet()) {
          for (const Value& item : v.setItems()) value(item, depth + 1);
        } else {
          for (const Value& item : v.arr())
            if (!item.isNull()) value(item, depth + 1);
        }
        closing("array", depth);
        return;
      case Value::Type::Bool:
        out_ += v.boolValue() ? "<true/>\n" : "<false/>\n";
        return;
      case Value::Type::Integer: {
        char digits[24];
        char* end = std::to_chars(digits, digits + sizeof digits, v.intValue()).ptr;
        element("integer", std::string_view(digits, static_cast<size_t>(end - digits)), false);
        return;
      }
      case Value::Type::Real:
        element("real", realText(v.realValue()), false);
        return;
      case Value::Type::String:
        element("string", v.str());
        return;
      case Value::Type::Date:
        element("date", dateText(v.dateValue().seconds), false);
        return;
      case Value::Type::Data:
        data(v.dataValue().bytes, depth);
        return;
    }
  }

 private:
  void indent(int depth) { out_.append(static_cast<size_t>(depth), '\t'); }

  // <name>text</name> and a line break; the text escaped when it may need it.
  void element(std::string_view name, std::string_view text, bool escape = true) {
    out_ += '<';
    out_ += name;
    out_ += '>';
    if (escape) {
      escaped(text);
    } else {
      out_ += text;
    }
    out_ += "</";
    out_ += name;
    out_ += ">\n";
  }

  void closing(std::string_view name, int depth) {
    indent(depth);
    out_ += "</";
    out_ += name;
    out_ += ">\n";
  }

  // The text with the three markup characters as entities and anything a
  // property list cannot hold replaced, in runs of plain bytes.
  void escaped(std::string_view text) {
    size_t run = 0;
    for (size_t i = 0; i < text.size();) {
      ByteClass c = kByteClasses.of[static_cast<unsigned char>(text[i])];
      if (c == ByteClass::Plain) {
        ++i;
        continue;
      }
      size_t length = 1;
      std::string_view replacement;
      if (c == ByteClass::Escape) {
        replacement = text[i] == '&' ? "&amp;" : text[i] == '<' ? "&lt;" : "&gt;";
      } else if (c == ByteClass::Control) {
        replacement = kReplacementCharacter;
      } else {
        Utf8Char u = decodeUtf8(text.substr(i));
        length = u.length;
        if (u.valid && isPropertyListCharacter(u.codePoint)) {
          i += length;
          continue;
        }
        replacement = kReplacementCharacter;
      }
      out_.append(text.substr(run, i - run));
      out_ += replacement;
      i += length;
      run = i;
    }
    out_.append(text.substr(run));
  }

  // Base64 in lines whose width shrinks with the indentation.
  void data(const std::string& bytes, int depth) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const int lineIndent = depth < kMaxDataIndent ? depth : kMaxDataIndent;
    const size_t bytesPerLine = static_cast<size_t>((76 - lineIndent * 8) / 4 * 3);
    out_ += "<data>\n";
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    for (size_t start = 0; start < bytes.size(); start += bytesPerLine) {
      indent(lineIndent);
      const size_t end = std::min(bytes.size(), start + bytesPerLine);
      size_t i = start;
      for (; i + 3 <= end; i += 3) {
        const uint32_t group = (uint32_t{p[i]} << 16) | (uint32_t{p[i + 1]} << 8) | p[i + 2];
        out_ += kAlphabet[group >> 18];
        out_ += kAlphabet[(group >> 12) & 63];
        out_ += kAlphabet[(group >> 6) & 63];
        out_ += kAlphabet[group & 63];
      }
      if (i < end) {
        const bool two = i + 1 < end;
        const uint32_t group = (uint32_t{p[i]} << 16) | (two ? uint32_t{p[i + 1]} << 8 : 0);
        out_ += kAlphabet[group >> 18];
        out_ += kAlphabet[(group >> 12) & 63];
        out_ += two ? kAlphabet[(group >> 6) & 63] : '=';
        out_ += '=';
      }
      out_ += '\n';
    }
    closing("data", depth);
  }

  static std::string realText(double d) {
    if (std::isnan(d)) return "nan";
    if (std::isinf(d)) return d > 0 ? "+infinity" : "-infinity";
    if (d == 0) return "0.0";
    char text[32];
    int n = std::snprintf(text, sizeof text, "%.17g", d);
    return std::string(text, static_cast<size_t>(n));
  }

  // To the whole second, rounded down: the second the instant falls in.
  static std::string dateText(double seconds) {
    CivilTime t = civilTimeOf(static_cast<int64_t>(std::floor(clampToPropertyListDate(seconds))));
    char text[32];
    int n = std::snprintf(text, sizeof text, "%04lld-%02d-%02dT%02d:%02d:%02dZ", static_cast<long long>(t.year),
                          t.month, t.day, t.hour, t.minute, t.second);
    return std::string(text, static_cast<size_t>(n));
  }

  std::string& out_;
};

}  // namespace

std::string toXml(const Value& v) {
  std::string out;
  out += kHeader;
  XmlWriter(&out).value(v, 0);
  out += kFooter;
  return out;
}

}  // namespace velmar
