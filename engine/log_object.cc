#include "engine/log_object.h"

#include <unistd.h>

#include "base/utf8.h"

namespace velmar {

LogKind classifyMessage(std::string_view message) {
  if (message.find("ERROR") != std::string_view::npos) return LogKind::Error;
  if (message.find("WARNING") != std::string_view::npos) return LogKind::Warning;
  if (message.find("NOTE") != std::string_view::npos) return LogKind::Note;
  return LogKind::Plain;
}

namespace {

// The length of the UTF-8 sequence a lead byte starts (1 for anything that
// cannot start one: it is then escaped alone).
size_t sequenceLength(unsigned char lead) {
  if (lead >= 0xf0) return 4;
  if (lead >= 0xe0) return 3;
  if (lead >= 0xc0) return 2;
  return 1;
}

void appendHexEscape(std::string& out, unsigned char byte) {
  static const char kHex[] = "0123456789ABCDEF";
  out += "\\x";
  out += kHex[byte >> 4];
  out += kHex[byte & 15];
}

}  // namespace

std::string escapeForLog(std::string_view message) {
  std::string out;
  out.reserve(message.size());
  for (size_t i = 0; i < message.size();) {
    const unsigned char c = static_cast<unsigned char>(message[i]);
    if (c < 0x80) {
      if (c == '\n') {
        out += "\\n";
      } else if (c == '\r') {
        out += "\\r";
      } else if (c == '\t') {
        out += "\\t";
      } else if (c < 0x20 || c == 0x7f) {
        appendHexEscape(out, c);
      } else {
        out += static_cast<char>(c);
      }
      ++i;
      continue;
    }
    const size_t length = sequenceLength(c);
    std::string_view sequence = message.substr(i, length);
    if (sequence.size() != length || length == 1 || !isValidUtf8(sequence)) {
      appendHexEscape(out, c);
      ++i;
      continue;
    }
    // C1 controls (U+0080 to U+009F) act as escapes on some terminals.
    if (c == 0xc2 && static_cast<unsigned char>(sequence[1]) < 0xa0) {
      appendHexEscape(out, c);
      appendHexEscape(out, static_cast<unsigned char>(sequence[1]));
    } else {
      out += sequence;
    }
    i += length;
  }
  return out;
}

LogObject& LogObject::sharedLogger() {
  static LogObject logger;
  return logger;
}

LogObject::LogObject() : useTTY_(isatty(2) == 1) {}

void LogObject::LogMessage(const std::string& rawMessage, bool always) {
  const std::string message = escapeForLog(rawMessage);
  historicalLog_ += message;
  historicalLog_ += '\n';

  LogKind kind = classifyMessage(message);
  if (kind == LogKind::Plain && !verbose_ && !always) return;

  if (!useTTY_ || kind == LogKind::Plain) {
    std::fprintf(out_, "%s\n", message.c_str());
    std::fflush(out_);
    return;
  }
  const char* colour = kind == LogKind::Error     ? "\x1b[31m"
                       : kind == LogKind::Warning ? "\x1b[33m"
                                                  : "\x1b[1m";
  std::fprintf(err_, "%s%s\n\x1b[0m", colour, message.c_str());
  std::fflush(err_);
}

void LogObject::PrettyPrint(const Value& value) {
  if (!verbose_) return;
  std::string text = dumpValueToString(value, "\t");
  std::fwrite(text.data(), 1, text.size(), out_);
  std::fflush(out_);
}

// ---- the dump routine -------------------------------------------------------

namespace {

struct DumpContext {
  int level = 0;
  int index = 0;
  std::string_view indent;
  FILE* stream = nullptr;
  std::string* out = nullptr;
};

void write(const DumpContext& c, std::string_view text) {
  if (c.stream) std::fwrite(text.data(), 1, text.size(), c.stream);
  if (c.out) c.out->append(text);
}

std::string valueText(const Value& v) {
  if (v.isData()) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string s = "0x";
    for (unsigned char c : v.dataValue().bytes) {
      s += kHex[c >> 4];
      s += kHex[c & 15];
    }
    return s;
  }
  return v.description();
}

void render(const Value& v, DumpContext c);

void emit(DumpContext& c, const std::string& label, const Value* value) {
  for (int i = 0; i < c.level; ++i) write(c, c.indent);
  write(c, label);
  if (!value) {
    write(c, "\n");
    return;
  }
  if (!label.empty()) write(c, ":");
  if (value->isContainer()) {
    write(c, "\n");
    DumpContext inner = c;
    inner.level = c.level + 1;
    inner.index = 0;
    render(*value, inner);
    return;
  }
  if (!label.empty()) write(c, " ");
  write(c, valueText(*value));
  write(c, "\n");
}

void render(const Value& v, DumpContext c) {
  switch (v.type()) {
    case Value::Type::Dict:
      for (const auto& [k, item] : v.dict()) emit(c, k, &item);
      break;
    case Value::Type::Array:
      for (const Value& item : v.arr()) {
        std::string label = std::to_string(c.index++);
        emit(c, label, &item);
      }
      break;
    case Value::Type::Set:
      for (const Value& item : v.setItems()) emit(c, "", &item);
      break;
    default:
      emit(c, valueText(v), nullptr);
      break;
  }
}

}  // namespace

void dumpValue(const Value& v) { dumpValue(v, stderr, "\t"); }
void dumpValue(const Value& v, FILE* stream) { dumpValue(v, stream, "\t"); }
void dumpValue(const Value& v, std::string_view indent) { dumpValue(v, stderr, indent); }

void dumpValue(const Value& v, FILE* stream, std::string_view indent) {
  DumpContext c;
  c.indent = indent;
  c.stream = stream;
  render(v, c);
  if (stream) std::fflush(stream);
}

std::string dumpValueToString(const Value& v, std::string_view indent) {
  std::string out;
  DumpContext c;
  c.indent = indent;
  c.out = &out;
  render(v, c);
  return out;
}

}  // namespace velmar
