// PropertyList: a property-list file loaded on demand.
//
// The first successful load() reads the file; later calls answer from memory
// until forceReload(). Owners may watch `loaded` change: the manifest engine
// builds its identity index the moment its build manifest first loads,
// whoever triggers the load.

#ifndef VELMAR_ENGINE_PROPERTY_LIST_H_
#define VELMAR_ENGINE_PROPERTY_LIST_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/bundle_view.h"
#include "base/value.h"

namespace velmar {

class PropertyList {
 public:
  using LoadedObserver = std::function<void(bool newValue)>;

  PropertyList() = default;
  // A file named by an absolute path.
  explicit PropertyList(std::optional<std::string> path) : plistPath_(std::move(path)) {}
  // A bundle file, read through the bundle's view (which must outlive this).
  PropertyList(BundleView* view, std::string path) : plistPath_(std::move(path)), view_(view) {}
  PropertyList(const PropertyList&) = delete;
  PropertyList& operator=(const PropertyList&) = delete;

  // A loaded instance, or nullptr when the file cannot be loaded.
  static std::unique_ptr<PropertyList> propertyListLoadWithPath(const std::string& path);

  bool load();
  bool forceReload();

  bool loaded() const { return loaded_; }
  void setLoaded(bool loaded);

  const std::optional<std::string>& plistPath() const { return plistPath_; }
  Value& entries() { return entries_; }
  const Value& entries() const { return entries_; }
  void setEntries(Value v) { entries_ = std::move(v); }

  // Observers of `loaded`, told the new value on every set. The token
  // removes the observer again.
  int addLoadedObserver(LoadedObserver observer);
  void removeLoadedObserver(int token);

 private:
  std::optional<std::string> plistPath_;
  BundleView* view_ = nullptr;
  bool loaded_ = false;
  Value entries_;
  std::vector<std::pair<int, LoadedObserver>> observers_;
  int nextToken_ = 1;
};

// The parsed root of the file at `path` (a dictionary, or whatever the root
// is), or null when there is no such file or it cannot be read or parsed.
Value mutableDictionaryAtPath(const std::string& path);

}  // namespace velmar

#endif  // VELMAR_ENGINE_PROPERTY_LIST_H_
