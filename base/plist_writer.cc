// Writing property lists (XML and binary) through libplist, whose output the
// project's consumers have always read.

#include <plist/plist.h>

#include <memory>
#include <string>

#include "base/plist_io.h"

namespace velmar {

namespace {

struct PlistDeleter {
  void operator()(plist_t p) const {
    if (p) plist_free(p);
  }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

plist_t toNode(const Value& v) {
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

PlistPtr rootNode(const Value& v) {
  plist_t n = toNode(v);
  return PlistPtr(n ? n : plist_new_dict());
}

}  // namespace

std::string toXml(const Value& v) {
  PlistPtr root = rootNode(v);
  char* xml = nullptr;
  uint32_t len = 0;
  plist_to_xml(root.get(), &xml, &len);
  std::string out(xml ? xml : "", xml ? len : 0);
  if (xml) plist_to_xml_free(xml);
  return out;
}

std::string toBinary(const Value& v) {
  PlistPtr root = rootNode(v);
  char* bin = nullptr;
  uint32_t len = 0;
  plist_to_bin(root.get(), &bin, &len);
  std::string out(bin ? bin : "", bin ? len : 0);
  if (bin) plist_to_bin_free(bin);
  return out;
}

}  // namespace velmar
