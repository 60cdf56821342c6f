// The factory-like benchmark bundle: its shape, its size knob, and that the
// engine takes it as the real thing (otherwise the benchmark times errors).

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "base/plist_io.h"
#include "engine/builtin_tables.h"
#include "synth/factory_bundle.h"
#include "tests/engine/manifest/engine_fixture.h"

namespace velmar::synth {
namespace {

size_t manifestBytes(size_t products, size_t items) {
  return toXml(buildManifestPlist(factoryBundle(products, items))).size();
}

TEST(FactoryBundleTest, EveryStationsVariantOnBothClassesOfEveryProduct) {
  std::set<std::string> tableVariants;
  for (const auto& [station, record] : builtInFactoryVariants().dict())
    tableVariants.insert(record.get("PersonalizationVariants").str());
  const std::vector<std::string> variants = factoryPersonalizationVariants();
  EXPECT_EQ(std::set<std::string>(variants.begin(), variants.end()), tableVariants);
  EXPECT_EQ(variants.size(), tableVariants.size()) << "each variant once";

  const BundleDescription d = factoryBundle(kFactoryBundleProducts, 0);
  std::map<std::string, std::set<std::string>> byClass;
  for (const BuildIdentity& id : d.identities) byClass[id.deviceClass].insert(id.variant);
  ASSERT_EQ(byClass.size(), 2 * kFactoryBundleProducts);
  for (size_t i = 0; i < kFactoryBundleProducts; ++i)
    for (const char* suffix : {"ap", "dev"})
      EXPECT_EQ(byClass[factoryBoard(i) + suffix], tableVariants) << factoryBoard(i) << suffix;
  EXPECT_EQ(d.identities.size(), 2 * kFactoryBundleProducts * tableVariants.size());
}

TEST(FactoryBundleTest, ManifestGrowsLinearlyWithItemsAndProducts) {
  // Without extra items a manifest carries no digests; from one on it does,
  // and each further item costs the same.
  const size_t base = manifestBytes(1, 1);
  const size_t perTenItems = manifestBytes(1, 11) - base;
  EXPECT_GT(perTenItems, 0u);
  // Ten more items cost the same again: sizes can be aimed at.
  EXPECT_NEAR(double(manifestBytes(1, 21) - base), 2.0 * perTenItems, 0.02 * perTenItems);
  EXPECT_NEAR(double(manifestBytes(3, 10)), 3.0 * manifestBytes(1, 10), 0.02 * manifestBytes(1, 10));
  // The benchmark's default is the factory's size.
  const size_t standard = manifestBytes(kFactoryBundleProducts, kFactoryBundleExtraItems);
  EXPECT_GT(standard, 9'000'000u);
  EXPECT_LT(standard, 11'000'000u);
}

class FactoryBundleEngineTest : public testing::EngineTest {};

TEST_F(FactoryBundleEngineTest, EngineSeesEveryProductAndStripsEveryStation) {
  write(factoryBundle(2, 1));
  EXPECT_EQ(engine()->validProducts(), Value::stringArray({"f000", "f001"}));

  auto scan = engine(Value::makeArray({"f001"}));
  std::vector<std::string> stations = scan->validFactoryVariants().strings();
  const std::vector<std::string> all = sortedKeys(builtInFactoryVariants());
  EXPECT_EQ(std::set<std::string>(stations.begin(), stations.end()),
            std::set<std::string>(all.begin(), all.end()));

  for (const std::string& station : all) {
    LogObject::sharedLogger().setHistoricalLog("");
    auto e = engine(Value::makeArray({"f001"}), Value::makeArray({station.c_str()}));
    EXPECT_EQ(e->strip(), 0) << station << "\n" << testing::logText();
  }
}

}  // namespace
}  // namespace velmar::synth
