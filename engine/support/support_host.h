// SupportHost: what the support steps (map files, folder scrubs, restore
// tools, invisibles, cookie) need from the engine that runs them.
//
// Both engines run the same support steps; they differ in where a kept path
// or a rewritten file goes (the manifest engine adds to one set and one
// dictionary, the legacy engine appends partial lists that it merges at the
// end) and in how their work entries spell the request. The host answers
// those differences; the steps never ask which engine they serve.

#ifndef VELMAR_ENGINE_SUPPORT_SUPPORT_HOST_H_
#define VELMAR_ENGINE_SUPPORT_SUPPORT_HOST_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "engine/property_list.h"
#include "engine/support/work_entry.h"
#include "base/value.h"

namespace velmar {

class SupportHost {
 public:
  virtual ~SupportHost() = default;

  // The request of a "Strip support files" entry, read the engine's way.
  virtual SupportRequest supportRequest(const Value& entry) const = 0;

  virtual std::string supportBundleRoot() const = 0;
  // The bundle's view; the steps read the bundle only through the questions
  // below, which ask it.
  virtual BundleView& supportBundleView() = 0;

  // Whether something exists at the bundle path (links followed while they
  // stay inside).
  virtual bool bundleFileExists(const std::string& path);
  // The target text of the link at the bundle path; nothing for a non-link.
  virtual std::optional<std::string> bundleLinkTarget(const std::string& path);
  // The names directly in the bundle folder as it is now, sorted by bytes.
  virtual std::vector<std::string> bundleNamesNow(const std::string& folder);
  // The whole regular file at the bundle path, at most `limit` bytes: 0 or
  // an errno value.
  virtual int readBundleFile(const std::string& path, size_t limit, std::string* bytes);
  // The engine's options dictionary.
  virtual const Value& supportOptions() const = 0;
  // The engine class's known-products table.
  virtual const Value& supportProductsTable() const = 0;

  // Bundle-relative paths under `folder` ("" is the bundle root): direct
  // entries when !deep, everything below when deep. The legacy engine's
  // listing also begins with the folder itself; the steps allow for both.
  virtual std::vector<std::string> listFolder(const std::string& folder, bool deep) = 0;
  // Whether the bundle's complete listing holds `path`.
  virtual bool bundleListingContains(const std::string& path) = 0;
  // The property list at a bundle path, or null when it cannot be loaded.
  // The legacy engine reads through its own reader, which notes failures in
  // verbose mode.
  virtual Value readBundlePropertyList(const std::string& path) {
    PropertyList list(&supportBundleView(), path);
    return list.load() ? list.entries() : Value();
  }

  // Keeps the paths, in order. The legacy engine keeps one partial list per
  // call, so an empty call still records an empty list there.
  virtual void keepPaths(const std::vector<std::string>& paths) = 0;
  // Removes paths from what has been kept. The legacy engine answers and
  // edits its merged keep list here, so its invisibles scrub runs after the
  // merge.
  virtual void unkeepPaths(const std::vector<std::string>& paths) = 0;
  virtual std::vector<std::string> keptPaths() const = 0;
  // Records new contents for a bundle path.
  virtual void recordModifiedFile(const std::string& path, Value contents) = 0;
};

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_SUPPORT_HOST_H_
