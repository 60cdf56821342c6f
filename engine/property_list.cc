#include "engine/property_list.h"

#include "base/bundle_plist.h"
#include "base/plist_io.h"

namespace velmar {

Value mutableDictionaryAtPath(const std::string& path) { return readPropertyListFile(path); }

std::unique_ptr<PropertyList> PropertyList::propertyListLoadWithPath(const std::string& path) {
  auto list = std::make_unique<PropertyList>(path);
  if (!list->load()) return nullptr;
  return list;
}

bool PropertyList::load() {
  if (!plistPath_) return false;
  if (loaded_) return true;
  Value root;
  if (view_) {
    if (readBundlePropertyList(*view_, *plistPath_, &root) != 0) return false;
  } else {
    root = mutableDictionaryAtPath(*plistPath_);
  }
  if (root.isNull()) return false;
  entries_ = std::move(root);
  setLoaded(true);
  return true;
}

bool PropertyList::forceReload() {
  setLoaded(false);
  return load();
}

void PropertyList::setLoaded(bool loaded) {
  loaded_ = loaded;
  // Copy first: an observer may add or remove observers.
  auto observers = observers_;
  for (auto& [token, observer] : observers) observer(loaded);
}

int PropertyList::addLoadedObserver(LoadedObserver observer) {
  observers_.emplace_back(nextToken_, std::move(observer));
  return nextToken_++;
}

void PropertyList::removeLoadedObserver(int token) {
  std::erase_if(observers_, [token](const auto& o) { return o.first == token; });
}

}  // namespace velmar
