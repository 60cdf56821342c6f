#include "base/value_snapshot.h"

#include <string.h>

#include <algorithm>
#include <vector>

#include "base/plist_readers.h"
#include "base/utf8.h"

namespace velmar {

namespace {

// What a record holds. Numbers are eight little-endian bytes (reals and
// dates as their bit pattern, so every value comes back exactly); lengths,
// counts and record numbers are LEB128.
enum Tag : uint8_t {
  kFalse = 0,
  kTrue = 1,
  kInteger = 2,
  kReal = 3,
  kString = 4,
  kDate = 5,
  kData = 6,
  kArray = 7,
  kDict = 8,  // pairs of (key record, which is a string; value record)
};

void putVarint(uint64_t v, std::string* out) {
  char bytes[10];
  size_t n = 0;
  while (v >= 0x80) {
    bytes[n++] = static_cast<char>((v & 0x7f) | 0x80);
    v >>= 7;
  }
  bytes[n++] = static_cast<char>(v);
  out->append(bytes, n);
}

void putFixed(uint64_t v, std::string* out) {
  char bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<char>((v >> (8 * i)) & 0xff);
  out->append(bytes, 8);
}

uint64_t bitsOf(double d) {
  uint64_t bits;
  memcpy(&bits, &d, sizeof bits);
  return bits;
}

// Most of a manifest's text is ASCII, which is checked eight bytes at a time.
bool isValidText(std::string_view bytes) {
  size_t i = 0;
  uint64_t high = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    uint64_t word;
    memcpy(&word, bytes.data() + i, 8);
    high |= word;
  }
  for (; i < bytes.size(); ++i) high |= static_cast<unsigned char>(bytes[i]);
  return (high & 0x8080808080808080ull) == 0 || isValidUtf8(bytes);
}

double doubleOf(uint64_t bits) {
  double d;
  memcpy(&d, &bits, sizeof d);
  return d;
}

uint64_t hashOf(std::string_view bytes) {
  uint64_t h = 0x9e3779b97f4a7c15ull ^ bytes.size();
  size_t i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    uint64_t word;
    memcpy(&word, bytes.data() + i, 8);
    h = (h ^ word) * 0xff51afd7ed558ccdull;
    h ^= h >> 32;
  }
  for (; i < bytes.size(); ++i) h = (h ^ static_cast<unsigned char>(bytes[i])) * 0x100000001b3ull;
  return h ^ (h >> 29);
}

// Writes records in post-order (children first) and folds equal ones: each
// record's bytes are looked up among those already written, in an
// open-addressing table that points into the output, so folding costs no
// allocation per value.
class Encoder {
 public:
  explicit Encoder(size_t maxBytes) : maxBytes_(maxBytes) { table_.resize(1024); }

  bool run(const Value& root, std::string* out) {
    uint64_t id;
    if (!add(root, 0, &id)) return false;
    out->clear();
    putVarint(count_, out);
    if (out->size() + records_.size() > maxBytes_) return false;
    out->append(records_);
    return true;
  }

 private:
  struct Slot {
    uint64_t hash = 0;
    uint32_t offset = 0;
    uint32_t length = 0;
    uint64_t id = UINT64_MAX;  // empty
  };

