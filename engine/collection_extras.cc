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

}  // namespace velmar
