// Stripper2: the legacy engine, for bundles whose Restore.plist still
// describes the firmware per platform and per target, with or without a
// build manifest.
//
// Set-up lists the whole bundle once into originalManifest; every later
// question about what exists is answered from that list. Each restore step
// leaves its own keep list and modified-files record; the merge steps fold
// them into the two results at the end, and the support steps run on the
// shared code of engine/support with this engine as their host.
//
// The implementation is split by concern: stripper2.cc (creation, strip,
// class operations, services), analysis.cc (validity queries and the work
// list), hexloom_steps.cc (steps that follow the build manifest),
// restore_plist_steps.cc (steps that follow the restore property list),
// merge.cc and support_steps.cc.

#ifndef VELMAR_ENGINE_LEGACY_STRIPPER2_H_
#define VELMAR_ENGINE_LEGACY_STRIPPER2_H_

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "engine/builtin_tables.h"
#include "engine/stripper.h"
#include "engine/support/support_host.h"
#include "base/value.h"

namespace velmar {

class Stripper2 : public Stripper, public SupportHost {
 public:
  // ---- class operations --------------------------------------------------
  static std::unique_ptr<Stripper2> stripperForPath(const std::string& path, const Value& products,
                                                    const Value& factoryVariants,
                                                    const Value& options);
  static std::unique_ptr<Stripper2> stripperForView(std::shared_ptr<BundleView> view,
                                                    const Value& products,
                                                    const Value& factoryVariants,
                                                    const Value& options);
  // The class's own copy of the built-in tables; this engine never narrows
  // them.
  static BuiltInTables& tables();
  static std::vector<std::string> knownProducts();
  static std::vector<std::string> knownFactoryVariants();
  static std::vector<std::string> allowedExcludeImage();

  Stripper2() = default;

  // ---- the engine interface ----------------------------------------------
  void initWithPath(const std::string& path, const Value& products, const Value& factoryVariants,
                    const Value& options) override;
  Value validFactoryVariants() override;
  Value validProducts() override;
  int32_t strip() override;
  Value bundleRoot() const override { return Value(bundleRoot_); }
  Value strippedManifest() override { return strippedManifest_; }
  Value modifiedFiles() override { return modifiedFiles_; }

  Value queryExcludeFileName(const std::string& toolName) const;

  // ---- pre-analysis --------------------------------------------------------
  Status preanalyzeRequest();
  // The stations of the identities whose device class is in `deviceClasses`,
  // one per matching identity and station, duplicates kept.
  Value factoryVariantsForDeviceClasses(const Value& deviceClasses, const Value& buildManifest);

  // ---- modes and services ----------------------------------------------------
  bool checkPersonalized() const;
  // The checkUnpersonalized option, or useRestorePlistInsteadOfBuildManifest.
  bool checkUnpersonalized() const;
  // The property list at the bundle path, read afresh, or null (with a note
  // in verbose mode).
  Value mutableDictionaryAtSubpath(const std::string& subpath);
  // Adds the path and every folder above it to `keepList` (a set) when the
  // bundle held it at set-up. Answers true when it did NOT (nothing added):
  // callers read true as "missing".
  bool addSubpath(const std::string& subpath, Value& keepList);
  // The start path followed by every listed path below it (deep) or by its
  // direct children; empty when the bundle did not hold the start.
  std::vector<std::string> submanifestStartingAt(const std::string& start, bool deep = true);

  // ---- work-list steps (each takes its entry, answers a status) ---------
  int32_t stripRestoreUsingHexloom(Value& entry);
  int32_t stripRestorePlistUsingHexloom(Value& entry);
  int32_t stripRestoreWithoutHexloom(Value& entry);
  int32_t stripBuildManifestWithoutHexloom(Value& entry);
  int32_t stripCommonWork(Value& entry);
  int32_t mergeStrippedManifests(Value& entry);
  int32_t mergeModifiedFiles(Value& entry);

  // ---- fields ------------------------------------------------------------------
  const std::string& bundleRootPath() const { return bundleRoot_; }
  Value& stripInfo() { return stripInfo_; }
  Value& stripOptions() { return stripOptions_; }
  const std::vector<std::string>& originalManifest() const { return originalManifest_; }
  Value& strippedManifestsList() { return strippedManifestsList_; }
  Value& modifiedFilesList() { return modifiedFilesList_; }

  // ---- SupportHost ---------------------------------------------------------------
  SupportRequest supportRequest(const Value& entry) const override;
  std::string supportBundleRoot() const override { return bundleRoot_; }
  BundleView& supportBundleView() override { return bundleView(); }
  const Value& supportOptions() const override { return stripOptions_; }
  const Value& supportProductsTable() const override { return tables().knownProducts; }
  std::vector<std::string> listFolder(const std::string& folder, bool deep) override {
    return submanifestStartingAt(folder, deep);
  }
  bool bundleListingContains(const std::string& path) override { return listed_.contains(path); }
  Value readBundlePropertyList(const std::string& path) override { return mutableDictionaryAtSubpath(path); }
  // One partial keep list per call.
  void keepPaths(const std::vector<std::string>& paths) override;
  // Edits the merged keep list: the invisibles scrub runs after the merge.
  void unkeepPaths(const std::vector<std::string>& paths) override;
  std::vector<std::string> keptPaths() const override { return strippedManifest_.strings(); }
  // One partial record per call; after the merge the record joins the merged
  // result as well, so what the cookie step leaves reaches the caller.
  void recordModifiedFile(const std::string& path, Value contents) override;

 protected:
  Status performStep(std::string_view selector, Value& entry) override;

 private:
  std::string bundleRoot_;
  Value stripOptions_ = Value::makeDict();
  Value stripInfo_ = Value::makeDict();
  std::vector<std::string> originalManifest_;
  std::unordered_set<std::string> listed_;  // originalManifest_, for lookups
  Value strippedManifest_;
  Value modifiedFiles_;
  Value strippedManifestsList_ = Value::makeArray();
  Value modifiedFilesList_ = Value::makeArray();
  bool modifiedFilesMerged_ = false;
};

// The record type word of a modified file's new contents: "symlink" for
// data, "text file" for a string, "plist" for a dictionary, else "file".
const char* modifiedFileType(const Value& contents);

// Folds `record` into `merged` by the merge rules: new paths are added,
// dictionaries deep-merged, text fragments joined once each, links keep the
// first target (with a warning), mixed kinds refused. Answers false, after
// logging, when the record cannot be merged.
bool mergeModifiedFileRecord(Value& merged, const Value& record);

}  // namespace velmar

#endif  // VELMAR_ENGINE_LEGACY_STRIPPER2_H_
