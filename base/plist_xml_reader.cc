// The XML property-list reader: one pass over the bytes that builds Values
// as their end tags arrive. Open containers live on an explicit stack (no
// recursion, so no nesting can exhaust the call stack) whose depth is
// checked against kMaxPropertyListDepth; no tree of the document is ever
// built, so reading costs little more than the Values it yields.
//
// The rules follow what the project has always accepted: an optional <plist>
// around the root, dictionaries as <key>/value pairs in file order (a later
// duplicate key replaces the earlier value in place), integers with an
// optional sign and C base prefixes ("0x1F", "017"), unsigned values above
// the signed range kept bit for bit, reals as strtod reads them, dates as
// "YYYY-MM-DDTHH:MM:SSZ" in the years 1 to 9999, data as base64 broken by
// any whitespace, and the five predefined entities plus numeric character
// references in strings and keys, which hold only what plist_text.h allows
// however it is written. Comments and processing instructions are skipped anywhere, the
// document type declaration is skipped, never interpreted: entities it
// defines are unknown entities and refuse the file, so neither external
// entities nor entity expansion can happen. Tags must match, and text
// outside the root element may only be blank.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_date.h"
#include "base/plist_readers.h"
#include "base/plist_text.h"
#include "base/utf8.h"

namespace velmar {

namespace {

constexpr double kUnixSecondsAt2001 = 978307200;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool allBlank(std::string_view s) {
  for (char c : s)
    if (!isBlank(c)) return false;
  return true;
}

// Appends `text` with its entity references replaced. False on an unknown
// or malformed reference, or one to a character a property list cannot
// hold.
bool appendUnescaped(std::string* out, std::string_view text) {
  size_t amp;
  while ((amp = text.find('&')) != std::string_view::npos) {
    out->append(text.substr(0, amp));
    text.remove_prefix(amp + 1);
    size_t semi = text.find(';');
    if (semi == std::string_view::npos || semi == 0) return false;
    std::string_view entity = text.substr(0, semi);
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
      if (!isPropertyListCharacter(static_cast<uint32_t>(cp))) return false;
      appendUtf8(out, static_cast<uint32_t>(cp));
    } else {
      return false;
    }
    text.remove_prefix(semi + 1);
  }
  out->append(text);
  return true;
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

Value realFrom(std::string_view text) { return Value(std::strtod(std::string(text).c_str(), nullptr)); }

enum class DateField { Read, Missing, TooLong };

// One field of a date as sscanf's "%d" reads it: blanks, a sign, digits.
// Nine digits at most: a longer number is no date's.
DateField dateField(std::string_view* text, int64_t* out) {
  std::string_view t = *text;
  while (!t.empty() && (isBlank(t.front()) || t.front() == '\v' || t.front() == '\f')) t.remove_prefix(1);
  bool negative = false;
  if (!t.empty() && (t.front() == '-' || t.front() == '+')) {
    negative = t.front() == '-';
    t.remove_prefix(1);
  }
  size_t digits = 0;
  int64_t value = 0;
  for (; digits < t.size() && t[digits] >= '0' && t[digits] <= '9'; ++digits) {
    if (digits == 9) return DateField::TooLong;
    value = value * 10 + (t[digits] - '0');
  }
  if (digits == 0) return DateField::Missing;
  *out = negative ? -value : value;
  t.remove_prefix(digits);
  *text = t;
  return DateField::Read;
}

// "YYYY-MM-DDTHH:MM:SSZ", read as the project always has: field by field
// until the text stops matching (the fields not reached are 0), fields out
// of their ranges carried into the next larger one, as timegm carries them.
// Empty text is the reference date, text too short or too long to be a
// date 1970-01-01. Null for a date outside the years 1 to 9999.
Value dateFrom(std::string_view text) {
  std::string_view t = trimmed(text);
  if (t.empty()) return Value(Date{0});
  if (t.size() < 11 || t.size() >= 32) return Value(Date{-kUnixSecondsAt2001});
  int64_t fields[6] = {0, 0, 0, 0, 0, 0};
  static constexpr char kSeparators[] = "--T::";
  for (int i = 0; i < 6; ++i) {
    DateField read = dateField(&t, &fields[i]);
    if (read == DateField::TooLong) return Value();
    if (read == DateField::Missing) break;
    if (i < 5) {
      if (t.empty() || t.front() != kSeparators[i]) break;
      t.remove_prefix(1);
    }
  }
  const double seconds = static_cast<double>(
      secondsOfCivilTime(fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]));
  if (!isPropertyListDate(seconds)) return Value();
  return Value(Date{seconds});
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

enum class Kind { Dict, Key, String, Array, Integer, Real, True, False, Date, Data, Unknown };

// Most elements are keys, strings and dictionaries: the length and first
// letter settle nearly every name with one comparison.
Kind kindOf(std::string_view name) {
  switch (name.size()) {
    case 3:
      return name == "key" ? Kind::Key : Kind::Unknown;
    case 4:
      if (name == "dict") return Kind::Dict;
      if (name == "true") return Kind::True;
      if (name == "real") return Kind::Real;
      if (name == "date") return Kind::Date;
      if (name == "data") return Kind::Data;
      return Kind::Unknown;
    case 5:
      if (name == "array") return Kind::Array;
      if (name == "false") return Kind::False;
      return Kind::Unknown;
    case 6:
      return name == "string" ? Kind::String : Kind::Unknown;
    case 7:
      return name == "integer" ? Kind::Integer : Kind::Unknown;
    default:
      return Kind::Unknown;
  }
}

struct Tag {
  std::string_view name;
  bool empty = false;  // written <name/>
};

// An open array or dictionary: its members so far, in scratch space that
// the next container at the same depth reuses, so that a warm reader
// allocates only for the Values themselves (each sized exactly on close).
struct OpenContainer {
  std::string_view name;
  bool isDict = false;
  bool hasKey = false;  // a dictionary's last entry has its key, not yet its value
  std::vector<Value> items;
  std::vector<Dict::Entry> entries;

