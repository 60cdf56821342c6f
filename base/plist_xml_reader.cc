// The XML property-list reader: pugixml parses the document (iteratively,
// so no nesting depth can exhaust the stack there), then a depth-checked
// walk turns elements into Values.
//
// The rules follow what the project has always accepted: an optional <plist>
// around the root, dictionaries as <key>/value pairs in file order (a later
// duplicate key replaces the earlier value in place), integers with an
// optional sign and C base prefixes ("0x1F", "017"), unsigned values above
// the signed range kept bit for bit, reals as strtod reads them, dates as
// "YYYY-MM-DDTHH:MM:SSZ", data as base64 broken by any whitespace, and the
// five predefined entities plus numeric character references in strings
// and keys. The document type declaration is skipped, never interpreted:
// entities it defines are unknown entities and refuse the file, so neither
// external entities nor entity expansion can happen.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "base/plist_readers.h"

namespace velmar {

namespace {

// Comments, processing instructions and the document type declaration are
// skipped; whitespace between elements is dropped unless it is all there is
// in an element (an all-blank <string>); a text child goes into its
// element's own node, which halves the size of the parsed tree.
constexpr unsigned kParseOptions =
    pugi::parse_cdata | pugi::parse_ws_pcdata_single | pugi::parse_embed_pcdata;

constexpr double kUnixSecondsAt2001 = 978307200;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool allBlank(const char* s) {
  for (; *s; ++s)
    if (!isBlank(*s)) return false;
  return true;
}

void appendUtf8(std::string* out, uint32_t cp) {
  if (cp < 0x80) {
    *out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    *out += static_cast<char>(0xC0 | (cp >> 6));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    *out += static_cast<char>(0xE0 | (cp >> 12));
    *out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    *out += static_cast<char>(0xF0 | (cp >> 18));
    *out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    *out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// Appends `text` with its entity references replaced. False on an unknown
// or malformed reference.
bool appendUnescaped(std::string* out, const char* text) {
  const char* amp;
  while ((amp = std::strchr(text, '&')) != nullptr) {
    out->append(text, amp);
    const char* name = amp + 1;
    const char* semi = std::strchr(name, ';');
    if (!semi || semi == name) return false;
    std::string_view entity(name, static_cast<size_t>(semi - name));
    if (entity == "amp") {
      *out += '&';
    } else if (entity == "lt") {
      *out += '<';
    } else if (entity == "gt") {
      *out += '>';
    } else if (entity == "quot") {
      *out += '"';
    } else if (entity == "apos") {
      *out += '\'';
    } else if (entity[0] == '#' && entity.size() >= 2 && entity.size() <= 8) {
      bool hex = entity[1] == 'x' || entity[1] == 'X';
      std::string digits(entity.substr(hex ? 2 : 1));
      if (digits.empty() || digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") !=
                                std::string::npos)
        return false;
      unsigned long cp = std::strtoul(digits.c_str(), nullptr, hex ? 16 : 10);
      if (cp == 0 || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
      appendUtf8(out, static_cast<uint32_t>(cp));
    } else {
      return false;
    }
    text = semi + 1;
  }
  out->append(text);
  return true;
}

// The text of a scalar element: its character data and CDATA sections in
// order, references replaced in the character data when `unescape` is set
// (numbers, dates and data take their text as it stands). Nullopt when the
// element holds another element or a bad reference.
std::optional<std::string> elementText(pugi::xml_node node, bool unescape) {
  std::string text;
  auto add = [&](const char* part, bool cdata) {
    if (unescape && !cdata) return appendUnescaped(&text, part);
    text += part;
    return true;
  };
  if (!add(node.value(), false)) return std::nullopt;
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
    switch (child.type()) {
      case pugi::node_pcdata:
        if (!add(child.value(), false)) return std::nullopt;
        break;
      case pugi::node_cdata:
        if (!add(child.value(), true)) return std::nullopt;
        break;
      default:
        return std::nullopt;
    }
  }
  return text;
}

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
  return s;
}

Value integerFrom(std::string_view text) {
  std::string digits(trimmed(text));
  const char* p = digits.c_str();
  bool negative = false;
  if (*p == '-' || *p == '+') negative = *p++ == '-';
  uint64_t magnitude = std::strtoull(p, nullptr, 0);
  // Two's complement: "-1" is all ones, an unsigned value above INT64_MAX
  // keeps its bits.
  uint64_t bits = negative ? uint64_t{0} - magnitude : magnitude;
  return Value(static_cast<long long>(bits));
}

Value dateFrom(std::string_view text) {
  std::string_view t = trimmed(text);
  if (t.empty()) return Value(Date{0});
  struct tm tm = {};
  long long seconds = 0;
  if (t.size() >= 11 && t.size() < 32) {
    std::string s(t);
    std::sscanf(s.c_str(), "%d-%d-%dT%d:%d:%dZ", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                &tm.tm_min, &tm.tm_sec);
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    seconds = static_cast<long long>(timegm(&tm));
  }
  return Value(Date{static_cast<double>(seconds) - kUnixSecondsAt2001});
}

// Base64 digit values; -1 for anything else.
struct Base64Table {
  int8_t digit[256];
  constexpr Base64Table() : digit() {
    for (int i = 0; i < 256; ++i) digit[i] = -1;
    const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int i = 0; i < 64; ++i) digit[static_cast<unsigned char>(alphabet[i])] = static_cast<int8_t>(i);
  }
};
constexpr Base64Table kBase64;

// Base64 in whitespace-separated runs, each decoded four characters at a
// time ("=" padding ends a group early); a run's incomplete last group is
// ignored, as writers never produce one. Nullopt on any other character.
std::optional<std::string> base64Decode(std::string_view text) {
  std::string out(text.size() / 4 * 3 + 3, '\0');
  char* o = out.data();
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    while (i < n && isBlank(static_cast<char>(p[i]))) ++i;
    size_t end = i;
    while (end < n && !isBlank(static_cast<char>(p[end]))) ++end;
    for (; i + 4 <= end; i += 4) {
      int d0 = kBase64.digit[p[i]], d1 = kBase64.digit[p[i + 1]];
      int d2 = kBase64.digit[p[i + 2]], d3 = kBase64.digit[p[i + 3]];
      if ((d0 | d1 | d2 | d3) >= 0) {
        *o++ = static_cast<char>((d0 << 2) | (d1 >> 4));
        *o++ = static_cast<char>(((d1 & 15) << 4) | (d2 >> 2));
        *o++ = static_cast<char>(((d2 & 3) << 6) | d3);
        continue;
      }
      if (d0 < 0 || d1 < 0) return std::nullopt;
      if (d2 < 0 && (p[i + 2] != '=' || p[i + 3] != '=')) return std::nullopt;
      if (d3 < 0 && p[i + 3] != '=') return std::nullopt;
      *o++ = static_cast<char>((d0 << 2) | (d1 >> 4));
      if (d2 >= 0) *o++ = static_cast<char>(((d1 & 15) << 4) | (d2 >> 2));
    }
    for (; i < end; ++i)
      if (kBase64.digit[p[i]] < 0 && p[i] != '=') return std::nullopt;
  }
  out.resize(static_cast<size_t>(o - out.data()));
  return out;
}

class XmlWalker {
 public:
  // Null when the element or anything under it is not a property-list
  // value, or nests deeper than the limit.
  Value value(pugi::xml_node node, int depth) {
    if (depth > kMaxPropertyListDepth) return Value();
    const char* name = node.name();
    // Most elements are keys, dictionaries and strings: test those first.
    if (name[0] == 'k' && !std::strcmp(name, "key")) return string(node);
    if (name[0] == 'd' && !std::strcmp(name, "dict")) return dict(node, depth);
    if (name[0] == 's' && !std::strcmp(name, "string")) return string(node);
    if (!std::strcmp(name, "array")) return array(node, depth);
    if (!std::strcmp(name, "true") || !std::strcmp(name, "false")) {
      if (node.first_child().type() == pugi::node_element) return Value();
      return Value(name[0] == 't');
    }
    std::optional<std::string> text = elementText(node, false);
    if (!text) return Value();
    if (!std::strcmp(name, "integer")) return integerFrom(*text);
    if (!std::strcmp(name, "real")) return Value(std::strtod(text->c_str(), nullptr));
    if (!std::strcmp(name, "date")) return dateFrom(*text);
    if (!std::strcmp(name, "data")) {
      std::optional<std::string> bytes = base64Decode(*text);
      return bytes ? Value::makeData(std::move(*bytes)) : Value();
    }
    return Value();
  }

