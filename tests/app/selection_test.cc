#include "app/selection.h"

#include <gtest/gtest.h>

#include "app/bundle_scan.h"

namespace velmar::app {
namespace {

using Names = NameList;

SelectionModel bundleWithR11AndR13() {
  SelectionModel m;
  m.setKnownProducts({"r11", "r13", "r2"});
  m.setKnownVariants({"ss", "swdl", "fct"});
  m.setValidProducts({"r11", "r13"});
  m.setValidVariantsForEachProduct({{"r11", {"ss", "swdl"}}, {"r13", {"ss"}}});
  return m;
}

TEST(SelectionRuleTest, StationsMustSuitEverySelectedProduct) {
  SelectionModel m = bundleWithR11AndR13();
  m.setProducts({"r11", "r13"});
  m.setVariants({"swdl", "ss"});
  m.updateFactoryVariants();
  EXPECT_EQ(m.validVariantsForSelectedProducts(), Names{"ss"});
  EXPECT_EQ(m.variants(), Names{"ss"});
  EXPECT_EQ(m.products(), (Names{"r11", "r13"}));
}

TEST(SelectionRuleTest, ProductsTheBundleLacksAreDropped) {
  SelectionModel m = bundleWithR11AndR13();
  m.setProducts({"r2", "r11"});
  m.setVariants({"swdl"});
  m.updateFactoryVariants();
  EXPECT_EQ(m.products(), Names{"r11"});
  EXPECT_EQ(m.validVariantsForSelectedProducts(), (Names{"ss", "swdl"}));
  EXPECT_EQ(m.variants(), Names{"swdl"});
}

TEST(SelectionRuleTest, AProductWithoutReplyHasNoSay) {
  SelectionModel m = bundleWithR11AndR13();
  m.setValidProducts({"r11", "r13", "r2"});
  // r2 is valid but its valid-variants query failed; first or last, it
  // must neither seed nor empty the set.
  for (Names products : {Names{"r2", "r11"}, Names{"r11", "r2"}}) {
    m.setProducts(products);
    m.updateFactoryVariants();
    EXPECT_EQ(m.validVariantsForSelectedProducts(), (Names{"ss", "swdl"}));
    EXPECT_EQ(m.products(), products);
  }
}

TEST(SelectionRuleTest, NoProductsMeansNoStations) {
  SelectionModel m = bundleWithR11AndR13();
  m.setVariants({"ss"});
  m.updateFactoryVariants();
  EXPECT_TRUE(m.validVariantsForSelectedProducts().empty());
  EXPECT_TRUE(m.variants().empty());
}

TEST(ButtonStatesTest, CheckBoxesFollowSelectionAndValidity) {
  SelectionModel m = bundleWithR11AndR13();
  m.setProducts({"r13"});
  m.setVariants({"ss"});
  m.updateFactoryVariants();
  ButtonStates s = m.buttonStates(true);
  EXPECT_EQ(s.products, (std::vector<CheckBoxState>{{false, true}, {true, true}, {false, false}}));
  EXPECT_EQ(s.stations, (std::vector<CheckBoxState>{{true, true}, {false, false}, {false, false}}));
  EXPECT_TRUE(s.stripAndValidate);
  EXPECT_TRUE(s.clearAllProducts && s.setAllProducts && s.clearAllVariants && s.setAllVariants);
}

TEST(ButtonStatesTest, StripNeedsSelectionSourceAndKnownProducts) {
  SelectionModel m = bundleWithR11AndR13();
  m.setProducts({"r13"});
  m.setVariants({"ss"});
  m.updateFactoryVariants();
  EXPECT_FALSE(m.buttonStates(false).stripAndValidate);  // source gone

  SelectionModel noVariants = m;
  noVariants.clearAllStations();
  ButtonStates s = noVariants.buttonStates(true);
  EXPECT_FALSE(s.stripAndValidate);
  EXPECT_FALSE(s.clearAllVariants);
  EXPECT_TRUE(s.setAllVariants);

  SelectionModel noProducts = m;
  noProducts.clearAllProducts();
  EXPECT_FALSE(noProducts.buttonStates(true).stripAndValidate);

  SelectionModel unknown = m;
  unknown.setKnownProducts({});
  EXPECT_FALSE(unknown.buttonStates(true).stripAndValidate);
}

TEST(CheckBoxActionTest, ProductHitReappliesTheRuleStationHitDoesNot) {
  SelectionModel m = bundleWithR11AndR13();
  m.setProducts({"r11"});
  m.updateFactoryVariants();
  m.factoryStationHit(1, true);  // swdl
  m.factoryStationHit(1, true);
  EXPECT_EQ(m.variants(), Names{"swdl"});
  m.productHit(1, true);  // r13 narrows the stations to ss
  EXPECT_EQ(m.products(), (Names{"r11", "r13"}));
  EXPECT_TRUE(m.variants().empty());
  m.productHit(0, false);
  EXPECT_EQ(m.products(), Names{"r13"});
  m.productHit(7, true);  // a tag past the list
  EXPECT_EQ(m.products(), Names{"r13"});
}

TEST(CheckBoxActionTest, SetAllProductsLeavesValidStationsUntilNextRule) {
  SelectionModel m = bundleWithR11AndR13();
  m.setProducts({"r11"});
  m.updateFactoryVariants();
  m.setAllProducts();
  EXPECT_EQ(m.products(), (Names{"r11", "r13"}));
  EXPECT_EQ(m.validVariantsForSelectedProducts(), (Names{"ss", "swdl"}));
  m.setAllStations();
  EXPECT_EQ(m.variants(), (Names{"ss", "swdl"}));
}

// Answers queries from a table and records what was asked.
struct FakeTool {
  std::vector<Arguments> asked;
  std::map<std::string, Value> replies;  // first word -> replies
  Value operator()(const Arguments& args) {
    asked.push_back(args);
    std::string key = args[0] == "--validvariants" ? args[0] + " " + args[2] : args[0];
    auto it = replies.find(key);
    return it == replies.end() ? Value() : it->second;
  }
};

Value dictReply(const char* key, std::initializer_list<Value> names) {
  Value d = Value::makeDict();
  d.set(key, Value::makeArray(names));
  return Value::makeArray({d});
}

TEST(BundleScanTest, AsksInTurnAndDropsWhatTheBundleLacks) {
  FakeTool tool;
  tool.replies["--knownProducts"] = Value::makeArray({Value::makeArray({"r13", "r11"})});
  tool.replies["--validproducts"] = dictReply("validProducts", {"r11", "r13"});
  tool.replies["--validvariants r11"] = dictReply("validVariants", {"ss", "swdl"});
  tool.replies["--validvariants r13"] = dictReply("validVariants", {"ss"});
  UserDefaults d;
  d.setObject(kLastSourceSelectedKey, "/b/new.dmg");
  d.setStrings(kProductsKey, {"r2", "r11", "r13"});
  d.setStrings(kVariantsKey, {"swdl", "ss"});

  ScanResult scan = scanBundle(d, {"r2"}, std::ref(tool));
  ASSERT_EQ(tool.asked.size(), 4u);
  EXPECT_EQ(tool.asked[0], (Arguments{"--knownProducts", "--source", "/b/new.dmg"}));
  EXPECT_EQ(tool.asked[3], (Arguments{"--validvariants", "--product", "r13", "--source",
                                      "/b/new.dmg", "--stripDevFirmware", "--keepAPFirmware"}));

  SelectionModel m;
  m.setProducts(d.arrayForKey(kProductsKey));
  m.setVariants(d.arrayForKey(kVariantsKey));
  applyScan(m, scan);
  EXPECT_EQ(m.knownProducts(), (Names{"r11", "r13"}));
  EXPECT_EQ(m.products(), (Names{"r11", "r13"}));
  EXPECT_EQ(m.variants(), Names{"ss"});
}

TEST(BundleScanTest, NoValidProductsReplyKeepsThePreviousList) {
  FakeTool tool;
  tool.replies["--validvariants r13"] = dictReply("validVariants", {"ss"});
  UserDefaults d;
  d.setObject(kLastSourceSelectedKey, "/b");
  ScanResult scan = scanBundle(d, {"r11", "r13"}, std::ref(tool));
  EXPECT_TRUE(scan.knownProducts.empty());
  EXPECT_EQ(scan.validProducts, (Names{"r11", "r13"}));
  EXPECT_EQ(scan.validVariantsForEachProduct, (VariantsByProduct{{"r13", {"ss"}}}));
}

// The scan as the window runs it: replies with the tool's words, progress, cancel.
struct FakeAsk {
  FakeTool tool;
  std::map<std::string, std::string> failures;  // first word -> what the tool said
  size_t cancelAt = 0;                          // the query (from 1) that is cancelled
  ToolReply operator()(const Arguments& args) {
    Value replies = tool(args);
    if (tool.asked.size() == cancelAt) return ToolReply{Value(), "", true};
    auto it = failures.find(args[0]);
    return ToolReply{replies, it == failures.end() ? "" : it->second, false};
  }
};

TEST(BundleScanTest, TellsWhichProductOfHowManyIsAsked) {
  FakeAsk ask;
  ask.tool.replies["--validproducts"] = dictReply("validProducts", {"r11", "r13", "r2"});
  UserDefaults d;
  std::vector<std::string> told;
  ScanResult scan = scanBundle(d, {}, std::ref(ask), [&](size_t n, size_t of) { told.push_back(scanProgressText(n, of)); });
  EXPECT_EQ(told, (Names{"product 1 of 3", "product 2 of 3", "product 3 of 3"}));
  EXPECT_TRUE(scan.failure.empty());
  EXPECT_EQ(scanOutcomeLine(scan), "");
}

TEST(BundleScanTest, ANonBundleFailsWithTheToolsReason) {
  FakeAsk ask;
  ask.failures["--validproducts"] = "cannot read the source bundle.";
  UserDefaults d;
  d.setObject(kLastSourceSelectedKey, "/b/Empty");
  ScanResult scan = scanBundle(d, {"r13"}, std::ref(ask), nullptr);
  EXPECT_EQ(scan.validProducts, Names{"r13"});  // the previous list stands, as ever
  EXPECT_EQ(scan.failure, "cannot read the source bundle.");
  EXPECT_EQ(scanOutcomeLine(scan), "\"Empty\" cannot be used: cannot read the source bundle.");

  // An empty answer without words from the tool still says what is wrong.
  FakeAsk quiet;
  quiet.tool.replies["--validproducts"] = dictReply("validProducts", {});
  scan = scanBundle(d, {"r13"}, std::ref(quiet), nullptr);
  EXPECT_TRUE(scan.validProducts.empty());
  EXPECT_EQ(scan.failure, "it holds no product that can be stripped.");
}

TEST(BundleScanTest, ACancelledQueryEndsTheScan) {
  FakeAsk ask;
  ask.tool.replies["--validproducts"] = dictReply("validProducts", {"r11", "r13", "r2"});
  ask.cancelAt = 4;  // the second product's variants
  UserDefaults d;
  d.setObject(kLastSourceSelectedKey, "/b/x.dmg");
  ScanResult scan = scanBundle(d, {}, std::ref(ask), nullptr);
  EXPECT_TRUE(scan.cancelled);
  EXPECT_EQ(ask.tool.asked.size(), 4u);
  EXPECT_EQ(scanOutcomeLine(scan), "Scanning \"x.dmg\" cancelled.");
}

}  // namespace
}  // namespace velmar::app