  void add(Value v) {
    if (isDict) {
      entries.back().second = std::move(v);
      hasKey = false;
    } else {
      items.push_back(std::move(v));
    }
  }

  Value close() {
    if (!isDict) {
      Array array(std::make_move_iterator(items.begin()), std::make_move_iterator(items.end()));
      items.clear();
      return Value(std::move(array));
    }
    // A key with no value before the dictionary ends is dropped.
    if (hasKey) entries.pop_back();
    Dict dict;
    dict.reserve(entries.size());
    for (Dict::Entry& entry : entries) dict.set(std::move(entry.first), std::move(entry.second));
    entries.clear();
    return Value(std::move(dict));
  }
};

class XmlReader {
 public:
  explicit XmlReader(std::string_view bytes) : p_(bytes.data()), end_(bytes.data() + bytes.size()) {}

  Value document() {
    if (!skipProlog() || atEnd()) return Value();
    Tag tag;
    if (!startTag(&tag)) return Value();
    Value root = tag.name == "plist" ? plistContent(tag) : tree(tag);
    if (root.isNull() || !skipEpilog()) return Value();
    return root;
  }

 private:
  enum class Event { Start, End, Error };

  bool atEnd() const { return p_ == end_; }
  bool lookingAt(std::string_view s) const {
    return static_cast<size_t>(end_ - p_) >= s.size() && std::memcmp(p_, s.data(), s.size()) == 0;
  }
  void skipBlanks() {
    while (p_ != end_ && isBlank(*p_)) ++p_;
  }
  // Moves past the next `terminator`; false when there is none or a NUL
  // comes first (a NUL anywhere in a document cuts it short).
  bool skipPast(std::string_view terminator) {
    std::string_view rest(p_, static_cast<size_t>(end_ - p_));
    size_t at = rest.find(terminator);
    if (at == std::string_view::npos || std::memchr(p_, '\0', at) != nullptr) return false;
    p_ += at + terminator.size();
    return true;
  }

