// The front end's queries against the velmarbs built beside these tests and
// the sample bundle: the command lines must be ones the tool accepts and
// its replies ones the front end reads. Skipped when the tool is not built.
#include <gtest/gtest.h>
#include <unistd.h>

#include "app/bundle_scan.h"
#include "app/tool_query.h"

namespace velmar::app {
namespace {

class RealToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::access(toolPath_.c_str(), X_OK) != 0) GTEST_SKIP() << "velmarbs not built";
  }
  std::string toolPath_ = std::string(VELMAR_BINARY_DIR) + "/tool/velmarbs";
  std::vector<std::string> log_;
};

TEST_F(RealToolTest, ScanOfTheSampleBundle) {
  ToolQuery tool(toolPath_, [this](const std::string& t) { log_.push_back(t); }, nullptr);
  QueryFunction query = [&](const Arguments& a) { return tool.queryStripperWithArguments(a); };

  EXPECT_FALSE(queryKnownVariants(query).empty());
  UserDefaults defaults;
  defaults.setObject(kLastSourceSelectedKey, std::string(VELMAR_SOURCE_DIR) + "/sample/Bundle");
  ScanResult scan = scanBundle(defaults, {}, query);
  EXPECT_EQ(scan.validProducts, (NameList{"r11", "r13"}));
  ASSERT_TRUE(scan.validVariantsForEachProduct.count("r13"));
  EXPECT_FALSE(scan.validVariantsForEachProduct["r13"].empty());
  EXPECT_TRUE(log_.empty()) << log_.front();
}

TEST_F(RealToolTest, ValidateRunOfTheDefaultSelectionFinishes) {
  UserDefaults defaults;
  defaults.setObject(kLastSourceSelectedKey, std::string(VELMAR_SOURCE_DIR) + "/sample/Bundle");
  std::string out, err;
  int status = RunTask(toolPath_, stripArguments(defaults, "", false), "", &out, &err, false);
  EXPECT_EQ(status, 0) << out << err;
}

}  // namespace
}  // namespace velmar::app
