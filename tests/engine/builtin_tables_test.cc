#include "engine/builtin_tables.h"

#include <gtest/gtest.h>

#include "engine/manifest/stripper3.h"

namespace velmar {
namespace {

TEST(BuiltInTablesTest, RowsAndValueKinds) {
  Value processors = builtInProcessorMap();
  EXPECT_EQ(processors.count(), 13u);
  EXPECT_EQ(processors.get("u9000").str(), "C7p");

  Value products = builtInKnownProducts();
  EXPECT_EQ(products.count(), 7u);
  Value r13 = products.get("r13");
  EXPECT_EQ(r13.get("processor").str(), "xr2120x");
  EXPECT_EQ(r13.get("model").str(), "Corvid2,1");
  EXPECT_EQ(r13.get("BasebandFirmwarePrefix"), Value::makeArray({"BBX2"}));
  EXPECT_TRUE(r13.get("BasebandIsPersonalized").isBool());
  EXPECT_FALSE(r13.contains("noLLDiagsExtras"));  // absent, not NO
  EXPECT_EQ(products.valueForKeyPath("r12.BasebandFirmwarePrefix"), Value::makeArray({"BBX2"}));
  EXPECT_FALSE(products.get("r23").contains("BasebandIsPersonalized"));
  EXPECT_TRUE(products.valueForKeyPath("r22.noLLDiagsExtras").isBool());

  Value variants = builtInFactoryVariants();
  EXPECT_EQ(variants.count(), 28u);
  EXPECT_EQ(variants.valueForKeyPath("cti.PersonalizationVariants").str(), "Factory - Shipping Settings");
  EXPECT_EQ(variants.valueForKeyPath("support.SystemImageTypes").str(), "");
  EXPECT_FALSE(variants.get("support").contains("FirmwareTypes"));
  EXPECT_EQ(variants.valueForKeyPath("debug.FirmwareTypes"),
            Value::makeArray({"factoryfa", "factorysa", "production", "firmwaredevelopment", "debug"}));
  EXPECT_EQ(variants.valueForKeyPath("vendor-internal.DFUTypes"), Value::makeArray({"RELEASE"}));
  EXPECT_TRUE(variants.get("SS").isNull());  // lookups are case-sensitive
}

TEST(BuiltInTablesTest, ListingsSortIgnoringCase) {
  BuiltInTables t;
  t.initialize();
  std::vector<std::string> names = t.knownFactoryVariantNames();
  std::vector<std::string> head(names.begin(), names.begin() + 8);
  EXPECT_EQ(head, (std::vector<std::string>{"bb-dfu", "cti", "darwin-ss", "debug", "desense", "dfu",
                                            "F5-demo", "factory-ui"}));
  EXPECT_EQ(t.knownProductNames(),
            (std::vector<std::string>{"r11", "r12", "r13", "r21", "r22", "r23", "r31"}));
  EXPECT_EQ(t.toolNames().front(), "AuxFirmwareUpdater");
  EXPECT_EQ(t.queryExcludeFileName("LoaderX").str(), "ldrx");
  EXPECT_TRUE(t.queryExcludeFileName("ldrx").isNull());
}

TEST(BuiltInTablesTest, InitializingAgainChangesNothing) {
  BuiltInTables t;
  t.initialize();
  t.knownProducts.remove("r31");
  t.knownProducts.remove("r11");
  t.initialize();
  EXPECT_EQ(t.knownProducts.count(), 5u);
  // Even a table narrowed to nothing stays as it is.
  t.knownProducts = Value::makeDict();
  t.initialize();
  EXPECT_EQ(t.knownProducts.count(), 0u);
}

TEST(BuiltInTablesTest, EachEngineClassHasItsOwnCopy) {
  Value saved = Stripper3::tables().knownProducts;
  BuiltInTables other;
  other.initialize();
  Stripper3::tables().knownProducts.remove("r31");
  EXPECT_TRUE(other.knownProducts.contains("r31"));
  Stripper3::initialize();
  EXPECT_FALSE(Stripper3::tables().knownProducts.contains("r31"));
  Stripper3::tables().knownProducts = saved;
}

}  // namespace
}  // namespace velmar
