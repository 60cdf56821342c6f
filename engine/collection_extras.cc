#include "engine/collection_extras.h"

#include <algorithm>

#include "engine/log_object.h"

namespace velmar {

bool boolForKey(const Value& dict, std::string_view key) {
  const Value* v = dict.find(key);
  if (!v) return false;
  if (v->isNumber()) return v->boolValue();
  if (v->isString()) return !v->str().empty() && (v->str()[0] == 'y' || v->str()[0] == 'Y');
  return false;
}

std::string niceDescription(const Value& collection) {
  if (!collection.isArray() && !collection.isSet()) return collection.description();
  std::string out;
  bool first = true;
  auto add = [&](const Value& v) {
    if (!first) out += ", ";
    first = false;
    out += v.description();
  };
  if (collection.isSet()) {
    for (const Value& v : collection.setItems()) add(v);
  } else {
    for (const Value& v : collection.arr()) add(v);
  }
  return out;
}

bool deepMergeArray(Value& receiver, const Value& other) {
  receiver.arrMut();
  auto merge = [&](const Value& v) {
    if (!receiver.containsMember(v)) receiver.append(v);
  };
  if (other.isSet()) {
    for (const Value& v : other.setItems()) merge(v);
  } else {
    for (const Value& v : other.arr()) merge(v);
  }
  return true;
}

bool deepMergeSet(Value& receiver, const Value& other) {
  receiver.setMut();
  if (other.isSet()) {
    for (const Value& v : other.setItems()) receiver.insert(v);
  } else {
    for (const Value& v : other.arr()) receiver.insert(v);
  }
  return true;
}

std::string className(const Value& v) {
  switch (v.type()) {
    case Value::Type::Null: return "Null";
    case Value::Type::Bool:
    case Value::Type::Integer:
    case Value::Type::Real: return "Number";
    case Value::Type::String: return "String";
    case Value::Type::Date: return "Date";
    case Value::Type::Data: return "Data";
    case Value::Type::Array: return "Array";
    case Value::Type::Set: return "Set";
    case Value::Type::Dict: return "Dictionary";
  }
  return "Object";
}

bool deepMergeDictionary(Value& receiver, const Value& other) {
  receiver.dictMut();
  for (const auto& [key, theirs] : other.dict()) {
    Value* mine = receiver.dictMut().find(key);
    if (!mine) {
      receiver.set(key, theirs);
      continue;
    }
    if (mine->isArray() && theirs.isArray()) {
      if (!deepMergeArray(*mine, theirs)) return false;
    } else if (mine->isDict() && theirs.isDict()) {
      if (!deepMergeDictionary(*mine, theirs)) return false;
    } else if (mine->isSet() && theirs.isSet()) {
      if (!deepMergeSet(*mine, theirs)) return false;
    } else if (!(*mine == theirs)) {
      LogObject::sharedLogger().Log("!!! WARNING cannot merge %@->%@ for key %@.",
                                    className(theirs), className(*mine), key);
      return false;
    }
  }
  return true;
}

namespace {

char fold(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameText(std::string_view a, std::string_view b, Compare how) {
  if (a.size() != b.size()) return false;
  if (how == Compare::Literal) return a == b;
  for (size_t i = 0; i < a.size(); ++i)
    if (fold(a[i]) != fold(b[i])) return false;
  return true;
}

}  // namespace

bool hasPrefix(std::string_view s, std::string_view affix, Compare how) {
  if (affix.empty() || affix.size() > s.size()) return false;
  return sameText(s.substr(0, affix.size()), affix, how);
}

bool hasSuffix(std::string_view s, std::string_view affix, Compare how) {
  if (affix.empty() || affix.size() > s.size()) return false;
  return sameText(s.substr(s.size() - affix.size()), affix, how);
}

std::string upper(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = fold(c);
  return out;
}

bool containsIgnoringCase(std::string_view s, std::string_view part) {
  if (part.empty() || part.size() > s.size()) return false;
  return lower(s).find(lower(part)) != std::string::npos;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return sameText(a, b, Compare::CaseInsensitive);
}

void sortIgnoringCase(std::vector<std::string>& names) {
  std::sort(names.begin(), names.end(),
            [](const std::string& a, const std::string& b) { return caseInsensitiveLess(a, b); });
}

std::string joinNames(const std::vector<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) {
    if (!joined.empty()) joined += ", ";
    joined += name;
  }
  return joined;
}

std::string joinSortedNames(std::vector<std::string> names) {
  sortIgnoringCase(names);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return joinNames(names);
}

std::string lastPathComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string() : std::string(path.substr(0, slash));
}

std::string appendingPathComponent(std::string_view folder, std::string_view name) {
  if (folder.empty()) return std::string(name);
  std::string joined(folder);
  if (joined.back() != '/') joined += '/';
  return joined.append(name);
}

int caseInsensitiveCompare(std::string_view a, std::string_view b) {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char x = fold(a[i]), y = fold(b[i]);
    if (x != y) return static_cast<unsigned char>(x) < static_cast<unsigned char>(y) ? -1 : 1;
  }
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  return 0;
}

bool caseInsensitiveLess(std::string_view a, std::string_view b) {
  int c = caseInsensitiveCompare(a, b);
  return c != 0 ? c < 0 : a < b;
}

}  // namespace velmar
