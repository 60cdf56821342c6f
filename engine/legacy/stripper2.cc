#include "engine/legacy/stripper2.h"

#include <algorithm>
#include <cerrno>

#include "base/bundle_plist.h"
#include "engine/collection_extras.h"
#include "engine/log_object.h"

namespace velmar {

// ---- class operations --------------------------------------------------------

BuiltInTables& Stripper2::tables() {
  static BuiltInTables tables;
  static bool initialized = (tables.initialize(), true);
  (void)initialized;
  return tables;
}

std::vector<std::string> Stripper2::knownProducts() { return tables().knownProductNames(); }
std::vector<std::string> Stripper2::knownFactoryVariants() { return tables().knownFactoryVariantNames(); }
std::vector<std::string> Stripper2::allowedExcludeImage() { return tables().toolNames(); }

Value Stripper2::queryExcludeFileName(const std::string& toolName) const {
  return tables().queryExcludeFileName(toolName);
}

std::unique_ptr<Stripper2> Stripper2::stripperForPath(const std::string& path, const Value& products,
                                                      const Value& factoryVariants,
                                                      const Value& options) {
  auto engine = std::make_unique<Stripper2>();
  engine->initWithPath(path, products, factoryVariants, options);
  return engine;
}

std::unique_ptr<Stripper2> Stripper2::stripperForView(std::shared_ptr<BundleView> view,
                                                      const Value& products,
                                                      const Value& factoryVariants,
                                                      const Value& options) {
  auto engine = std::make_unique<Stripper2>();
  const std::string path = view->location();
  engine->useBundleView(std::move(view));
  engine->initWithPath(path, products, factoryVariants, options);
  return engine;
}

// ---- creation and strip --------------------------------------------------------

void Stripper2::initWithPath(const std::string& path, const Value& products, const Value& factoryVariants,
                             const Value& options) {
  bundleRoot_ = path;
  openBundleView(path);
  stripInfo_ = Value::makeDict();
  stripInfo_.set("bundleRoot", path);
  if (!products.isNull()) stripInfo_.set("products", products);
  if (!factoryVariants.isNull()) stripInfo_.set("FactoryVariants", factoryVariants);

  // The one listing of the bundle: every later "is it there?" is answered
  // from it, so a strip sees one consistent bundle.
  originalManifest_ = listTree(bundleView(), "");
  listed_ = std::unordered_set<std::string>(originalManifest_.begin(), originalManifest_.end());

  modifiedFilesList_ = Value::makeArray();
  strippedManifestsList_ = Value::makeArray();
  stripOptions_ = Value::makeDict();
  for (const auto& [key, value] : options.dict()) stripOptions_.set(key, value);
}

int32_t Stripper2::strip() {
  Status status = preanalyzeRequest();
  if (status && *status != 0) return *status;
  return performWork().value_or(0);
}

bool Stripper2::checkPersonalized() const { return boolForKey(stripOptions_, "checkPersonalized"); }

bool Stripper2::checkUnpersonalized() const {
  return boolForKey(stripOptions_, "checkUnpersonalized") ||
         boolForKey(stripOptions_, "useRestorePlistInsteadOfBuildManifest");
}

// ---- services ------------------------------------------------------------------------

Value Stripper2::mutableDictionaryAtSubpath(const std::string& subpath) {
  LogObject& log = LogObject::sharedLogger();
  if (!existsInView(bundleView(), subpath)) {
    if (verbose()) log.Log("!!! NOTE: \"%@\" not found.", subpath);
    return Value();
  }
  Value root;
  const int error = velmar::readBundlePropertyList(bundleView(), subpath, &root);
  if (error == EBADMSG) {
    if (verbose()) log.Log("!!! NOTE: cannot unserialize \"%@\" - %@.", subpath, "it is not a property list");
    return Value();
  }
  if (error != 0) {
    if (verbose()) log.Log("!!! NOTE: cannot read \"%@\".", subpath);
    return Value();
  }
  return root;
}

bool Stripper2::addSubpath(const std::string& subpath, Value& keepList) {
  if (!listed_.contains(subpath)) return true;
  for (std::string path = subpath; !path.empty(); path = deletingLastPathComponent(path))
    keepList.insert(Value(path));
  return false;
}

std::vector<std::string> Stripper2::submanifestStartingAt(const std::string& start, bool deep) {
  std::vector<std::string> result;
  if (start.empty()) {
    // The root is no entry of the listing; ask the bundle itself.
    if (deep) return listTree(bundleView(), "");
    return bundleNamesNow("");
  }
  if (!listed_.contains(start)) return result;
  result.push_back(start);
  const std::string prefix = start + "/";
  const size_t depth = std::count(start.begin(), start.end(), '/') + 1;
  for (const std::string& path : originalManifest_) {
    if (!path.starts_with(prefix)) continue;
    if (!deep && static_cast<size_t>(std::count(path.begin(), path.end(), '/')) + 1 > depth + 1) continue;
    result.push_back(path);
  }
  return result;
}

// ---- SupportHost -----------------------------------------------------------------

SupportRequest Stripper2::supportRequest(const Value& entry) const {
  SupportRequest request;
  request.deviceClasses = entry.get("workDeviceClassList");
  request.products = entry.get("workProductList");
  request.personalizationVariants = entry.get("workPersonalizationVariantList");
  request.reportScrubs = true;
  return request;
}

void Stripper2::keepPaths(const std::vector<std::string>& paths) {
  strippedManifestsList_.append(Value::stringArray(paths));
}

void Stripper2::unkeepPaths(const std::vector<std::string>& paths) {
  const std::unordered_set<std::string> gone(paths.begin(), paths.end());
  std::vector<std::string> left;
  for (const std::string& path : strippedManifest_.strings())
    if (!gone.contains(path)) left.push_back(path);
  strippedManifest_ = Value::stringArray(left);
}

void Stripper2::recordModifiedFile(const std::string& path, Value contents) {
  Value record = Value::makeDict();
  record.set(path, contents);
  modifiedFilesList_.append(record);
  // The cookie is left after the records were merged; the work list keeps
  // its order, so the late record joins the merged result here, silently.
  if (modifiedFilesMerged_ && modifiedFiles_.isDict() && !modifiedFiles_.contains(path))
    modifiedFiles_.set(path, std::move(contents));
}

}  // namespace velmar
