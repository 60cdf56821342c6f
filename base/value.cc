#include "base/value.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>


namespace velmar {

template <class T>
struct Value::Holder : Value::Node {
  Holder(Type t, T payload) : Node(t), v(std::move(payload)) {}
  T v;
};

template <class T>
Value::Node* Value::make(Type t, T payload) {
  return new Holder<T>(t, std::move(payload));
}

template <class T>
const T& Value::as() const {
  return static_cast<const Holder<T>*>(node_)->v;
}

namespace {

const std::string kEmptyString;
const Array kEmptyArray;
const Value::SetStorage kEmptySet;
const Dict kEmptyDict;
const Data kEmptyData;

}  // namespace

void Value::destroy(Node* n) {
  switch (n->type) {
    case Type::Null: break;
    case Type::Bool: delete static_cast<Holder<bool>*>(n); break;
    case Type::Integer: delete static_cast<Holder<int64_t>*>(n); break;
    case Type::Real: delete static_cast<Holder<double>*>(n); break;
    case Type::String: delete static_cast<Holder<std::string>*>(n); break;
    case Type::Date: delete static_cast<Holder<velmar::Date>*>(n); break;
    case Type::Data: delete static_cast<Holder<velmar::Data>*>(n); break;
    case Type::Array: delete static_cast<Holder<velmar::Array>*>(n); break;
    case Type::Set: delete static_cast<Holder<SetStorage>*>(n); break;
    case Type::Dict: delete static_cast<Holder<velmar::Dict>*>(n); break;
  }
}

Value::Value(bool b) {
  // Two shared nodes, made once and never freed: a manifest's many
  // booleans cost a pointer each.
  static Node* const kTrue = make(Type::Bool, true);
  static Node* const kFalse = make(Type::Bool, false);
  node_ = b ? kTrue : kFalse;
  retain(node_);
}
Value::Value(long long i) : node_(make(Type::Integer, static_cast<int64_t>(i))) {}
Value::Value(double d) : node_(make(Type::Real, d)) {}
Value::Value(const char* s) : node_(s ? make(Type::String, std::string(s)) : nullptr) {}
Value::Value(std::string s) : node_(make(Type::String, std::move(s))) {}
Value::Value(velmar::Data d) : node_(make(Type::Data, std::move(d))) {}
Value::Value(velmar::Date d) : node_(make(Type::Date, d)) {}
Value::Value(velmar::Array a) : node_(make(Type::Array, std::move(a))) {}
Value::Value(SetStorage s) : node_(make(Type::Set, std::move(s))) {}
Value::Value(velmar::Dict d) : node_(make(Type::Dict, std::move(d))) {}

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

bool Value::isNumber() const {
  Type t = type();
  return t == Type::Bool || t == Type::Integer || t == Type::Real;
}

bool Value::boolValue() const {
  switch (type()) {
    case Type::Bool: return as<bool>();
    case Type::Integer: return as<int64_t>() != 0;
    case Type::Real: return as<double>() != 0.0;
    default: return false;
  }
}

int64_t Value::intValue() const {
  switch (type()) {
    case Type::Bool: return as<bool>() ? 1 : 0;
    case Type::Integer: return as<int64_t>();
    case Type::Real: {
      double d = as<double>();
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
    case Type::Bool: return as<bool>() ? 1.0 : 0.0;
    case Type::Integer: return static_cast<double>(as<int64_t>());
    case Type::Real: return as<double>();
    default: return 0.0;
  }
}

const std::string& Value::str() const& {
  return isString() ? as<std::string>() : kEmptyString;
}

const Data& Value::dataValue() const& {
  return isData() ? as<velmar::Data>() : kEmptyData;
}

Date Value::dateValue() const {
  return isDate() ? as<velmar::Date>() : velmar::Date{};
}

const Array& Value::arr() const& {
  return isArray() ? as<velmar::Array>() : kEmptyArray;
}

const Value::SetStorage& Value::setItems() const& {
  return isSet() ? as<SetStorage>() : kEmptySet;
}

const Dict& Value::dict() const& {
  return isDict() ? as<velmar::Dict>() : kEmptyDict;
}

Value::Node* Value::mutableNode() {
  // Copy-on-write: a shared node is cloned one level deep. Its children are
  // Values themselves and stay shared until they are written to.
  if (node_->refs.load(std::memory_order_acquire) == 1) return node_;
  Node* copy = nullptr;
  switch (node_->type) {
    case Type::Array: copy = make(Type::Array, as<velmar::Array>()); break;
    case Type::Set: copy = make(Type::Set, as<SetStorage>()); break;
    case Type::Dict: copy = make(Type::Dict, as<velmar::Dict>()); break;
    default: return node_;  // scalars are never written in place
  }
  release(node_);
  node_ = copy;
  return node_;
}

Array& Value::arrMut() {
  if (!isArray()) *this = Value(velmar::Array());
  return static_cast<Holder<velmar::Array>*>(mutableNode())->v;
}

Value::SetStorage& Value::setMut() {
  if (!isSet()) *this = Value(SetStorage());
  return static_cast<Holder<SetStorage>*>(mutableNode())->v;
}

Dict& Value::dictMut() {
  if (!isDict()) *this = Value(velmar::Dict());
  return static_cast<Holder<velmar::Dict>*>(mutableNode())->v;
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
  switch (a) {
    case Type::String: return as<std::string>() == other.as<std::string>();
    case Type::Date: return as<velmar::Date>() == other.as<velmar::Date>();
    case Type::Data: return as<velmar::Data>() == other.as<velmar::Data>();
    case Type::Array: return as<velmar::Array>() == other.as<velmar::Array>();
    case Type::Set: return as<SetStorage>() == other.as<SetStorage>();
    case Type::Dict: return as<velmar::Dict>() == other.as<velmar::Dict>();
    default: return false;  // numbers are handled above
  }
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
      // Key order is how the file was written, not part of the value (==
      // ignores it too), so dictionaries compare in key order: by size, then
      // entry by entry by key and value.
      const Dict& x = a.dict();
      const Dict& y = b.dict();
      if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
      const std::vector<uint32_t> px = x.positionsByKey(), py = y.positionsByKey();
      auto ex = x.begin(), ey = y.begin();
      for (size_t i = 0; i < px.size(); ++i) {
        const Dict::Entry& u = ex[px[i]];
        const Dict::Entry& w = ey[py[i]];
        if (int c = u.first.compare(w.first)) return c < 0 ? -1 : 1;
        if (int c = Value::compare(u.second, w.second)) return c;
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

std::vector<uint32_t>::const_iterator Dict::indexSlot(std::string_view key) const {
  return std::lower_bound(index_.begin(), index_.end(), key,
                          [this](uint32_t pos, std::string_view k) { return entries_[pos].first < k; });
}

const Value* Dict::find(std::string_view key) const {
  if (!index_.empty()) {
    auto it = indexSlot(key);
    if (it == index_.end() || entries_[*it].first != key) return nullptr;
    return &entries_[*it].second;
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
  if (!index_.empty()) {
    auto slot = index_.begin() + (indexSlot(key) - index_.cbegin());
    index_.insert(slot, static_cast<uint32_t>(entries_.size()));
    entries_.emplace_back(std::move(key), std::move(v));
    return;
  }
  entries_.emplace_back(std::move(key), std::move(v));
  if (entries_.size() > kIndexThreshold) rebuildIndex();
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

Value& Dict::slot(std::string_view key) {
  if (Value* found = find(key)) return *found;
  set(std::string(key), Value());
  return *find(key);
}

std::vector<std::string> Dict::keys() const {
  std::vector<std::string> out;
  out.reserve(entries_.size());
  for (const auto& e : entries_) out.push_back(e.first);
  return out;
}

std::vector<uint32_t> Dict::positionsByKey() const {
  if (!index_.empty()) return index_;
  std::vector<uint32_t> order(entries_.size());
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(),
            [this](uint32_t x, uint32_t y) { return entries_[x].first < entries_[y].first; });
  return order;
}

void Dict::rebuildIndex() {
  index_ = {};
  std::vector<uint32_t> order(entries_.size());
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(),
            [this](uint32_t x, uint32_t y) { return entries_[x].first < entries_[y].first; });
  index_ = std::move(order);
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
