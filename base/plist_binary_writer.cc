// The binary ("bplist00") property-list writer.
//
// Objects are numbered in the order a walk of the value meets them, each
// container before its members, a dictionary's keys each just before its
// value. Equal booleans, integers, reals, dates and strings are written
// once and referenced wherever they occur (a key and a string value with
// the same text stay two objects, as keys and strings are told apart);
// data and containers are written once per occurrence. References and
// offsets take the fewest bytes (1 to 4, or 8) that hold the object count
// and the offset table's position; integers take 1, 2, 4 or 8 bytes;
// a real that a float holds exactly is written as a float. This is the
// layout the project's consumers have always read.
//
// Like the XML writer this recurses once per level of nesting.

#include <cfloat>
#include <cmath>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/plist_date.h"
#include "base/plist_io.h"
#include "base/plist_text.h"
#include "base/utf8.h"

namespace velmar {

namespace {

constexpr uint8_t kFalse = 0x08, kTrue = 0x09, kInteger = 0x10, kReal = 0x20, kDate = 0x33, kData = 0x40,
                  kAsciiString = 0x50, kUtf16String = 0x60, kArray = 0xA0, kDict = 0xD0;

// Bytes for an unsigned number in the offset table or as a reference.
uint8_t bytesFor(uint64_t v) {
  if (v < (uint64_t{1} << 8)) return 1;
  if (v < (uint64_t{1} << 16)) return 2;
  if (v < (uint64_t{1} << 24)) return 3;
  if (v < (uint64_t{1} << 32)) return 4;
  return 8;
}

uint64_t bitsOf(double d) {
  uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  return bits;
}

bool isAscii(std::string_view text) {
  for (char c : text)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

class BinaryWriter {
 public:
  std::string write(const Value& root) {
    if (root.isNull()) {
      add(Value(Dict()));
    } else {
      add(root);
    }
    refSize_ = bytesFor(objects_.size());
    std::vector<uint64_t> offsets;
    offsets.reserve(objects_.size());
    out_ = "bplist00";
    for (const Object& object : objects_) {
      offsets.push_back(out_.size());
      writeObject(object);
    }
    const uint64_t tableOffset = out_.size();
    const uint8_t offsetSize = bytesFor(tableOffset);
    for (uint64_t offset : offsets) bigEndian(offset, offsetSize);
    out_.append(6, '\0');
    out_ += static_cast<char>(offsetSize);
    out_ += static_cast<char>(refSize_);
    bigEndian(objects_.size(), 8);
    bigEndian(0, 8);  // the root is the first object
    bigEndian(tableOffset, 8);
    return std::move(out_);
  }

 private:
  enum class Kind : uint8_t { Bool, Integer, Real, Date, Data, String, Key, Array, Dict };

  struct Object {
    Kind kind = Kind::Bool;
    uint64_t bits = 0;       // bool, integer, real (its bits), date (its bits)
    std::string_view bytes;  // data, strings and keys
    uint32_t firstRef = 0;   // containers: their references in refs_
    uint32_t refCount = 0;
  };

  uint32_t newObject(Kind kind) {
    Object object;
    object.kind = kind;
    objects_.push_back(object);
    return static_cast<uint32_t>(objects_.size() - 1);
  }

  // The object for a scalar compared by its bits, written once.
  uint32_t shared(std::unordered_map<uint64_t, uint32_t>& seen, Kind kind, uint64_t bits) {
    auto [it, added] = seen.try_emplace(bits, 0);
    if (added) {
      it->second = newObject(kind);
      objects_[it->second].bits = bits;
    }
    return it->second;
  }

  uint32_t text(std::unordered_map<std::string_view, uint32_t>& seen, Kind kind, std::string_view text) {
    if (!isPropertyListText(text)) text = owned_.emplace_back(propertyListText(text));
    auto [it, added] = seen.try_emplace(text, 0);
    if (added) {
      it->second = newObject(kind);
      objects_[it->second].bytes = text;
    }
    return it->second;
  }

  // Numbers the value and everything in it; answers the value's number.
  uint32_t add(const Value& v) {
    switch (v.type()) {
      case Value::Type::Null:  // never met: containers leave nulls out, a null root is an empty dictionary
      case Value::Type::Bool:
        return shared(bools_, Kind::Bool, v.boolValue());
      case Value::Type::Integer:
        return shared(integers_, Kind::Integer, static_cast<uint64_t>(v.intValue()));
      case Value::Type::Real:
        return shared(reals_, Kind::Real, bitsOf(v.realValue()));
      case Value::Type::Date:
        return shared(dates_, Kind::Date, bitsOf(clampToPropertyListDate(v.dateValue().seconds)));
      case Value::Type::String:
        return text(strings_, Kind::String, v.str());
      case Value::Type::Data: {
        uint32_t index = newObject(Kind::Data);
        objects_[index].bytes = v.dataValue().bytes;
        return index;
      }
      case Value::Type::Array:
      case Value::Type::Set: {
        uint32_t index = newObject(Kind::Array);
        size_t base = scratch_.size();
        if (v.isSet()) {
          for (const Value& item : v.setItems()) scratch_.push_back(add(item));
        } else {
          for (const Value& item : v.arr())
            if (!item.isNull()) scratch_.push_back(add(item));
        }
        keepRefs(index, base, false);
        return index;
      }
      case Value::Type::Dict: {
        uint32_t index = newObject(Kind::Dict);
        size_t base = scratch_.size();
        for (const auto& [key, item] : v.dict()) {
          if (item.isNull()) continue;
          scratch_.push_back(text(keys_, Kind::Key, key));
          scratch_.push_back(add(item));
        }
        keepRefs(index, base, true);
        return index;
      }
    }
    return 0;
  }

  // Moves a container's references from scratch_ (from `base` on) to
  // refs_; a dictionary's pairs become its keys, then its values.
  void keepRefs(uint32_t index, size_t base, bool pairs) {
    Object& object = objects_[index];
    object.firstRef = static_cast<uint32_t>(refs_.size());
    object.refCount = static_cast<uint32_t>(scratch_.size() - base);
    if (pairs) {
      for (size_t i = base; i < scratch_.size(); i += 2) refs_.push_back(scratch_[i]);
      for (size_t i = base + 1; i < scratch_.size(); i += 2) refs_.push_back(scratch_[i]);
    } else {
      refs_.insert(refs_.end(), scratch_.begin() + static_cast<std::ptrdiff_t>(base), scratch_.end());
    }
    scratch_.resize(base);
  }

  void bigEndian(uint64_t v, int width) {
    for (int i = width - 1; i >= 0; --i) out_ += static_cast<char>((v >> (8 * i)) & 0xFF);
  }

  void integer(uint64_t v) {
    int width = v < (uint64_t{1} << 8) ? 1 : v < (uint64_t{1} << 16) ? 2 : v < (uint64_t{1} << 32) ? 4 : 8;
    static constexpr uint8_t kLog2[] = {0, 0, 1, 0, 2, 0, 0, 0, 3};
    out_ += static_cast<char>(kInteger | kLog2[width]);
    bigEndian(v, width);
  }

  // A marker whose low nibble holds a length below 15, or 15 and the length
  // as an integer object after it.
  void header(uint8_t marker, uint64_t length) {
    if (length < 15) {
      out_ += static_cast<char>(marker | length);
    } else {
      out_ += static_cast<char>(marker | 0x0F);
      integer(length);
    }
  }

  void real(double d) {
    const bool asFloat = (std::fabs(d) <= FLT_MAX || std::isinf(d)) && static_cast<double>(static_cast<float>(d)) == d;
    if (asFloat) {
      float f = static_cast<float>(d);
      uint32_t bits;
      std::memcpy(&bits, &f, sizeof bits);
      out_ += static_cast<char>(kReal | 2);
      bigEndian(bits, 4);
    } else {
      out_ += static_cast<char>(kReal | 3);
      bigEndian(bitsOf(d), 8);
    }
  }

  void string(std::string_view text) {
    if (isAscii(text)) {
      header(kAsciiString, text.size());
      out_.append(text);
      return;
    }
    utf16_.clear();
    for (size_t i = 0; i < text.size();) {
      Utf8Char c = decodeUtf8(text.substr(i));  // well-formed: the text was checked when numbered
      i += c.length;
      if (c.codePoint < 0x10000) {
        utf16_.push_back(static_cast<uint16_t>(c.codePoint));
      } else {
        utf16_.push_back(static_cast<uint16_t>(0xD800 + ((c.codePoint - 0x10000) >> 10)));
        utf16_.push_back(static_cast<uint16_t>(0xDC00 + ((c.codePoint - 0x10000) & 0x3FF)));
      }
    }
    header(kUtf16String, utf16_.size());
    for (uint16_t unit : utf16_) bigEndian(unit, 2);
  }

  void writeObject(const Object& object) {
    switch (object.kind) {
      case Kind::Bool:
        out_ += static_cast<char>(object.bits ? kTrue : kFalse);
        return;
      case Kind::Integer:
        integer(object.bits);
        return;
      case Kind::Real: {
        double d;
        std::memcpy(&d, &object.bits, sizeof d);
        real(d);
        return;
      }
      case Kind::Date:
        out_ += static_cast<char>(kDate);
        bigEndian(object.bits, 8);
        return;
      case Kind::Data:
        header(kData, object.bytes.size());
        out_.append(object.bytes);
        return;
      case Kind::String:
      case Kind::Key:
        string(object.bytes);
        return;
      case Kind::Array:
      case Kind::Dict: {
        header(object.kind == Kind::Array ? kArray : kDict,
               object.kind == Kind::Array ? object.refCount : object.refCount / 2);
        for (uint32_t i = 0; i < object.refCount; ++i) bigEndian(refs_[object.firstRef + i], refSize_);
        return;
      }
    }
  }

  std::vector<Object> objects_;
  std::vector<uint32_t> refs_;
  std::vector<uint32_t> scratch_;  // references of the containers being numbered
  std::unordered_map<uint64_t, uint32_t> bools_, integers_, reals_, dates_;
  std::unordered_map<std::string_view, uint32_t> strings_, keys_;
  std::deque<std::string> owned_;  // text replaced because a property list cannot hold it
  std::vector<uint16_t> utf16_;
  std::string out_;
  uint8_t refSize_ = 1;
};

}  // namespace

std::string toBinary(const Value& v) { return BinaryWriter().write(v); }

}  // namespace velmar
