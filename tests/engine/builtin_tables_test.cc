#include "engine/builtin_tables.h"

#include <gtest/gtest.h>

namespace velmar {
namespace {

TEST(BuiltInTablesTest, RowsAndValueKinds) {
  EXPECT_EQ(builtInProcessorMap().count(), 13u);
  EXPECT_EQ(builtInKnownProducts().count(), 7u);
  EXPECT_FALSE(builtInKnownProducts().get("r13").contains("noLLDiagsExtras"));  // absent, not NO
  EXPECT_EQ(builtInFactoryVariants().count(), 28u);
  EXPECT_FALSE(builtInFactoryVariants().get("support").contains("FirmwareTypes"));
  EXPECT_TRUE(builtInFactoryVariants().get("SS").isNull());  // lookups are case-sensitive
}

TEST(BuiltInTablesTest, ListingsSortIgnoringCaseAndInitializingAgainChangesNothing) {
  BuiltInTables t;
  t.initialize();
  std::vector<std::string> names = t.knownFactoryVariantNames();
  EXPECT_EQ(std::vector<std::string>(names.begin(), names.begin() + 8),
            (std::vector<std::string>{"bb-dfu", "cti", "darwin-ss", "debug", "desense", "dfu", "F5-demo",
                                      "factory-ui"}));
  EXPECT_EQ(t.queryExcludeFileName("LoaderX").str(), "ldrx");
  EXPECT_TRUE(t.queryExcludeFileName("ldrx").isNull());
  t.knownProducts.remove("r31");
  t.initialize();
  EXPECT_EQ(t.knownProductNames(), (std::vector<std::string>{"r11", "r12", "r13", "r21", "r22", "r23"}));
}

}  // namespace
}  // namespace velmar
