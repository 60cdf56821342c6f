// The reader and the writers the project used before it had its own:
// libplist parses the bytes into its tree, which is then converted into a
// Value, and writes a Value converted into its tree. The tests read trusted
// files both ways and expect the same Value, and write values libplist
// writes correctly both ways and expect the same bytes. Never give it
// hostile input, nor values it cannot write (text holding NUL or not UTF-8,
// dates beyond a 32-bit count of seconds or with a fraction of a second):
// that is what the project's own readers and writers exist for.

#ifndef VELMAR_TESTS_BASE_LIBPLIST_ORACLE_H_
#define VELMAR_TESTS_BASE_LIBPLIST_ORACLE_H_

#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "base/value.h"

namespace velmar::testing {

namespace oracle_detail {

inline Value fromNode(plist_t node) {
  if (!node) return Value();
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return Value(b != 0);
    }
    case PLIST_UINT: {
      uint64_t u = 0;
      plist_get_uint_val(node, &u);
      return Value(static_cast<long long>(u));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return Value(d);
    }
    case PLIST_STRING: {
      uint64_t len = 0;
      const char* p = plist_get_string_ptr(node, &len);
      return Value(std::string(p ? p : "", p ? len : 0));
    }
    case PLIST_DATA: {
      uint64_t len = 0;
      const char* p = plist_get_data_ptr(node, &len);
      return Value::makeData(std::string(p ? p : "", p ? len : 0));
    }
    case PLIST_DATE: {
      int32_t sec = 0, usec = 0;
      plist_get_date_val(node, &sec, &usec);
      return Value(Date{sec + usec / 1e6});
    }
    case PLIST_UID: {
      uint64_t u = 0;
      plist_get_uid_val(node, &u);
      return Value(static_cast<long long>(u));
    }
    case PLIST_ARRAY: {
      Array a;
      uint32_t n = plist_array_get_size(node);
      for (uint32_t i = 0; i < n; ++i) {
        Value item = fromNode(plist_array_get_item(node, i));
        if (!item.isNull()) a.push_back(std::move(item));
      }
      return Value(std::move(a));
    }
    case PLIST_DICT: {
      Dict d;
      plist_dict_iter it = nullptr;
      plist_dict_new_iter(node, &it);
      while (it) {
        char* key = nullptr;
        plist_t val = nullptr;
        plist_dict_next_item(node, it, &key, &val);
        if (!val) {
          free(key);
          break;
        }
        Value item = fromNode(val);
        if (key && !item.isNull()) d.set(key, std::move(item));
        free(key);
      }
      free(it);
      return Value(std::move(d));
    }
    default:
      return Value();
  }
}

struct PlistDeleter {
  void operator()(plist_t p) const {
    if (p) plist_free(p);
  }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

inline plist_t toNode(const Value& v) {
  switch (v.type()) {
    case Value::Type::Null: return nullptr;
    case Value::Type::Bool: return plist_new_bool(v.boolValue() ? 1 : 0);
    case Value::Type::Integer: return plist_new_uint(static_cast<uint64_t>(v.intValue()));
    case Value::Type::Real: return plist_new_real(v.realValue());
    case Value::Type::String: return plist_new_string(v.str().c_str());
    case Value::Type::Date: {
      double s = v.dateValue().seconds;
      auto sec = static_cast<int32_t>(s);
      auto usec = static_cast<int32_t>((s - sec) * 1e6);
      return plist_new_date(sec, usec);
    }
    case Value::Type::Data: {
      const std::string& b = v.dataValue().bytes;
      return plist_new_data(b.data(), b.size());
    }
    case Value::Type::Array:
    case Value::Type::Set: {
      plist_t a = plist_new_array();
      auto add = [&](const Value& item) {
        if (plist_t n = toNode(item)) plist_array_append_item(a, n);
      };
      if (v.isSet()) {
        for (const Value& item : v.setItems()) add(item);
      } else {
        for (const Value& item : v.arr()) add(item);
      }
      return a;
    }
    case Value::Type::Dict: {
      plist_t d = plist_new_dict();
      for (const auto& [k, item] : v.dict())
        if (plist_t n = toNode(item)) plist_dict_set_item(d, k.c_str(), n);
      return d;
    }
  }
  return nullptr;
}

inline PlistPtr rootNode(const Value& v) {
  plist_t n = toNode(v);
  return PlistPtr(n ? n : plist_new_dict());
}

}  // namespace oracle_detail

inline Value parseWithLibplist(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max()) return Value();
  plist_t root = nullptr;
  auto len = static_cast<uint32_t>(bytes.size());
  if (plist_is_binary(bytes.data(), len)) {
    plist_from_bin(bytes.data(), len, &root);
  } else {
    plist_from_xml(bytes.data(), len, &root);
  }
  Value v = oracle_detail::fromNode(root);
  if (root) plist_free(root);
  return v;
}

namespace oracle_detail {

// `v` written by one of libplist's writers, which hand back a buffer of
// their own that its own function frees.
inline std::string writeWith(const Value& v, void (*write)(plist_t, char**, uint32_t*),
                             void (*release)(char*)) {
  PlistPtr root = rootNode(v);
  char* bytes = nullptr;
  uint32_t len = 0;
  write(root.get(), &bytes, &len);
  std::string out(bytes ? bytes : "", bytes ? len : 0);
  if (bytes) release(bytes);
  return out;
}

}  // namespace oracle_detail

inline std::string toXmlWithLibplist(const Value& v) {
  return oracle_detail::writeWith(v, plist_to_xml, plist_to_xml_free);
}

inline std::string toBinaryWithLibplist(const Value& v) {
  return oracle_detail::writeWith(v, plist_to_bin, plist_to_bin_free);
}

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_BASE_LIBPLIST_ORACLE_H_
