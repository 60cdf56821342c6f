#include "engine/log_object.h"

#include <unistd.h>

namespace velmar {

LogKind classifyMessage(std::string_view message) {
  if (message.find("ERROR") != std::string_view::npos) return LogKind::Error;
  if (message.find("WARNING") != std::string_view::npos) return LogKind::Warning;
  if (message.find("NOTE") != std::string_view::npos) return LogKind::Note;
  return LogKind::Plain;
}

LogObject& LogObject::sharedLogger() {
  static LogObject logger;
  return logger;
}

LogObject::LogObject() : useTTY_(isatty(2) == 1) {}

void LogObject::LogMessage(const std::string& message, bool always) {
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
