#include "base/value.h"

#include <gtest/gtest.h>

#include "base/format.h"
#include "base/plist_io.h"
#include "tests/base/value_literals.h"

namespace velmar {
namespace {

TEST(ValueTest, DictionariesKeepInsertionOrderPastTheIndexThreshold) {
  Value d = Value::makeDict();
  for (const char* k : {"zeta", "alpha", "mid"}) d.set(k, k);
  d.set("alpha", 7);
  for (int i = 0; i < 40; ++i) d.set("k" + std::to_string(i), i);
  EXPECT_TRUE(d.remove("mid"));
  EXPECT_FALSE(d.contains("mid"));
  EXPECT_EQ(d.get("k39").intValue(), 39);
  const std::vector<std::string> keys = d.dict().keys();
  EXPECT_EQ(std::vector<std::string>(keys.begin(), keys.begin() + 3),
            (std::vector<std::string>{"zeta", "alpha", "k0"}));
  EXPECT_TRUE(d.valueForKeyPath("alpha.More").isNull());
}

TEST(ValueTest, CopiesShareStorageUntilWritten) {
  Value inner = Value::makeDict();
  inner.set("Path", "Restore/x");
  Value big = Value::makeDict();
  for (int i = 0; i < 20; ++i) big.set("item" + std::to_string(i), inner);
  Value copy = big;
  copy.dictMut().find("item5")->set("Path", "changed");
  EXPECT_EQ(big.valueForKeyPath("item5.Path").str(), "Restore/x");
  EXPECT_EQ(copy.valueForKeyPath("item5.Path").str(), "changed");
}

TEST(ValueTest, DescriptionsAndFormatsFollowTheMessageRules) {
  EXPECT_EQ(niceDescription(Value::makeSet({"b", "a", "b"})), "a, b");
  EXPECT_EQ(Value::makeData("\x0a\xff").description(), "<0aff>");
  EXPECT_EQ(format(">>> ========== %2d/%2d %@ ==========", 2, 5, "Step"),
            ">>> ==========  2/ 5 Step ==========");
  EXPECT_EQ(format("%@ and %@ %@", Value(), Value::makeArray({"x", "y"}), 2.5), "(null) and x, y 2.5");
  EXPECT_EQ(format("%f %02hX%02hX 100%%", 2.5, 10, 255), "2.500000 0AFF 100%");
}

TEST(PlistIoTest, XmlAndBinaryRoundTripKeepsKindsAndOrder) {
  const Value root = testing::dictOf({{"b", true}, {"i", -42}, {"r", 0.25}, {"s", "text & <markup>"},
                                      {"d", Value::makeData(std::string("\0\x01\xff", 3))},
                                      {"t", Value(Date{600000000})},
                                      {"a", testing::arrayOf({1, "one", false})}});
  for (const std::string& bytes : {toXml(root), toBinary(root)}) {
    Value back = parsePropertyList(bytes);
    EXPECT_EQ(back, root);
    EXPECT_EQ(back.dict().keys(), root.dict().keys());
    EXPECT_TRUE(back.get("b").isBool() && back.get("r").isReal());
  }
  EXPECT_EQ(parsePropertyList(toXml(Value::makeSet({"b", "a"}))), Value::makeArray({"a", "b"}));
  EXPECT_TRUE(parsePropertyList("<plist><dict><key>a</key>").isNull());
  EXPECT_TRUE(parsePropertyList("bplist00garbage").isNull());
}

}  // namespace
}  // namespace velmar
