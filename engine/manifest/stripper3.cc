#include "engine/manifest/stripper3.h"

#include <algorithm>

#include "engine/collection_extras.h"
#include "engine/log_object.h"
#include "engine/support/common_work.h"
#include "engine/support/cookie.h"
#include "engine/support/firmware_maps.h"
#include "engine/support/folder_scrubs.h"
#include "engine/support/invisibles.h"
#include "engine/support/restore_tools.h"

namespace velmar {

namespace {

const StepTable<Stripper3>& stepTable() {
  static const StepTable<Stripper3> table = {
      {"buildFilelistFromBuildManifest:", &Stripper3::buildFilelistFromBuildManifest},
      {"updateFilelistForUnpersonalizedInstall:", &Stripper3::updateFilelistForUnpersonalizedInstall},
      {"stripBuildManifest:", &Stripper3::stripBuildManifest},
      {"stripRestorePlist:", &Stripper3::stripRestorePlist},
      {"stripCommonWork:", &Stripper3::stripCommonWork},
      {"stripRestoreFirmwareDeviceMapDotTxt:", &supportWorkStep<stripRestoreFirmwareDeviceMapDotTxt>},
      {"stripRestoreFirmwareDeviceMapDotPlist:", &supportWorkStep<stripRestoreFirmwareDeviceMapDotPlist>},
      {"stripRestoreFirmwareTargetMapDotTxt:", &supportWorkStep<stripRestoreFirmwareTargetMapDotTxt>},
      {"stripRestoreFirmwarePlatformKeysDotPlist:", &supportWorkStep<stripRestoreFirmwarePlatformKeysDotPlist>},
      {"stripRPKGs:", &supportWorkStep<stripRPKGs>},
      {"stripDebugFolder:", &supportWorkStep<stripDebugFolder>},
      {"stripHomeDiags:", &supportWorkStep<stripHomeDiags>},
      {"stripSDKs:", &supportWorkStep<stripSDKs>},
      {"stripBundleImages:", &supportWorkStep<stripBundleImages>},
      {"stripRestoreTools:", &supportWorkStep<stripRestoreTools>},
      {"stripFactoryDiskImage:", &supportWorkStep<stripFactoryDiskImage>},
      {"stripInvisibles:", &supportWorkStep<stripInvisibles>},
      {"leaveCookie:", &supportWorkStep<leaveCookie>},
  };
  return table;
}

}  // namespace

// ---- class operations --------------------------------------------------------

BuiltInTables& Stripper3::tables() {
  static BuiltInTables tables;
  static bool initialized = (tables.initialize(), true);
  (void)initialized;
  return tables;
}

void Stripper3::initialize() { tables().initialize(); }

std::vector<std::string> Stripper3::knownProducts() { return tables().knownProductNames(); }
std::vector<std::string> Stripper3::knownFactoryVariants() { return tables().knownFactoryVariantNames(); }
std::vector<std::string> Stripper3::allowedExcludeImage() { return tables().toolNames(); }

std::unique_ptr<Stripper3> Stripper3::stripperForPath(const std::string& path, const Value& products,
                                                      const Value& factoryVariants,
                                                      const Value& options) {
  auto engine = std::make_unique<Stripper3>();
  engine->initWithPath(path, products, factoryVariants, options);
  return engine;
}

std::unique_ptr<Stripper3> Stripper3::stripperForView(std::shared_ptr<BundleView> view,
                                                      const Value& products,
                                                      const Value& factoryVariants,
                                                      const Value& options) {
  auto engine = std::make_unique<Stripper3>();
  const std::string path = view->location();
  engine->useBundleView(std::move(view));
  engine->initWithPath(path, products, factoryVariants, options);
  return engine;
}

Value Stripper3::queryExcludeFileName(const std::string& toolName) const {
  return tables().queryExcludeFileName(toolName);
}

// ---- creation and strip --------------------------------------------------------

void Stripper3::initWithPath(const std::string& path, const Value& products,
                             const Value& factoryVariants, const Value& options) {
  bundleRoot_ = path;
  openBundleView(path);
  stripInfo_ = Value::makeDict();
  stripInfo_.set("BundleRoot", path);
  if (!products.isNull()) stripInfo_.set("Products", products);
  if (!factoryVariants.isNull()) stripInfo_.set("FactoryVariants", factoryVariants);

  stripOptions_ = Value::makeDict();
  for (const auto& [key, value] : options.dict()) stripOptions_.set(key, value);

  buildManifest_ = std::make_unique<PropertyList>(&bundleView(), "Restore/BuildManifest.plist");
  // The identity index is built the moment the manifest first loads,
  // whichever question triggers the load.
  buildManifestObserver_ = buildManifest_->addLoadedObserver([this](bool loaded) {
    if (loaded) buildHierarchicalBuildIdentities();
  });
  restorePlist_ = std::make_unique<PropertyList>(&bundleView(), "Restore/Restore.plist");

  strippedBuildIdentities_ = Value::makeDict();
  restoreImagesSet_ = Value::makeSet();
  kernelCachesSet_ = Value::makeSet();
  ramDisksSet_ = Value::makeSet();
  diagsSet_ = Value::makeSet();
  shallowPathContentsCache_ = Value::makeDict();
  copiedFilelist_ = Value::makeSet();
  modifiedFilelist_ = Value::makeDict();

  getknownProductsFrom(Value(bundleRoot_));
}

Stripper3::~Stripper3() {
  if (buildManifest_ && buildManifestObserver_)
    buildManifest_->removeLoadedObserver(buildManifestObserver_);
}

int32_t Stripper3::strip() {
  LogObject& log = LogObject::sharedLogger();
  if (!buildManifest_->load()) {
    log.Log("XXX ERROR: BuildManifest.plist cannot be read.");
    return 1;
  }
  if (!restorePlist_->load()) {
    log.Log("XXX ERROR: Restore.plist cannot be read.");
    return 1;
  }
  Status status = preanalyzeRequest();
  if (status && *status != 0) return *status;
  return performWork().value_or(0);
}

Status Stripper3::performStep(std::string_view selector, Value& entry) {
  return stepTable().perform(*this, selector, entry);
}

bool Stripper3::checkUnpersonalized() const {
  return boolForKey(stripOptions_, "checkUnpersonalized") ||
         boolForKey(stripOptions_, "useRestorePlistInsteadOfBuildManifest");
}

Value Stripper3::strippedManifest() {
  std::vector<std::string> paths = copiedFilelist_.strings();
  std::sort(paths.begin(), paths.end(),
            [](const std::string& a, const std::string& b) { return caseInsensitiveLess(a, b); });
  return Value::stringArray(paths);
}

// ---- SupportHost -----------------------------------------------------------------

bool Stripper3::bundleListingContains(const std::string& path) {
  std::vector<std::string> all = submanifestStartingAt("", true);
  return std::find(all.begin(), all.end(), path) != all.end();
}

void Stripper3::keepPaths(const std::vector<std::string>& paths) {
  for (const std::string& p : paths) copiedFilelist_.insert(Value(p));
}

void Stripper3::unkeepPaths(const std::vector<std::string>& paths) {
  auto& set = copiedFilelist_.setMut();
  for (const std::string& p : paths) set.erase(Value(p));
}

std::vector<std::string> Stripper3::keptPaths() const { return copiedFilelist_.strings(); }

void Stripper3::recordModifiedFile(const std::string& path, Value contents) {
  modifiedFilelist_.set(path, std::move(contents));
}

}  // namespace velmar