 private:
  static Value string(pugi::xml_node node) {
    std::optional<std::string> text = elementText(node, true);
    return text ? Value(std::move(*text)) : Value();
  }

  // The element children of a container, gathered into scratch space kept
  // for each depth (one pass over the children, no allocation once warm);
  // null when the container holds text.
  const std::vector<pugi::xml_node>* children(pugi::xml_node node, int depth) {
    if (*node.value() && !allBlank(node.value())) return nullptr;
    std::vector<pugi::xml_node>& out = scratch_[static_cast<size_t>(depth)];
    out.clear();
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
      pugi::xml_node_type type = child.type();
      if (type == pugi::node_element) {
        out.push_back(child);
      } else if (type != pugi::node_pcdata || !allBlank(child.value())) {
        return nullptr;
      }
    }
    return &out;
  }

  Value array(pugi::xml_node node, int depth) {
    const std::vector<pugi::xml_node>* elements = children(node, depth);
    if (!elements) return Value();
    Array items;
    items.reserve(elements->size());
    for (size_t i = 0; i < elements->size(); ++i) {
      Value item = value((*elements)[i], depth + 1);
      if (item.isNull()) return Value();
      items.push_back(std::move(item));
    }
    return Value(std::move(items));
  }

  Value dict(pugi::xml_node node, int depth) {
    const std::vector<pugi::xml_node>* elements = children(node, depth);
    if (!elements) return Value();
    Dict entries;
    entries.reserve(elements->size() / 2);
    // A value needs its key first; a key with no value before the
    // dictionary ends is dropped.
    for (size_t i = 0; i + 1 < elements->size(); i += 2) {
      pugi::xml_node keyNode = (*elements)[i];
      if (std::strcmp(keyNode.name(), "key") != 0) return Value();
      std::optional<std::string> key = elementText(keyNode, true);
      if (!key) return Value();
      Value item = value((*elements)[i + 1], depth + 1);
      if (item.isNull()) return Value();
      entries.set(std::move(*key), std::move(item));
    }
    if (elements->size() % 2 != 0) {
      pugi::xml_node last = elements->back();
      if (std::strcmp(last.name(), "key") != 0 || !elementText(last, true)) return Value();
    }
    return Value(std::move(entries));
  }