  // Appends the record of `v` unless an equal one exists; *id is its number.
  bool add(const Value& v, int depth, uint64_t* id) {
    if (depth > kMaxPropertyListDepth) return false;
    switch (v.type()) {
      case Value::Type::Bool:
        record_.assign(1, static_cast<char>(v.boolValue() ? kTrue : kFalse));
        break;
      case Value::Type::Integer:
        record_.assign(1, static_cast<char>(kInteger));
        putFixed(static_cast<uint64_t>(v.intValue()), &record_);
        break;
      case Value::Type::Real:
        record_.assign(1, static_cast<char>(kReal));
        putFixed(bitsOf(v.realValue()), &record_);
        break;
      case Value::Type::String:
        return addString(v.str(), id);
      case Value::Type::Date:
        record_.assign(1, static_cast<char>(kDate));
        putFixed(bitsOf(v.dateValue().seconds), &record_);
        break;
      case Value::Type::Data: {
        const std::string& bytes = v.dataValue().bytes;
        record_.assign(1, static_cast<char>(kData));
        putVarint(bytes.size(), &record_);
        record_.append(bytes);
        break;
      }
      case Value::Type::Array: {
        // The members' numbers wait on a stack shared by every level.
        const size_t base = pending_.size();
        for (const Value& member : v.arr()) {
          uint64_t m;
          if (!add(member, depth + 1, &m)) return false;
          pending_.push_back(m);
        }
        record_.assign(1, static_cast<char>(kArray));
        putVarint(pending_.size() - base, &record_);
        for (size_t i = base; i < pending_.size(); ++i) putVarint(pending_[i], &record_);
        pending_.resize(base);
        break;
      }
      case Value::Type::Dict: {
        const size_t base = pending_.size();
        for (const auto& [key, member] : v.dict()) {
          uint64_t k, m;
          if (!addKey(key, &k) || !add(member, depth + 1, &m)) return false;
          pending_.push_back(k);
          pending_.push_back(m);
        }
        record_.assign(1, static_cast<char>(kDict));
        putVarint((pending_.size() - base) / 2, &record_);
        for (size_t i = base; i < pending_.size(); ++i) putVarint(pending_[i], &record_);
        pending_.resize(base);
        break;
      }
      case Value::Type::Null:
      case Value::Type::Set:
        return false;  // nothing a property list holds
    }
    return intern(id);
  }

  bool addString(const std::string& text, uint64_t* id) {
    record_.assign(1, static_cast<char>(kString));
    putVarint(text.size(), &record_);
    record_.append(text);
    return intern(id);
  }

  // A manifest's hundred thousand keys are a few dozen names: a small
  // cache of them stays in the processor's cache, where the table does not.
  bool addKey(const std::string& key, uint64_t* id) {
    size_t h = key.size();
    if (!key.empty()) h = h * 31 + static_cast<unsigned char>(key.front()) * 7 +
                          static_cast<unsigned char>(key.back()) + static_cast<unsigned char>(key[key.size() / 2]) * 131;
    KeySlot& slot = keys_[h % kKeySlots];
    if (slot.id != UINT64_MAX && slot.key == key) {
      *id = slot.id;
      return true;
    }
    if (!addString(key, id)) return false;
    slot.key = key;
    slot.id = *id;
    return true;
  }

  // Finds or writes the record in record_.
  bool intern(uint64_t* id) {
    const uint64_t hash = hashOf(record_);
    const size_t mask = table_.size() - 1;
    size_t at = hash & mask;
    for (; table_[at].id != UINT64_MAX; at = (at + 1) & mask) {
      const Slot& slot = table_[at];
      if (slot.hash == hash && slot.length == record_.size() &&
          memcmp(records_.data() + slot.offset, record_.data(), record_.size()) == 0) {
        *id = slot.id;
        return true;
      }
    }
    if (records_.size() + record_.size() > maxBytes_ || records_.size() + record_.size() > UINT32_MAX)
      return false;
    table_[at] = {hash, static_cast<uint32_t>(records_.size()), static_cast<uint32_t>(record_.size()),
                  count_};
    records_.append(record_);
    *id = count_++;
    if (count_ * 2 > table_.size()) grow();
    return true;
  }

  void grow() {
    std::vector<Slot> old(table_.size() * 2);
    old.swap(table_);
    const size_t mask = table_.size() - 1;
    for (const Slot& slot : old) {
      if (slot.id == UINT64_MAX) continue;
      size_t at = slot.hash & mask;
      while (table_[at].id != UINT64_MAX) at = (at + 1) & mask;
      table_[at] = slot;
    }
  }

  struct KeySlot {
    std::string key;
    uint64_t id = UINT64_MAX;
  };
  static constexpr size_t kKeySlots = 251;

  size_t maxBytes_;
  uint64_t count_ = 0;
  std::vector<KeySlot> keys_ = std::vector<KeySlot>(kKeySlots);
  std::string records_;
  std::string record_;  // the record being made
  std::vector<uint64_t> pending_;
  std::vector<Slot> table_;
};

class Decoder {
 public:
  Decoder(std::string_view bytes, uint64_t maxTreeNodes)
      : p_(reinterpret_cast<const unsigned char*>(bytes.data())),
        end_(p_ + bytes.size()),
        maxTreeNodes_(maxTreeNodes) {}

  Value run() {
    uint64_t count;
    // Every record takes at least one byte.
    if (!varint(&count) || count == 0 || count > remaining()) return Value();
    values_.reserve(count);
    unfolded_.reserve(count);
    depth_.reserve(count);
    for (uint64_t i = 0; i < count; ++i)
      if (!record()) return Value();
    if (p_ != end_) return Value();
    return values_.back();
  }

