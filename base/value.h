// Value: the property-list value type the engines work in.
//
// A Value is null (a missing object), a boolean, an integer, a real, a string,
// a date, data, an array, a set or a dictionary. The kinds are kept apart: a
// boolean read from a file is written back as a boolean, an integer as an
// integer.
//
// Values have value semantics with shared, copy-on-write storage: copying a
// Value copies a pointer, and the first mutation through a copy detaches only
// the container being changed (its children stay shared). Copying a whole
// build manifest to change one top-level key therefore costs the size of the
// top-level dictionary, not the size of the file.
//
// A Value is one pointer to a reference-counted node sized for its kind (the
// two booleans are shared nodes that are never freed): a 10 MB build
// manifest of 290,000 values and keys is held in under twice its size. Reference counts are atomic, so Values may be copied and
// released from several threads, like shared_ptr.
//
// Dictionaries keep their keys in insertion (file) order. Sets keep their
// members sorted (see Value::compare) so that everything logged from a set is
// stable from run to run.

#ifndef VELMAR_BASE_VALUE_H_
#define VELMAR_BASE_VALUE_H_

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmar {

class Value;
class Dict;

using Array = std::vector<Value>;

// Data bytes, distinct from a string.
struct Data {
  std::string bytes;
  bool operator==(const Data&) const = default;
};

// A date, as seconds since 2001-01-01 00:00:00 UTC (the property-list epoch).
struct Date {
  double seconds = 0;
  bool operator==(const Date&) const = default;
};

class Value {
 public:
  enum class Type : uint8_t {
    Null, Bool, Integer, Real, String, Date, Data, Array, Set, Dict
  };

  struct Less {
    bool operator()(const Value& a, const Value& b) const;
  };
  using SetStorage = std::set<Value, Less>;

  Value() = default;  // null
  Value(const Value& other) : node_(other.node_) { retain(node_); }
  Value(Value&& other) noexcept : node_(other.node_) { other.node_ = nullptr; }
  Value& operator=(const Value& other) {
    retain(other.node_);
    release(node_);
    node_ = other.node_;
    return *this;
  }
  Value& operator=(Value&& other) noexcept {
    if (this != &other) {
      release(node_);
      node_ = other.node_;
      other.node_ = nullptr;
    }
    return *this;
  }
  ~Value() { release(node_); }

  Value(bool b);
  Value(int i) : Value(static_cast<long long>(i)) {}
  Value(long i) : Value(static_cast<long long>(i)) {}
  Value(long long i);
  Value(unsigned i) : Value(static_cast<long long>(i)) {}
  Value(unsigned long i) : Value(static_cast<long long>(i)) {}
  Value(double d);
  Value(const char* s);
  Value(std::string s);
  Value(std::string_view s) : Value(std::string(s)) {}
  Value(velmar::Data d);
  Value(velmar::Date d);
  Value(velmar::Array a);
  Value(SetStorage s);
  Value(velmar::Dict d);

  static Value makeArray(std::initializer_list<Value> items = {});
  static Value makeSet(std::initializer_list<Value> items = {});
  static Value makeDict();
  static Value makeData(std::string bytes) { return Value(velmar::Data{std::move(bytes)}); }
  static Value stringArray(const std::vector<std::string>& items);

  Type type() const { return node_ ? node_->type : Type::Null; }
  bool isNull() const { return node_ == nullptr; }
  // No truth value: "is there a value" (isNull) and "is it true"
  // (boolValue) differ for Value(false), so callers say which they mean.
  explicit operator bool() const = delete;
  bool isBool() const { return type() == Type::Bool; }
  bool isInteger() const { return type() == Type::Integer; }
  bool isReal() const { return type() == Type::Real; }
  bool isNumber() const;  // bool, integer or real
  bool isString() const { return type() == Type::String; }
  bool isDate() const { return type() == Type::Date; }
  bool isData() const { return type() == Type::Data; }
  bool isArray() const { return type() == Type::Array; }
  bool isSet() const { return type() == Type::Set; }
  bool isDict() const { return type() == Type::Dict; }
  bool isContainer() const { return isArray() || isSet() || isDict(); }

  // Scalar readers. Each answers a neutral value (false, 0, "") for a value
  // of another kind; numbers convert between each other.
  bool boolValue() const;
  int64_t intValue() const;
  double realValue() const;
  //
  // Readers that hand out references come in two forms: on a temporary
  // Value they return a copy, so `for (auto& v : f().arr())` stays valid
  // after the temporary is gone.
  const std::string& str() const&;
  std::string str() && { return str(); }
  const velmar::Data& dataValue() const&;
  velmar::Data dataValue() && { return dataValue(); }
  velmar::Date dateValue() const;

  // Container readers; an empty container for a value of another kind.
  const velmar::Array& arr() const&;
  velmar::Array arr() && { return arr(); }
  const SetStorage& setItems() const&;
  SetStorage setItems() && { return setItems(); }
  const velmar::Dict& dict() const&;
  velmar::Dict dict() &&;

  // Container writers. They turn a null value into an empty container of
  // the kind asked for and detach shared storage. Asking for the wrong kind
  // of an existing non-null value replaces it with an empty container.
  velmar::Array& arrMut();
  SetStorage& setMut();
  velmar::Dict& dictMut();

  // Dictionary shortcuts: null when this is not a dictionary or has no such key.
  Value get(std::string_view key) const;
  const Value* find(std::string_view key) const;
  bool contains(std::string_view key) const;
  void set(std::string key, Value v);
  bool remove(std::string_view key);
  // The value under `key`, added as null when missing (a null value turns
  // into the container its first writer asks for), for building nested
  // containers in place: index.slot(d).slot(n).append(identity).
  Value& slot(std::string_view key);

  // Array and set shortcuts.
  size_t count() const;  // members of a container, 0 otherwise
  void append(Value v);  // to an array (a null value becomes one)
  void insert(Value v);  // into a set (a null value becomes one)
  bool containsMember(const Value& v) const;  // array or set membership

  // "Info.DeviceClass": each dotted component looks a key up in the
  // dictionary reached so far. Null as soon as a step misses.
  Value valueForKeyPath(std::string_view path) const;

  // The text of "%@": strings as they are, numbers in decimal ("1" and "0"
  // for booleans), arrays and sets as their niceDescription, null as
  // "(null)".
  std::string description() const;

  // Plain strings of an array or set, in order, skipping non-strings.
  std::vector<std::string> strings() const;

  // Deep equality. Numbers compare by value across kinds, as number objects
  // do; everything else needs the same kind.
  bool operator==(const Value& other) const;
  bool operator!=(const Value& other) const { return !(*this == other); }

  // A total order: by kind first, then by contents. Strings compare by bytes.
  static int compare(const Value& a, const Value& b);

  // True when both share the same storage (for tests of the copy cost).
  bool sharesStorageWith(const Value& other) const { return node_ == other.node_; }

 private:
  // The common head of every node; value.cc derives one node type per kind.
  struct Node {
    explicit Node(Type t) : type(t) {}
    std::atomic<uint32_t> refs{1};
    const Type type;
  };
  template <class T> struct Holder;  // a Node with the kind's payload
  template <class T> static Node* make(Type t, T payload);
  template <class T> const T& as() const;
  explicit Value(Node* adopted) : node_(adopted) {}
  static void retain(Node* n) {
    if (n) n->refs.fetch_add(1, std::memory_order_relaxed);
  }
  static void release(Node* n) {
    if (n && n->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy(n);
  }
  static void destroy(Node* n);
  // The node, cloned one level deep first when it is shared.
  Node* mutableNode();

  Node* node_ = nullptr;
};

// A dictionary with keys kept in insertion order and logarithmic lookup.
class Dict {
 public:
  using Entry = std::pair<std::string, Value>;
  using const_iterator = std::vector<Entry>::const_iterator;
  using iterator = std::vector<Entry>::iterator;

  Dict() = default;
  Dict(std::initializer_list<Entry> entries);

  size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }
  // Mutable iteration may change values, never keys.
  iterator begin() { return entries_.begin(); }
  iterator end() { return entries_.end(); }

  void reserve(size_t entries) { entries_.reserve(entries); }

  const Value* find(std::string_view key) const;
  Value* find(std::string_view key);
  Value get(std::string_view key) const;
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  // Replaces the value of an existing key in place, or appends the key.
  void set(std::string key, Value v);
  bool remove(std::string_view key);
  // The value under `key`, added as null when missing (a null value turns
  // into the container its first writer asks for), for building nested
  // containers in place: index.slot(d).slot(n).append(identity).
  Value& slot(std::string_view key);
  std::vector<std::string> keys() const;

  bool operator==(const Dict& other) const;  // same keys and values, any order
  // The entries' positions in key order (bytewise), for comparing
  // dictionaries whatever order their keys were written in.
  std::vector<uint32_t> positionsByKey() const;

 private:
  static constexpr size_t kIndexThreshold = 12;
  void rebuildIndex();
  // Where `key` is or would go in index_.
  std::vector<uint32_t>::const_iterator indexSlot(std::string_view key) const;

  std::vector<Entry> entries_;
  // Positions of the entries sorted by key, kept only once the dictionary is
  // large enough for a linear scan to cost more than a binary search: four
  // bytes an entry rather than a hash node.
  std::vector<uint32_t> index_;
};

inline Dict Value::dict() && { return dict(); }

// The members' descriptions in enumeration order joined by ", ". Sets
// enumerate sorted. Not a collection: its description.
std::string niceDescription(const Value& collection);


}  // namespace velmar

#endif  // VELMAR_BASE_VALUE_H_
