// A SupportHost over a scratch folder that records what the support steps
// keep and rewrite, in either engine's manner.

#ifndef VELMAR_TESTS_ENGINE_SUPPORT_FAKE_SUPPORT_HOST_H_
#define VELMAR_TESTS_ENGINE_SUPPORT_FAKE_SUPPORT_HOST_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "engine/builtin_tables.h"
#include "engine/support/support_host.h"
#include "synth/temp_dir.h"
#include "tests/engine/test_support.h"

namespace velmar::testing {

namespace fs = std::filesystem;

// Records every keep call and the paths kept; in the legacy manner a listing
// begins with the folder itself, as the legacy engine's does.
class FakeSupportHost : public SupportHost {
 public:
  FakeSupportHost(std::string root, bool legacy) : root_(std::move(root)), legacy_(legacy) {}

  Value options = Value::makeDict();
  Value products = builtInKnownProducts();
  std::vector<std::vector<std::string>> keepCalls;
  Value kept = Value::makeSet();
  Value modified = Value::makeDict();

  // Each engine's entry keys; the legacy manner also reports scrubs.
  SupportRequest supportRequest(const Value& entry) const override {
    SupportRequest request;
    request.deviceClasses = entry.get(legacy_ ? "workDeviceClassList" : "workAllDeviceClasses");
    request.products = entry.get(legacy_ ? "workProductList" : "workAllProducts");
    request.personalizationVariants =
        entry.get(legacy_ ? "workPersonalizationVariantList" : "workAllPersonalizationVariants");
    request.reportScrubs = legacy_;
    return request;
  }
  std::string supportBundleRoot() const override { return root_; }
  BundleView& supportBundleView() override {
    if (!view_) view_ = openFolderView(root_);
    return *view_;
  }
  const Value& supportOptions() const override { return options; }
  const Value& supportProductsTable() const override { return products; }
  std::vector<std::string> listFolder(const std::string& folder, bool deep) override {
    std::vector<std::string> paths;
    const fs::path dir = fs::path(root_) / folder;
    if (!fs::is_directory(fs::symlink_status(dir))) return paths;
    if (legacy_ && !folder.empty()) paths.push_back(folder);
    const size_t first = paths.size();
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
      paths.push_back(it->path().lexically_relative(root_));
      if (!deep) it.disable_recursion_pending();
    }
    std::sort(paths.begin() + first, paths.end());
    return paths;
  }
  bool bundleListingContains(const std::string& path) override {
    return fs::exists(fs::symlink_status(fs::path(root_) / path));
  }
  void keepPaths(const std::vector<std::string>& paths) override {
    keepCalls.push_back(paths);
    for (const std::string& p : paths) kept.insert(Value(p));
  }
  void unkeepPaths(const std::vector<std::string>& paths) override {
    for (const std::string& p : paths) kept.setMut().erase(Value(p));
  }
  std::vector<std::string> keptPaths() const override { return kept.strings(); }
  void recordModifiedFile(const std::string& path, Value contents) override { modified.set(path, contents); }

 private:
  std::string root_;
  std::unique_ptr<BundleView> view_;
  bool legacy_;
};

// One scratch bundle seen by a host of each manner, and an empty log.
class SupportStepTest : public ::testing::Test {
 protected:
  void SetUp() override { LogObject::sharedLogger().setHistoricalLog(""); }
  void put(const std::string& relative, const std::string& contents = "x") {
    writeFile(dir_ / relative, contents);
  }
  void link(const std::string& relative, const std::string& target) {
    fs::create_symlink(target, dir_ / relative);
  }

  synth::TempDir dir_;
  FakeSupportHost manifest_{dir_.path(), false};
  FakeSupportHost legacy_{dir_.path(), true};
};

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_ENGINE_SUPPORT_FAKE_SUPPORT_HOST_H_
