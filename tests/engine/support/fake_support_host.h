// A scratch bundle folder and a SupportHost over it that records what the
// support steps keep and rewrite, in either engine's manner.

#ifndef VELMAR_TESTS_ENGINE_SUPPORT_FAKE_SUPPORT_HOST_H_
#define VELMAR_TESTS_ENGINE_SUPPORT_FAKE_SUPPORT_HOST_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "engine/builtin_tables.h"
#include "engine/log_object.h"
#include "engine/plist_io.h"
#include "engine/support/support_host.h"
#include "engine/value.h"

namespace velmar::testing {

namespace fs = std::filesystem;

class ScratchBundle {
 public:
  ScratchBundle() {
    char pattern[] = "/tmp/velmar-support-XXXXXX";
    if (mkdtemp(pattern)) root_ = pattern;
  }
  ~ScratchBundle() {
    std::error_code ec;
    if (!root_.empty()) fs::remove_all(root_, ec);
  }
  ScratchBundle(const ScratchBundle&) = delete;
  ScratchBundle& operator=(const ScratchBundle&) = delete;

  const std::string& root() const { return root_; }
  std::string path(const std::string& relative) const { return root_ + "/" + relative; }

  void file(const std::string& relative, const std::string& contents = "x") const {
    fs::create_directories(fs::path(path(relative)).parent_path());
    std::ofstream(path(relative), std::ios::binary) << contents;
  }
  void plist(const std::string& relative, const Value& root) const { file(relative, toXml(root)); }
  void folder(const std::string& relative) const { fs::create_directories(path(relative)); }
  void link(const std::string& relative, const std::string& target) const {
    fs::create_directories(fs::path(path(relative)).parent_path());
    fs::create_symlink(target, path(relative));
  }

 private:
  std::string root_;
};

// The manifest engine's manner keeps into one set and one dictionary and
// lists folders without themselves; the legacy manner records one list per
// keep call, and its listings begin with the folder itself.
class FakeSupportHost : public SupportHost {
 public:
  FakeSupportHost(std::string root, bool legacy) : root_(std::move(root)), legacy_(legacy) {}

  Value options = Value::makeDict();
  Value products = builtInKnownProducts();
  std::vector<std::vector<std::string>> keepCalls;
  Value kept = Value::makeSet();
  Value modified = Value::makeDict();
  int modifiedRecords = 0;

  bool legacyMessages() const override { return legacy_; }
  std::string supportBundleRoot() const override { return root_; }
  const Value& supportOptions() const override { return options; }
  const Value& supportProductsTable() const override { return products; }

  std::vector<std::string> listFolder(const std::string& folder, bool deep) override {
    std::vector<std::string> paths;
    const fs::path absolute = folder.empty() ? fs::path(root_) : fs::path(root_) / folder;
    std::error_code ec;
    if (!fs::is_directory(fs::symlink_status(absolute, ec))) {
      if (legacy_ && fs::exists(fs::symlink_status(absolute, ec))) paths.push_back(folder);
      return paths;
    }
    if (legacy_ && !folder.empty()) paths.push_back(folder);
    auto relative = [&](const fs::path& p) { return p.lexically_relative(root_).string(); };
    if (deep) {
      for (const auto& e : fs::recursive_directory_iterator(absolute)) paths.push_back(relative(e.path()));
    } else {
      for (const auto& e : fs::directory_iterator(absolute)) paths.push_back(relative(e.path()));
    }
    std::sort(paths.begin() + (legacy_ && !folder.empty() ? 1 : 0), paths.end());
    return paths;
  }
  bool bundleListingContains(const std::string& path) override {
    std::error_code ec;
    return fs::exists(fs::symlink_status(fs::path(root_) / path, ec));
  }
  void keepPaths(const std::vector<std::string>& paths) override {
    keepCalls.push_back(paths);
    for (const std::string& p : paths) kept.insert(Value(p));
  }
  void unkeepPaths(const std::vector<std::string>& paths) override {
    for (const std::string& p : paths) kept.setMut().erase(Value(p));
  }
  std::vector<std::string> keptPaths() const override { return kept.strings(); }
  void recordModifiedFile(const std::string& path, Value contents) override {
    ++modifiedRecords;
    modified.set(path, std::move(contents));
  }

 private:
  std::string root_;
  bool legacy_;
};

// Clears the shared logger's history before each test and reads it back.
class SupportStepTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(bundle_.root().empty());
    LogObject::sharedLogger().setHistoricalLog("");
  }
  static std::string logged() { return LogObject::sharedLogger().historicalLog(); }

  ScratchBundle bundle_;
  FakeSupportHost manifest_{bundle_.root(), false};
  FakeSupportHost legacy_{bundle_.root(), true};
};

inline Value dictOf(std::initializer_list<std::pair<const char*, Value>> items) {
  Value d = Value::makeDict();
  for (const auto& [key, value] : items) d.set(key, value);
  return d;
}

inline Value setOf(std::initializer_list<Value> items) { return Value::makeSet(items); }

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_ENGINE_SUPPORT_FAKE_SUPPORT_HOST_H_
