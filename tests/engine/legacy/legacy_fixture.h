// Writes an older synthetic bundle per test and makes legacy engines over it.

#ifndef VELMAR_TESTS_ENGINE_LEGACY_LEGACY_FIXTURE_H_
#define VELMAR_TESTS_ENGINE_LEGACY_LEGACY_FIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "engine/legacy/stripper2.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"
#include "tests/engine/test_support.h"

namespace velmar::testing {

using synth::BundleDescription;
using Paths = std::set<std::string>;

class LegacyTest : public ::testing::Test {
 protected:
  void SetUp() override { LogObject::sharedLogger().setHistoricalLog(""); }

  void write(const BundleDescription& d) {
    std::string error;
    ASSERT_TRUE(synth::writeBundle(d, root(), &error)) << error;
  }
  std::unique_ptr<Stripper2> engine(Value products = Value(), Value variants = Value(),
                                    Value options = Value()) {
    return Stripper2::stripperForPath(root(), products, variants, options);
  }
  // The work-list entry for `selector` as pre-analysis builds it; the log
  // then starts afresh.
  static Value entryFor(Stripper2& e, std::string_view selector) {
    EXPECT_EQ(e.preanalyzeRequest(), Status(0)) << logText();
    LogObject::sharedLogger().setHistoricalLog("");
    for (const Value& entry : e.workList().arr())
      if (entry.get("workSelector").str() == selector) return entry;
    ADD_FAILURE() << "no entry " << selector;
    return Value();
  }
  // The paths of the last keep list a step left, as a set.
  static Paths lastKept(Stripper2& e) {
    if (e.strippedManifestsList().count() == 0) return {};
    std::vector<std::string> all = e.strippedManifestsList().arr().back().strings();
    return Paths(all.begin(), all.end());
  }
  static Value lastRecord(Stripper2& e) {
    return e.modifiedFilesList().count() == 0 ? Value() : e.modifiedFilesList().arr().back();
  }
  std::string root() const { return dir_ / "Bundle"; }

  synth::TempDir dir_;
};

inline Value personalized() { return dictOf({{"checkPersonalized", true}}); }
inline Value unpersonalized() { return dictOf({{"checkUnpersonalized", true}}); }

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_ENGINE_LEGACY_LEGACY_FIXTURE_H_
