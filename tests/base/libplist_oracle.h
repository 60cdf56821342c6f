// The reader the project used before it had its own: libplist parses the
// bytes into its tree, which is then converted into a Value. The tests read
// trusted files both ways and expect the same Value. Never give it hostile
// input: that is what the project's own readers exist for.

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

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_BASE_LIBPLIST_ORACLE_H_
