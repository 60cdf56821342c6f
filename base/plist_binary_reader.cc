// The binary ("bplist00") property-list reader.
//
// Layout: an 8-byte header, the objects, an offset table, and a 32-byte
// trailer giving the offset table's place, the width of its entries, the
// width of object references, the object count and the root object. Every
// object is read at most once: an object the file references from several
// places becomes one Value shared by all of them, so shared references cost
// nothing to read. What they would cost a consumer that walks the value as
// a tree (writing it out, comparing it) is counted and bounded.

#include <cmath>
#include <cstring>
#include <vector>

#include "base/plist_date.h"
#include "base/plist_readers.h"
#include "base/plist_text.h"
#include "base/utf8.h"

namespace velmar {

namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kTrailerSize = 32;
// A tree may hold this many nodes per byte of the file. Writers share equal
// scalars (one "Path" string for every key named Path), which costs at
// least one reference byte per use; only shared containers can go beyond.
constexpr uint64_t kTreeNodesPerByte = 16;
constexpr uint64_t kTreeNodesFloor = 4096;

uint64_t readBigEndian(const unsigned char* p, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v = (v << 8) | p[i];
  return v;
}

class BinaryReader {
 public:
  explicit BinaryReader(std::string_view bytes)
      : data_(reinterpret_cast<const unsigned char*>(bytes.data())), size_(bytes.size()) {}

  Value read() {
    if (size_ < kHeaderSize + kTrailerSize || std::memcmp(data_, "bplist00", 8) != 0) return Value();
    const unsigned char* trailer = data_ + size_ - kTrailerSize;
    offsetWidth_ = trailer[6];
    refWidth_ = trailer[7];
    uint64_t count = readBigEndian(trailer + 8, 8);
    uint64_t root = readBigEndian(trailer + 16, 8);
    uint64_t tableOffset = readBigEndian(trailer + 24, 8);
    if (offsetWidth_ < 1 || offsetWidth_ > 8 || refWidth_ < 1 || refWidth_ > 8) return Value();
    // Every object takes at least one byte between the header and the table.
    objectsEnd_ = size_ - kTrailerSize;
    if (tableOffset < kHeaderSize || tableOffset > objectsEnd_) return Value();
    if (count == 0 || root >= count || count > tableOffset - kHeaderSize) return Value();
    if (count > (objectsEnd_ - tableOffset) / offsetWidth_) return Value();
    objectsEnd_ = static_cast<size_t>(tableOffset);
    table_ = data_ + tableOffset;
    count_ = static_cast<size_t>(count);
    treeLimit_ = std::max<uint64_t>(kTreeNodesFloor, size_ * kTreeNodesPerByte);
    objects_.assign(count_, Value());
    state_.assign(count_, State::Unread);
    treeSize_.assign(count_, 0);
    return object(static_cast<size_t>(root), 0);
  }

 private:
  enum class State : uint8_t { Unread, Reading, Read };

  // The object's Value, null when it or anything under it is malformed.
  Value object(size_t index, int depth) {
    if (depth > kMaxPropertyListDepth) return Value();
    if (state_[index] == State::Read) return objects_[index];
    if (state_[index] == State::Reading) return Value();  // a cycle
    state_[index] = State::Reading;
    treeSize_[index] = 1;
    Value v = parse(index, depth);
    if (v.isNull()) return Value();
    state_[index] = State::Read;
    objects_[index] = v;
    return v;
  }

  // Adds a child's tree size to its parent's; false past the limit.
  bool countTree(size_t parent, size_t child) {
    treeSize_[parent] += treeSize_[child];
    return treeSize_[parent] <= treeLimit_;
  }

