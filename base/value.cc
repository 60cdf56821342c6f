#include "base/value.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <variant>


namespace velmar {

struct Value::Node {
  std::variant<bool, int64_t, double, std::string, velmar::Date, velmar::Data,
               velmar::Array, Value::SetStorage, velmar::Dict>
      v;
};

namespace {

const std::string kEmptyString;
const Array kEmptyArray;
const Value::SetStorage kEmptySet;
const Dict kEmptyDict;
const Data kEmptyData;

}  // namespace

Value::Value(bool b) : node_(std::make_shared<Node>(Node{b})) {}
Value::Value(long long i) : node_(std::make_shared<Node>(Node{static_cast<int64_t>(i)})) {}
Value::Value(double d) : node_(std::make_shared<Node>(Node{d})) {}
Value::Value(const char* s)
    : node_(s ? std::make_shared<Node>(Node{std::string(s)}) : nullptr) {}
Value::Value(std::string s) : node_(std::make_shared<Node>(Node{std::move(s)})) {}
Value::Value(velmar::Data d) : node_(std::make_shared<Node>(Node{std::move(d)})) {}
Value::Value(velmar::Date d) : node_(std::make_shared<Node>(Node{d})) {}
Value::Value(velmar::Array a) : node_(std::make_shared<Node>(Node{std::move(a)})) {}
Value::Value(SetStorage s) : node_(std::make_shared<Node>(Node{std::move(s)})) {}
Value::Value(velmar::Dict d) : node_(std::make_shared<Node>(Node{std::move(d)})) {}

Value Value::makeArray(std::initializer_list<Value> items) { return Value(velmar::Array(items)); }

Value Value::makeSet(std::initializer_list<Value> items) {
  return Value(SetStorage(items.begin(), items.end()));
}

Value Value::makeDict() { return Value(velmar::Dict()); }

Value Value::stringArray(const std::vector<std::string>& items) {
  velmar::Array a;
  a.reserve(items.size());
  for (const auto& s : items) a.emplace_back(s);
  return Value(std::move(a));
}

Value::Type Value::type() const {
  if (!node_) return Type::Null;
  switch (node_->v.index()) {
    case 0: return Type::Bool;
    case 1: return Type::Integer;
    case 2: return Type::Real;
    case 3: return Type::String;
    case 4: return Type::Date;
    case 5: return Type::Data;
    case 6: return Type::Array;
    case 7: return Type::Set;
    default: return Type::Dict;
  }
}

bool Value::isNumber() const {
  Type t = type();
  return t == Type::Bool || t == Type::Integer || t == Type::Real;
}

bool Value::boolValue() const {
  switch (type()) {
    case Type::Bool: return std::get<bool>(node_->v);
    case Type::Integer: return std::get<int64_t>(node_->v) != 0;
    case Type::Real: return std::get<double>(node_->v) != 0.0;
    default: return false;
  }
}

int64_t Value::intValue() const {
  switch (type()) {
    case Type::Bool: return std::get<bool>(node_->v) ? 1 : 0;
    case Type::Integer: return std::get<int64_t>(node_->v);
    case Type::Real: {
      double d = std::get<double>(node_->v);
      if (std::isnan(d)) return 0;
      if (d >= 9.2e18) return INT64_MAX;
      if (d <= -9.2e18) return INT64_MIN;
      return static_cast<int64_t>(d);
    }
    default: return 0;
  }
}

double Value::realValue() const {
  switch (type()) {
    case Type::Bool: return std::get<bool>(node_->v) ? 1.0 : 0.0;
    case Type::Integer: return static_cast<double>(std::get<int64_t>(node_->v));
    case Type::Real: return std::get<double>(node_->v);
    default: return 0.0;
  }
}

const std::string& Value::str() const& {
  return isString() ? std::get<std::string>(node_->v) : kEmptyString;
}

const Data& Value::dataValue() const& {
  return isData() ? std::get<velmar::Data>(node_->v) : kEmptyData;
}

Date Value::dateValue() const {
  return isDate() ? std::get<velmar::Date>(node_->v) : velmar::Date{};
}

const Array& Value::arr() const& {
  return isArray() ? std::get<velmar::Array>(node_->v) : kEmptyArray;
}

const Value::SetStorage& Value::setItems() const& {
  return isSet() ? std::get<SetStorage>(node_->v) : kEmptySet;
}

const Dict& Value::dict() const& {
  return isDict() ? std::get<velmar::Dict>(node_->v) : kEmptyDict;
}

Value::Node& Value::mutableNode() {
  // Copy-on-write: a shared node is cloned one level deep. Its children are
  // Values themselves and stay shared until they are written to.
  if (node_.use_count() > 1) node_ = std::make_shared<Node>(*node_);
  return *node_;
}

Array& Value::arrMut() {
  if (!isArray()) *this = Value(velmar::Array());
  return std::get<velmar::Array>(mutableNode().v);
}

Value::SetStorage& Value::setMut() {
  if (!isSet()) *this = Value(SetStorage());
  return std::get<SetStorage>(mutableNode().v);
}

Dict& Value::dictMut() {
  if (!isDict()) *this = Value(velmar::Dict());
  return std::get<velmar::Dict>(mutableNode().v);
}

Value Value::get(std::string_view key) const { return dict().get(key); }

const Value* Value::find(std::string_view key) const { return dict().find(key); }

bool Value::contains(std::string_view key) const { return dict().contains(key); }

void Value::set(std::string key, Value v) { dictMut().set(std::move(key), std::move(v)); }

bool Value::remove(std::string_view key) {
  if (!isDict() || !dict().contains(key)) return false;
  return dictMut().remove(key);
}

Value& Value::slot(std::string_view key) {
  Dict& d = dictMut();
  if (Value* found = d.find(key)) return *found;
  d.set(std::string(key), Value());
  return *d.find(key);
}

size_t Value::count() const {
  switch (type()) {
    case Type::Array: return arr().size();
    case Type::Set: return setItems().size();
    case Type::Dict: return dict().size();
    default: return 0;
  }
}

void Value::append(Value v) { arrMut().push_back(std::move(v)); }

void Value::insert(Value v) {
  if (isSet() && setItems().count(v)) return;  // no needless detach
  setMut().insert(std::move(v));
}

bool Value::containsMember(const Value& v) const {
  if (isSet()) return setItems().count(v) != 0;
  for (const Value& item : arr())
    if (item == v) return true;
  return false;
}

Value Value::valueForKeyPath(std::string_view path) const {
  const Value* cur = this;
  while (true) {
    size_t dot = path.find('.');
    std::string_view key = path.substr(0, dot);
    cur = cur->find(key);
    if (!cur) return Value();
    if (dot == std::string_view::npos) return *cur;
    path.remove_prefix(dot + 1);
  }
}

namespace {

std::string realText(double d) {
  if (std::isnan(d)) return "nan";
  if (std::isinf(d)) return d > 0 ? "inf" : "-inf";
  char buf[64];
  auto res = std::to_chars(buf, buf + sizeof buf, d);
  return std::string(buf, res.ptr);
}

std::string dateText(Date d) {
  // 978307200 is 2001-01-01 in Unix time.
  time_t t = static_cast<time_t>(std::floor(d.seconds)) + 978307200;
  struct tm tm;
  gmtime_r(&t, &tm);
  char buf[64];
  strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S +0000", &tm);
  return buf;
}

std::string dataText(const Data& d) {
  static const char kHex[] = "0123456789abcdef";
  std::string out = "<";
  for (size_t i = 0; i < d.bytes.size(); ++i) {
    if (i && i % 4 == 0) out += ' ';
    auto c = static_cast<unsigned char>(d.bytes[i]);
    out += kHex[c >> 4];
    out += kHex[c & 15];
  }
  return out + ">";
}

}  // namespace

std::string Value::description() const {
  switch (type()) {
    case Type::Null: return "(null)";
    case Type::Bool: return boolValue() ? "1" : "0";
    case Type::Integer: return std::to_string(intValue());
    case Type::Real: return realText(realValue());
    case Type::String: return str();
    case Type::Date: return dateText(dateValue());
    case Type::Data: return dataText(dataValue());
    case Type::Array:
    case Type::Set: return niceDescription(*this);
    case Type::Dict: {
      std::string out = "{";
      for (const auto& [k, v] : dict()) {
        out += k;
        out += " = ";
        out += v.description();
        out += "; ";
      }
      if (out.size() > 1) out.pop_back();
      return out + "}";
    }
  }
  return {};
}

std::vector<std::string> Value::strings() const {
  std::vector<std::string> out;
  auto take = [&](const Value& v) {
    if (v.isString()) out.push_back(v.str());
  };
  if (isSet()) {
    for (const Value& v : setItems()) take(v);
  } else {
    for (const Value& v : arr()) take(v);
  }
  return out;
}

bool Value::operator==(const Value& other) const {
  if (node_ == other.node_) return true;
  Type a = type(), b = other.type();
  if (isNumber() && other.isNumber()) {
    if (a == Type::Real || b == Type::Real) return realValue() == other.realValue();
    return intValue() == other.intValue();
  }
  if (a != b || a == Type::Null) return a == b;
  return node_->v == other.node_->v;
}

namespace {

int rank(Value::Type t) {
  // Numbers of all kinds share a rank so that equal numbers are equivalent
  // in a set, as they are equal under operator==.
  switch (t) {
    case Value::Type::Null: return 0;
    case Value::Type::Bool:
    case Value::Type::Integer:
    case Value::Type::Real: return 1;
    case Value::Type::String: return 2;
    case Value::Type::Date: return 3;
    case Value::Type::Data: return 4;
    case Value::Type::Array: return 5;
    case Value::Type::Set: return 6;
    case Value::Type::Dict: return 7;
  }
  return 8;
}

template <class Seq>
int compareSequences(const Seq& a, const Seq& b) {
  auto ia = a.begin(), ib = b.begin();
  for (; ia != a.end() && ib != b.end(); ++ia, ++ib)
    if (int c = Value::compare(*ia, *ib)) return c;
  if (ia == a.end()) return ib == b.end() ? 0 : -1;
  return 1;
}

}  // namespace

int Value::compare(const Value& a, const Value& b) {
  if (a.node_ == b.node_) return 0;
  int ra = rank(a.type()), rb = rank(b.type());
  if (ra != rb) return ra < rb ? -1 : 1;
  switch (a.type()) {
    case Type::Null: return 0;
    case Type::Bool:
    case Type::Integer:
    case Type::Real: {
      if (a.type() != Type::Real && b.type() != Type::Real) {
        int64_t x = a.intValue(), y = b.intValue();
        return x < y ? -1 : x > y;
      }
      double x = a.realValue(), y = b.realValue();
      return x < y ? -1 : x > y;
    }
    case Type::String: {
      int c = a.str().compare(b.str());
      return c < 0 ? -1 : c > 0;
    }
    case Type::Date: {
      double x = a.dateValue().seconds, y = b.dateValue().seconds;
      return x < y ? -1 : x > y;
    }
    case Type::Data: {
      int c = a.dataValue().bytes.compare(b.dataValue().bytes);
      return c < 0 ? -1 : c > 0;
    }
    case Type::Array: return compareSequences(a.arr(), b.arr());
    case Type::Set: return compareSequences(a.setItems(), b.setItems());
    case Type::Dict: {
      if (a == b) return 0;
      const Dict& x = a.dict();
      const Dict& y = b.dict();
      if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
      auto ix = x.begin(), iy = y.begin();
      for (; ix != x.end(); ++ix, ++iy) {
        if (int c = ix->first.compare(iy->first)) return c < 0 ? -1 : 1;
        if (int c = Value::compare(ix->second, iy->second)) return c;
      }
      return 0;
    }
  }
  return 0;
}

bool Value::Less::operator()(const Value& a, const Value& b) const {
  return Value::compare(a, b) < 0;
}

// ---- Dict ------------------------------------------------------------------

Dict::Dict(std::initializer_list<Entry> entries) {
  for (const auto& e : entries) set(e.first, e.second);
}

const Value* Dict::find(std::string_view key) const {
  if (!index_.empty()) {
    auto it = index_.find(key);
    return it == index_.end() ? nullptr : &entries_[it->second].second;
  }
  for (const auto& e : entries_)
    if (e.first == key) return &e.second;
  return nullptr;
}

Value* Dict::find(std::string_view key) {
  return const_cast<Value*>(static_cast<const Dict*>(this)->find(key));
}

Value Dict::get(std::string_view key) const {
  const Value* v = find(key);
  return v ? *v : Value();
}

void Dict::set(std::string key, Value v) {
  if (Value* existing = find(key)) {
    *existing = std::move(v);
    return;
  }
  entries_.emplace_back(std::move(key), std::move(v));
  if (!index_.empty()) {
    index_.emplace(entries_.back().first, entries_.size() - 1);
  } else if (entries_.size() > kIndexThreshold) {
    rebuildIndex();
  }
}

bool Dict::remove(std::string_view key) {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (it->first != key) continue;
    entries_.erase(it);
    index_.clear();
    if (entries_.size() > kIndexThreshold) rebuildIndex();
    return true;
  }
  return false;
}

std::vector<std::string> Dict::keys() const {
  std::vector<std::string> out;
  out.reserve(entries_.size());
  for (const auto& e : entries_) out.push_back(e.first);
  return out;
}

void Dict::rebuildIndex() {
  index_.clear();
  index_.reserve(entries_.size());
  for (size_t i = 0; i < entries_.size(); ++i) index_.emplace(entries_[i].first, i);
}

bool Dict::operator==(const Dict& other) const {
  if (size() != other.size()) return false;
  for (const auto& [k, v] : entries_) {
    const Value* o = other.find(k);
    if (!o || !(*o == v)) return false;
  }
  return true;
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

}  // namespace velmar
