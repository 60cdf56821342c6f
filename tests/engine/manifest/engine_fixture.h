// Writes a synthetic bundle per test and makes manifest engines over it; the
// class-wide products table, which analysis narrows, is reset around each test.

#ifndef VELMAR_TESTS_ENGINE_MANIFEST_ENGINE_FIXTURE_H_
#define VELMAR_TESTS_ENGINE_MANIFEST_ENGINE_FIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "engine/manifest/stripper3.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"
#include "tests/engine/test_support.h"

namespace velmar::testing {

using synth::BundleDescription;
using Paths = std::set<std::string>;

class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Stripper3::tables().knownProducts = builtInKnownProducts();
    LogObject::sharedLogger().setHistoricalLog("");
  }
  void TearDown() override { Stripper3::tables().knownProducts = builtInKnownProducts(); }

  void write(const BundleDescription& d = synth::sampleBundle()) {
    std::string error;
    ASSERT_TRUE(synth::writeBundle(d, root(), &error)) << error;
  }
  std::unique_ptr<Stripper3> engine(Value products = Value(), Value variants = Value(),
                                    Value options = Value()) {
    return Stripper3::stripperForPath(root(), products, variants, options);
  }
  // The work-list entry for `selector` as pre-analysis builds it; the log
  // then starts afresh.
  static Value entryFor(Stripper3& e, std::string_view selector) {
    EXPECT_EQ(e.preanalyzeRequest(), Status(0)) << logText();
    LogObject::sharedLogger().setHistoricalLog("");
    for (const Value& entry : e.workList().arr())
      if (entry.get("workSelector").str() == selector) return entry;
    ADD_FAILURE() << "no entry " << selector;
    return Value();
  }
  static Paths kept(Stripper3& e) {
    std::vector<std::string> all = e.copiedFilelist().strings();
    return Paths(all.begin(), all.end());
  }
  std::string root() const { return dir_ / "Bundle"; }

  synth::TempDir dir_;
};

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_ENGINE_MANIFEST_ENGINE_FIXTURE_H_