  Value parse(size_t index, int depth) {
    size_t offset = static_cast<size_t>(readBigEndian(table_ + index * offsetWidth_, offsetWidth_));
    if (offset < kHeaderSize || offset >= objectsEnd_) return Value();
    const unsigned char marker = data_[offset];
    const unsigned kind = marker >> 4, low = marker & 15;
    size_t pos = offset + 1;
    switch (kind) {
      case 0x0:
        if (low == 0x8 || low == 0x9) return Value(low == 0x9);
        return Value();
      case 0x1: {  // integer of 1, 2, 4, 8 or 16 bytes
        if (low > 4) return Value();
        size_t width = size_t{1} << low;
        if (!fits(pos, width)) return Value();
        // Of a 16-byte integer the low 8 bytes are the value.
        size_t skip = width > 8 ? width - 8 : 0;
        return Value(static_cast<long long>(readBigEndian(data_ + pos + skip, width - skip)));
      }
      case 0x2: {  // real
        if (low == 2 && fits(pos, 4)) {
          uint32_t bits = static_cast<uint32_t>(readBigEndian(data_ + pos, 4));
          float f;
          std::memcpy(&f, &bits, 4);
          return Value(static_cast<double>(f));
        }
        if (low == 3 && fits(pos, 8)) return Value(doubleAt(pos));
        return Value();
      }
      case 0x3: {  // date
        if (low != 3 || !fits(pos, 8)) return Value();
        const double seconds = doubleAt(pos);
        if (!isPropertyListDate(seconds)) return Value();
        return Value(Date{seconds});
      }
      case 0x4: {  // data
        size_t length;
        if (!lengthOf(low, &pos, &length) || !fits(pos, length)) return Value();
        return Value::makeData(std::string(reinterpret_cast<const char*>(data_ + pos), length));
      }
      case 0x5: {  // ASCII string
        size_t length;
        if (!lengthOf(low, &pos, &length) || !fits(pos, length)) return Value();
        std::string_view text(reinterpret_cast<const char*>(data_ + pos), length);
        if (!isAsciiText(text)) return Value();
        return Value(std::string(text));
      }
      case 0x6: {  // UTF-16 string, big-endian code units
        size_t units;
        if (!lengthOf(low, &pos, &units) || units > (objectsEnd_ - pos) / 2) return Value();
        std::string text;
        if (!utf16ToUtf8(data_ + pos, units, &text)) return Value();
        return Value(std::move(text));
      }
      case 0x8: {  // UID: the project reads it as its integer
        size_t width = low + size_t{1};
        if (width > 8 || !fits(pos, width)) return Value();
        return Value(static_cast<long long>(readBigEndian(data_ + pos, width)));
      }
      case 0xA:  // array
      case 0xB:  // ordered set
      case 0xC: {  // set: read as arrays, as the project always has
        size_t n;
        if (!lengthOf(low, &pos, &n) || n > (objectsEnd_ - pos) / refWidth_) return Value();
        Array items;
        items.reserve(n);
        for (size_t i = 0; i < n; ++i) {
          size_t child;
          if (!ref(pos + i * refWidth_, &child)) return Value();
          Value item = object(child, depth + 1);
          if (item.isNull() || !countTree(index, child)) return Value();
          items.push_back(std::move(item));
        }
        return Value(std::move(items));
      }
      case 0xD: {  // dictionary: n key references, then n value references
        size_t n;
        if (!lengthOf(low, &pos, &n) || n > (objectsEnd_ - pos) / refWidth_ / 2) return Value();
        Dict entries;
        for (size_t i = 0; i < n; ++i) {
          size_t keyIndex, valueIndex;
          if (!ref(pos + i * refWidth_, &keyIndex) || !ref(pos + (n + i) * refWidth_, &valueIndex))
            return Value();
          Value key = object(keyIndex, depth + 1);
          if (!key.isString()) return Value();
          Value item = object(valueIndex, depth + 1);
          if (item.isNull() || !countTree(index, valueIndex)) return Value();
          entries.set(key.str(), std::move(item));
        }
        return Value(std::move(entries));
      }
      default:
        return Value();
    }
  }

  bool fits(size_t pos, size_t length) const { return pos <= objectsEnd_ && length <= objectsEnd_ - pos; }

  double doubleAt(size_t pos) const {
    uint64_t bits = readBigEndian(data_ + pos, 8);
    double d;
    std::memcpy(&d, &bits, 8);
    return d;
  }

  // A length in the marker's low nibble, or (nibble 15) in the integer
  // object that follows it.
  bool lengthOf(unsigned low, size_t* pos, size_t* length) const {
    if (low != 15) {
      *length = low;
      return true;
    }
    if (!fits(*pos, 1)) return false;
    unsigned char marker = data_[*pos];
    if ((marker >> 4) != 0x1 || (marker & 15) > 3) return false;
    size_t width = size_t{1} << (marker & 15);
    if (!fits(*pos + 1, width)) return false;
    uint64_t v = readBigEndian(data_ + *pos + 1, width);
    if (v > size_) return false;
    *length = static_cast<size_t>(v);
    *pos += 1 + width;
    return true;
  }

  bool ref(size_t pos, size_t* index) const {
    if (!fits(pos, refWidth_)) return false;
    uint64_t v = readBigEndian(data_ + pos, refWidth_);
    if (v >= count_) return false;
    *index = static_cast<size_t>(v);
    return true;
  }

  // Text a property list may hold, in bytes below 0x80.
  static bool isAsciiText(std::string_view text) {
    for (char c : text) {
      auto byte = static_cast<unsigned char>(c);
      if (byte >= 0x80 || !isPropertyListCharacter(byte)) return false;
    }
    return true;
  }

  // False on an unpaired surrogate or a character a property list cannot
  // hold.
  static bool utf16ToUtf8(const unsigned char* p, size_t units, std::string* out) {
    out->reserve(units);
    for (size_t i = 0; i < units; ++i) {
      uint32_t cp = (uint32_t{p[2 * i]} << 8) | p[2 * i + 1];
      if (cp >= 0xD800 && cp <= 0xDBFF) {
        if (i + 1 >= units) return false;
        uint32_t lo = (uint32_t{p[2 * i + 2]} << 8) | p[2 * i + 3];
        if (lo < 0xDC00 || lo > 0xDFFF) return false;
        cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
        ++i;
      }
      if (!isPropertyListCharacter(cp)) return false;  // lone low surrogates among them
      appendUtf8(out, cp);
    }
    return true;
  }

  const unsigned char* data_;
  size_t size_;
  size_t objectsEnd_ = 0;
  const unsigned char* table_ = nullptr;
  size_t count_ = 0;
  size_t offsetWidth_ = 0, refWidth_ = 0;
  uint64_t treeLimit_ = 0;
  std::vector<Value> objects_;
  std::vector<State> state_;
  std::vector<uint64_t> treeSize_;
};

}  // namespace

Value parseBinaryPropertyList(std::string_view bytes) { return BinaryReader(bytes).read(); }

}  // namespace velmar