  // Element children by depth; a depth's vector is reused by every
  // container at that depth. Sized once, so that no vector a caller holds
  // ever moves.
  std::vector<std::vector<pugi::xml_node>> scratch_ =
      std::vector<std::vector<pugi::xml_node>>(kMaxPropertyListDepth + 1);
};

Value rootValue(const pugi::xml_document& doc) {
  pugi::xml_node root = doc.document_element();
  if (!root) return Value();
  if (!std::strcmp(root.name(), "plist")) {
    root = root.find_child([](pugi::xml_node n) { return n.type() == pugi::node_element; });
    if (!root) return Value();
  }
  return XmlWalker().value(root, 0);
}

std::string_view withoutByteOrderMark(std::string_view bytes) {
  if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
  return bytes;
}

}  // namespace

Value parseXmlPropertyList(std::string_view bytes) {
  bytes = withoutByteOrderMark(bytes);
  pugi::xml_document doc;
  if (!doc.load_buffer(bytes.data(), bytes.size(), kParseOptions, pugi::encoding_utf8)) return Value();
  return rootValue(doc);
}

Value parseXmlPropertyListInPlace(std::string& buffer) {
  size_t skip = buffer.size() - withoutByteOrderMark(buffer).size();
  pugi::xml_document doc;
  if (!doc.load_buffer_inplace(buffer.data() + skip, buffer.size() - skip, kParseOptions,
                               pugi::encoding_utf8))
    return Value();
  return rootValue(doc);
}

}  // namespace velmar
