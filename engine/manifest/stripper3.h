// Stripper3: the manifest-driven engine.
//
// It takes the build manifest's build identities as the truth about a bundle:
// analysis narrows the class-wide products table to the bundle's device map,
// pre-analysis validates the request and builds the work list, the file-list
// steps pick the identities of the requested device classes and stations and
// keep what they name, and the closing steps rewrite the build manifest, the
// restore property list and the firmware maps, scrub the support folders and
// leave the cookie.
//
// The implementation is split by concern: stripper3.cc (creation, strip,
// results, class operations), analysis.cc, work_list.cc, file_list.cc,
// unpersonalized.cc, build_identities.cc, restore_plist.cc and
// support_steps.cc.

#ifndef VELMAR_ENGINE_MANIFEST_STRIPPER3_H_
#define VELMAR_ENGINE_MANIFEST_STRIPPER3_H_

#include <memory>
#include <string>
#include <vector>

#include "engine/builtin_tables.h"
#include "engine/property_list.h"
#include "engine/stripper.h"
#include "engine/support/support_host.h"
#include "base/value.h"

namespace velmar {

class Stripper3 : public Stripper, public SupportHost {
 public:
  // ---- class operations --------------------------------------------------
  static std::unique_ptr<Stripper3> stripperForPath(const std::string& path, const Value& products,
                                                    const Value& factoryVariants,
                                                    const Value& options);
  // The same for a bundle already open as a view (a folder or an image).
  static std::unique_ptr<Stripper3> stripperForView(std::shared_ptr<BundleView> view,
                                                    const Value& products,
                                                    const Value& factoryVariants,
                                                    const Value& options);
  // The class's own tables, built on first use.
  static BuiltInTables& tables();
  // Builds what is not built yet; calling it again changes nothing.
  static void initialize();
  static std::vector<std::string> knownProducts();
  static std::vector<std::string> knownFactoryVariants();
  static std::vector<std::string> allowedExcludeImage();

  Stripper3() = default;
  ~Stripper3() override;

  // ---- the engine interface ----------------------------------------------
  void initWithPath(const std::string& path, const Value& products, const Value& factoryVariants,
                    const Value& options) override;
  Value validFactoryVariants() override;
  Value validProducts() override;
  int32_t strip() override;
  Value bundleRoot() const override { return Value(bundleRoot_); }
  Value strippedManifest() override;
  Value modifiedFiles() override { return modifiedFilelist_; }

  Value queryExcludeFileName(const std::string& toolName) const;
  // The checkUnpersonalized option, or else useRestorePlistInsteadOfBuildManifest.
  bool checkUnpersonalized() const;

  // ---- bundle analysis ---------------------------------------------------
  std::vector<std::string> getknownProductsFrom(const Value& bundlePath);
  Value fetchKnownProductInfoFromBundle(const Value& bundlePath);

  // ---- request pre-analysis ----------------------------------------------
  Status preanalyzeRequest();
  Value factoryVariantsForDeviceClasses(const Value& deviceClasses);

  // ---- build identities and listing services ----------------------------
  void buildHierarchicalBuildIdentities();
  Value flattenBuildIdentities(const Value& index);
  std::vector<std::string> submanifestStartingAt(const std::string& folder, bool deep = true);
  void addSubpath(const std::string& path, Value& keepList);

  // ---- work-list steps (each takes its entry, answers a status) ---------
  int32_t buildFilelistFromBuildManifest(Value& entry);
  int32_t updateFilelistForUnpersonalizedInstall(Value& entry);
  int32_t stripBuildManifest(Value& entry);
  int32_t stripRestorePlist(Value& entry);
  // The support sub-steps, in their order. The shared steps themselves
  // (engine/support) are in the step table by name as well.
  int32_t stripCommonWork(Value& entry);

  // ---- fields, each readable and writable as its property ----------------
  const std::string& bundleRootPath() const { return bundleRoot_; }
  Value& stripInfo() { return stripInfo_; }
  Value& stripOptions() { return stripOptions_; }
  PropertyList& buildManifest() { return *buildManifest_; }
  PropertyList& restorePlist() { return *restorePlist_; }
  Value& originalBuildIdentities() { return originalBuildIdentities_; }
  Value& referenceVariants() { return referenceVariants_; }
  Value& strippedBuildIdentities() { return strippedBuildIdentities_; }
  Value& restoreImagesSet() { return restoreImagesSet_; }
  Value& kernelCachesSet() { return kernelCachesSet_; }
  Value& ramDisksSet() { return ramDisksSet_; }
  Value& diagsSet() { return diagsSet_; }
  Value& shallowPathContentsCache() { return shallowPathContentsCache_; }
  Value& copiedFilelist() { return copiedFilelist_; }
  Value& modifiedFilelist() { return modifiedFilelist_; }

 protected:
  Status performStep(std::string_view selector, Value& entry) override;

 private:
  // SupportHost
  SupportRequest supportRequest(const Value& entry) const override;
  std::string supportBundleRoot() const override { return bundleRoot_; }
  BundleView& supportBundleView() override { return bundleView(); }
  const Value& supportOptions() const override { return stripOptions_; }
  const Value& supportProductsTable() const override { return tables().knownProducts; }
  std::vector<std::string> listFolder(const std::string& folder, bool deep) override {
    return submanifestStartingAt(folder, deep);
  }
  bool bundleListingContains(const std::string& path) override;
  void keepPaths(const std::vector<std::string>& paths) override;
  void unkeepPaths(const std::vector<std::string>& paths) override;
  std::vector<std::string> keptPaths() const override;
  void recordModifiedFile(const std::string& path, Value contents) override;

  std::string bundleRoot_;
  Value stripInfo_ = Value::makeDict();
  Value stripOptions_ = Value::makeDict();
  std::unique_ptr<PropertyList> buildManifest_ = std::make_unique<PropertyList>();
  std::unique_ptr<PropertyList> restorePlist_ = std::make_unique<PropertyList>();
  int buildManifestObserver_ = 0;
  Value originalBuildIdentities_;
  Value referenceVariants_;
  Value strippedBuildIdentities_ = Value::makeDict();
  Value restoreImagesSet_ = Value::makeSet();
  Value kernelCachesSet_ = Value::makeSet();
  Value ramDisksSet_ = Value::makeSet();
  Value diagsSet_ = Value::makeSet();
  Value shallowPathContentsCache_ = Value::makeDict();
  Value copiedFilelist_ = Value::makeSet();
  Value modifiedFilelist_ = Value::makeDict();
};

// A device class's product: the name less a trailing "ap" or, failing that,
// "dev", either compared ignoring case.
std::string productNameForDeviceClass(const std::string& deviceClass);

}  // namespace velmar

#endif  // VELMAR_ENGINE_MANIFEST_STRIPPER3_H_