  // At "<": skips a comment or a processing instruction (the XML
  // declaration among them), which must name its target. False when there
  // is none here or it is unclosed.
  bool skipCommentOrInstruction() {
    if (lookingAt("<!--")) {
      p_ += 4;
      return skipPast("-->");
    }
    if (lookingAt("<?")) {
      p_ += 2;
      if (atEnd() || !startsName(*p_)) return false;
      return skipPast("?>");
    }
    return false;
  }
  static bool startsName(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' ||
           static_cast<unsigned char>(c) >= 0x80;
  }
  static bool inName(char c) { return startsName(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; }
  // Moves past an element or attribute name; false when there is none here.
  bool readName(std::string_view* out) {
    const char* start = p_;
    if (atEnd() || !startsName(*p_)) return false;
    while (p_ != end_ && inName(*p_)) ++p_;
    *out = std::string_view(start, static_cast<size_t>(p_ - start));
    return true;
  }
  bool atCommentOrInstruction() const { return lookingAt("<!--") || lookingAt("<?"); }

  // Skips a document type declaration, internal subset included, without
  // reading anything it declares: quoted strings, comments and instructions
  // are skipped whole, "<!" opens a declaration that ">" closes, and any
  // other "<" is an error.
  bool skipDoctype() {
    p_ += 9;  // "<!DOCTYPE"
    int open = 0;  // declarations open inside the internal subset
    while (p_ != end_) {
      char c = *p_;
      if (c == '"' || c == '\'') {
        ++p_;
        const char* close = static_cast<const char*>(std::memchr(p_, c, static_cast<size_t>(end_ - p_)));
        if (!close || std::memchr(p_, '\0', static_cast<size_t>(close - p_))) return false;
        p_ = close + 1;
      } else if (c == '<') {
        if (atCommentOrInstruction()) {
          if (!skipCommentOrInstruction()) return false;
        } else if (lookingAt("<!")) {
          ++open;
          p_ += 2;
        } else {
          return false;
        }
      } else if (c == '>') {
        ++p_;
        if (open-- == 0) return true;
      } else if (c == '\0') {
        return false;
      } else {
        ++p_;
      }
    }
    return false;
  }

  // Blanks, comments, instructions and one document type declaration
  // before the root element; stops at its "<".
  bool skipProlog() {
    if (lookingAt("\xEF\xBB\xBF")) p_ += 3;
    bool doctype = false;
    for (;;) {
      skipBlanks();
      if (atEnd()) return true;
      if (atCommentOrInstruction()) {
        if (!skipCommentOrInstruction()) return false;
      } else if (!doctype && lookingAt("<!DOCTYPE")) {
        if (!skipDoctype()) return false;
        doctype = true;
      } else {
        return *p_ == '<' && p_ + 1 != end_ && p_[1] != '/' && p_[1] != '!';
      }
    }
  }

  // After the root element: blanks, comments and instructions only. A NUL
  // ends the document, as it ends a C string holding one.
  bool skipEpilog() {
    for (;;) {
      skipBlanks();
      if (atEnd() || *p_ == '\0') return true;
      if (!atCommentOrInstruction() || !skipCommentOrInstruction()) return false;
    }
  }

  // At "<" of a start tag: its name and whether it closes itself.
  // Attributes are checked for form and otherwise ignored.
  bool startTag(Tag* tag) {
    ++p_;
    if (!readName(&tag->name)) return false;
    for (;;) {
      bool spaced = p_ != end_ && isBlank(*p_);
      skipBlanks();
      if (atEnd()) return false;
      if (*p_ == '>') {
        ++p_;
        tag->empty = false;
        return true;
      }
      if (*p_ == '/') {
        if (p_ + 1 == end_ || p_[1] != '>') return false;
        p_ += 2;
        tag->empty = true;
        return true;
      }
      if (!spaced) return false;
      // name = "value" or 'value'
      std::string_view attribute;
      if (!readName(&attribute)) return false;
      skipBlanks();
      if (atEnd() || *p_ != '=') return false;
      ++p_;
      skipBlanks();
      if (atEnd() || (*p_ != '"' && *p_ != '\'')) return false;
      char quote = *p_++;
      while (p_ != end_ && *p_ != quote) {
        if (*p_ == '<' || *p_ == '\0') return false;
        ++p_;
      }
      if (atEnd()) return false;
      ++p_;
    }
  }

  // At "</": true when the end tag closes `name`.
  bool endTag(std::string_view name) {
    p_ += 2;
    if (static_cast<size_t>(end_ - p_) < name.size() || std::memcmp(p_, name.data(), name.size()) != 0) return false;
    p_ += name.size();
    skipBlanks();
    if (atEnd() || *p_ != '>') return false;
    ++p_;
    return true;
  }

  // Character data up to the next "<"; false at the end of the input or on
  // a NUL (both mean the file was cut short or is not text).
  bool textRun(std::string_view* text) {
    const char* start = p_;
    while (p_ != end_ && *p_ != '<') {
      if (*p_ == '\0') return false;
      ++p_;
    }
    *text = std::string_view(start, static_cast<size_t>(p_ - start));
    return p_ != end_;
  }

  // The content of a scalar element up to its end tag: character data and
  // CDATA sections in order, references replaced in the character data
  // when `unescape` is set (numbers, dates and data take their text as it
  // stands), comments and instructions left out. A blank run between two
  // pieces of markup counts only when it is all the element holds so far
  // and ends at the end tag. False when the element holds another element
  // or a bad reference. A single plain run is returned where it lies.
  bool scalarText(std::string_view name, bool unescape, std::string_view* out) {
    std::string_view view;
    bool copied = false;  // the text is in scratch_, not in `view`
    int parts = 0;
    bool firstIsText = false;
    auto add = [&](std::string_view piece, bool escaped) {
      bool references = escaped && piece.find('&') != std::string_view::npos;
      if (parts == 0 && !references) {
        view = piece;
        return true;
      }
      if (!copied) {
        scratch_.assign(view);
        copied = true;
      }
      if (references) return appendUnescaped(&scratch_, piece);
      scratch_.append(piece);
      return true;
    };
    for (;;) {
      std::string_view text;
      if (!textRun(&text)) return false;
      if (!text.empty()) {
        bool keep = !allBlank(text) ||
                    (lookingAt("</") && (parts == 0 || (parts == 1 && firstIsText)));
        if (keep) {
          if (!add(text, unescape)) return false;
          if (parts++ == 0) firstIsText = true;
        }
      }
      if (lookingAt("</")) {
        if (!endTag(name)) return false;
        *out = copied ? std::string_view(scratch_) : view;
        return true;
      }
      if (lookingAt("<![CDATA[")) {
        p_ += 9;
        const char* start = p_;
        if (!skipPast("]]>")) return false;
        if (!add(std::string_view(start, static_cast<size_t>(p_ - 3 - start)), false)) return false;
        ++parts;
      } else if (!skipCommentOrInstruction()) {
        return false;
      }
    }
  }

  // A scalar element, its content and end tag read. Null when it is not a
  // property-list value.
  Value scalar(Kind kind, const Tag& tag) {
    std::string_view text;
    if (!tag.empty && !scalarText(tag.name, kind == Kind::Key || kind == Kind::String, &text)) return Value();
    switch (kind) {
      case Kind::Key:
      case Kind::String:
        if (!isPropertyListText(text)) return Value();
        return Value(std::string(text));
      case Kind::True:
        return Value(true);
      case Kind::False:
        return Value(false);
      case Kind::Integer:
        return integerFrom(text);
      case Kind::Real:
        return realFrom(text);
      case Kind::Date:
        return dateFrom(text);
      case Kind::Data: {
        std::optional<std::string> bytes = base64Decode(text);
        return bytes ? Value::makeData(std::move(*bytes)) : Value();
      }
      default:
        return Value();
    }
  }

  // Inside an open container: the next start tag of a value, or its end
  // tag. A dictionary's keys are read here, straight into its next entry.
  Event next(OpenContainer& open, Tag* tag) {
    for (;;) {
      skipBlanks();
      if (atEnd() || *p_ != '<') return Event::Error;  // text in a container
      if (lookingAt("</")) return endTag(open.name) ? Event::End : Event::Error;
      if (p_ + 1 != end_ && (p_[1] == '!' || p_[1] == '?')) {
        if (!skipCommentOrInstruction()) return Event::Error;  // CDATA, too
        continue;
      }
      if (!startTag(tag)) return Event::Error;
      if (!open.isDict || open.hasKey) return Event::Start;
      if (tag->name != "key") return Event::Error;  // a value needs its key first
      open.entries.emplace_back();
      std::string_view key;
      if (!tag->empty) {
        if (!scalarText(tag->name, true, &key) || !isPropertyListText(key)) return Event::Error;
        open.entries.back().first.assign(key);
      }
      open.hasKey = true;
    }
  }

  // The value whose start tag is `tag`, through its end tag.
  Value tree(Tag tag) {
    size_t depth = 0;  // containers open
    for (;;) {
      if (depth > static_cast<size_t>(kMaxPropertyListDepth)) return Value();
      Kind kind = kindOf(tag.name);
      Value done;
      if ((kind == Kind::Array || kind == Kind::Dict) && !tag.empty) {
        if (open_.size() == depth) open_.emplace_back();
        OpenContainer& open = open_[depth++];
        open.name = tag.name;
        open.isDict = kind == Kind::Dict;
        open.hasKey = false;
      } else if (kind == Kind::Array) {
        done = Value(Array());
      } else if (kind == Kind::Dict) {
        done = Value(Dict());
      } else {
        done = scalar(kind, tag);
        if (done.isNull()) return Value();
      }
      // Hand finished values to their containers, closing those that end,
      // until the next value starts.
      for (;;) {
        if (!done.isNull()) {
          if (depth == 0) return done;
          open_[depth - 1].add(std::move(done));
          done = Value();
        }
        Event event = next(open_[depth - 1], &tag);
        if (event == Event::Error) return Value();
        if (event == Event::Start) break;
        done = open_[--depth].close();
      }
    }
  }

  // Skips a whole element (checked for form, not for meaning).
  bool skipElement(const Tag& first) {
    if (first.empty) return true;
    std::vector<std::string_view> names = {first.name};
    for (;;) {
      std::string_view text;
      if (!textRun(&text)) return false;
      if (lookingAt("</")) {
        if (!endTag(names.back())) return false;
        names.pop_back();
        if (names.empty()) return true;
      } else if (lookingAt("<![CDATA[")) {
        if (!skipPast("]]>")) return false;
      } else if (atCommentOrInstruction()) {
        if (!skipCommentOrInstruction()) return false;
      } else {
        Tag tag;
        if (!startTag(&tag)) return false;
        if (tag.empty) continue;
        if (names.size() > static_cast<size_t>(kMaxPropertyListDepth)) return false;
        names.push_back(tag.name);
      }
    }
  }

  // The content of <plist>: its first element is the value; text and any
  // later elements are ignored, as they always have been.
  Value plistContent(const Tag& plist) {
    if (plist.empty) return Value();
    Value root;
    for (;;) {
      std::string_view text;
      if (!textRun(&text)) return Value();
      if (lookingAt("</")) return endTag(plist.name) ? root : Value();
      if (lookingAt("<![CDATA[")) {
        if (!skipPast("]]>")) return Value();
      } else if (atCommentOrInstruction()) {
        if (!skipCommentOrInstruction()) return Value();
      } else {
        Tag tag;
        if (!startTag(&tag)) return Value();
        if (root.isNull()) {
          root = tree(tag);
          if (root.isNull()) return Value();
        } else if (!skipElement(tag)) {
          return Value();
        }
      }
    }
  }

  const char* p_;
  const char* end_;
  std::vector<OpenContainer> open_;  // by depth; entries past the current depth are scratch
  std::string scratch_;              // a scalar's text when it is not one plain run
};

}  // namespace

Value parseXmlPropertyList(std::string_view bytes) { return XmlReader(bytes).document(); }

Value parseXmlPropertyListInPlace(std::string& buffer) { return parseXmlPropertyList(buffer); }

}  // namespace velmar