 private:
  bool record() {
    if (p_ == end_) return false;
    const uint8_t tag = *p_++;
    uint64_t unfolded = 1;
    int depth = 0;
    Value v;
    switch (tag) {
      case kFalse:
      case kTrue:
        v = Value(tag == kTrue);
        break;
      case kInteger:
      case kReal:
      case kDate: {
        uint64_t bits;
        if (!fixed(&bits)) return false;
        if (tag == kInteger) v = Value(static_cast<long long>(bits));
        else if (tag == kReal) v = Value(doubleOf(bits));
        else v = Value(Date{doubleOf(bits)});
        break;
      }
      case kString:
      case kData: {
        std::string_view bytes;
        if (!span(&bytes)) return false;
        if (tag == kString) {
          if (!isValidText(bytes)) return false;
          v = Value(std::string(bytes));
        } else {
          v = Value::makeData(std::string(bytes));
        }
        break;
      }
      case kArray: {
        uint64_t n;
        if (!varint(&n) || n > remaining()) return false;
        Array members;
        members.reserve(n);
        for (uint64_t i = 0; i < n; ++i) {
          uint64_t m;
          if (!reference(&m)) return false;
          members.push_back(values_[m]);
          unfolded = std::min(unfolded + unfolded_[m], maxTreeNodes_ + 1);
          depth = std::max(depth, depth_[m] + 1);
        }
        v = Value(std::move(members));
        break;
      }
      case kDict: {
        uint64_t n;
        if (!varint(&n) || n > remaining() / 2) return false;
        Dict members;
        members.reserve(n);
        for (uint64_t i = 0; i < n; ++i) {
          uint64_t k, m;
          if (!reference(&k) || !reference(&m) || !values_[k].isString()) return false;
          const std::string& key = values_[k].str();
          // No key a reader accepts holds NUL.
          if (memchr(key.data(), 0, key.size())) return false;
          members.set(key, values_[m]);
          unfolded = std::min(unfolded + unfolded_[m], maxTreeNodes_ + 1);
          depth = std::max(depth, depth_[m] + 1);
        }
        v = Value(std::move(members));
        break;
      }
      default:
        return false;
    }
    // Shared records may unfold into far more values than the snapshot
    // holds; whoever walks the tree walks all of them.
    if (unfolded > maxTreeNodes_ || depth > kMaxPropertyListDepth) return false;
    values_.push_back(std::move(v));
    unfolded_.push_back(unfolded);
    depth_.push_back(depth);
    return true;
  }

  size_t remaining() const { return static_cast<size_t>(end_ - p_); }

  bool varint(uint64_t* v) {
    uint64_t result = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      if (p_ == end_) return false;
      const uint8_t byte = *p_++;
      if (shift == 63 && byte > 1) return false;
      result |= static_cast<uint64_t>(byte & 0x7f) << shift;
      if (!(byte & 0x80)) {
        *v = result;
        return true;
      }
    }
    return false;
  }

  bool fixed(uint64_t* v) {
    if (remaining() < 8) return false;
    uint64_t result = 0;
    for (int i = 0; i < 8; ++i) result |= static_cast<uint64_t>(p_[i]) << (8 * i);
    p_ += 8;
    *v = result;
    return true;
  }

  bool span(std::string_view* bytes) {
    uint64_t n;
    if (!varint(&n) || n > remaining()) return false;
    *bytes = std::string_view(reinterpret_cast<const char*>(p_), static_cast<size_t>(n));
    p_ += n;
    return true;
  }

  // A record number, which must name an earlier record: no cycles.
  bool reference(uint64_t* id) { return varint(id) && *id < values_.size(); }

  const unsigned char* p_;
  const unsigned char* end_;
  uint64_t maxTreeNodes_;
  std::vector<Value> values_;
  std::vector<uint64_t> unfolded_;
  std::vector<int> depth_;
};

}  // namespace

bool encodeSnapshot(const Value& root, size_t maxBytes, std::string* out) {
  return Encoder(maxBytes).run(root, out);
}

Value decodeSnapshot(std::string_view bytes, uint64_t maxTreeNodes) {
  return Decoder(bytes, maxTreeNodes).run();
}

}  // namespace velmar
