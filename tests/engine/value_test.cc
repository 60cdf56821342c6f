#include "engine/value.h"

#include <gtest/gtest.h>

#include "engine/collection_extras.h"
#include "engine/format.h"
#include "engine/plist_io.h"

namespace velmar {
namespace {

TEST(ValueTest, DictionariesKeepInsertionOrderAndReplaceInPlace) {
  Value d = Value::makeDict();
  for (const char* k : {"zeta", "alpha", "mid"}) d.set(k, k);
  d.set("alpha", 7);
  EXPECT_EQ(d.dict().keys(), (std::vector<std::string>{"zeta", "alpha", "mid"}));
  EXPECT_EQ(d.get("alpha").intValue(), 7);
  // Past the index threshold lookups and removal still agree with the order.
  for (int i = 0; i < 40; ++i) d.set("k" + std::to_string(i), i);
  EXPECT_TRUE(d.remove("mid"));
  EXPECT_FALSE(d.contains("mid"));
  EXPECT_EQ(d.get("k39").intValue(), 39);
  EXPECT_EQ(d.dict().keys()[2], "k0");
}

TEST(ValueTest, CopiesShareStorageUntilWritten) {
  Value big = Value::makeDict();
  Value inner = Value::makeDict();
  inner.set("Path", "Restore/x");
  for (int i = 0; i < 100; ++i) big.set("item" + std::to_string(i), inner);
  Value copy = big;
  EXPECT_TRUE(copy.sharesStorageWith(big));
  copy.set("new", true);
  EXPECT_FALSE(copy.sharesStorageWith(big));
  EXPECT_FALSE(big.contains("new"));
  // Children stay shared after the parent detached.
  EXPECT_TRUE(copy.get("item5").sharesStorageWith(big.get("item5")));
  copy.dictMut().find("item5")->set("Path", "changed");
  EXPECT_EQ(big.valueForKeyPath("item5.Path").str(), "Restore/x");
  EXPECT_EQ(copy.valueForKeyPath("item5.Path").str(), "changed");
}

TEST(ValueTest, KeyPathsMissToNull) {
  Value d = Value::makeDict();
  Value info = Value::makeDict();
  info.set("DeviceClass", "r13ap");
  d.set("Info", info);
  EXPECT_EQ(d.valueForKeyPath("Info.DeviceClass").str(), "r13ap");
  EXPECT_TRUE(d.valueForKeyPath("Info.Nope").isNull());
  EXPECT_TRUE(d.valueForKeyPath("Info.DeviceClass.More").isNull());
}

TEST(ValueTest, NumbersCompareByValueAcrossKinds) {
  EXPECT_EQ(Value(true), Value(1));
  EXPECT_EQ(Value(2), Value(2.0));
  EXPECT_NE(Value("1"), Value(1));
  Value s = Value::makeSet({Value("b"), Value("a"), Value("b")});
  EXPECT_EQ(s.count(), 2u);
  EXPECT_EQ(niceDescription(s), "a, b");
}

TEST(ValueTest, DescriptionsFollowTheMessageRules) {
  EXPECT_EQ(Value().description(), "(null)");
  EXPECT_EQ(Value(true).description(), "1");
  EXPECT_EQ(Value(2.5).description(), "2.5");
  EXPECT_EQ(Value::makeArray({"a", "b"}).description(), "a, b");
  EXPECT_EQ(Value::makeData("\x0a\xff").description(), "<0aff>");
}

TEST(FormatTest, ConversionsUsedByMessages) {
  EXPECT_EQ(format(">>> ========== %2d/%2d %@ ==========", 2, 5, "Step"),
            ">>> ==========  2/ 5 Step ==========");
  EXPECT_EQ(format("%@ and %@", Value(), Value::makeArray({"x", "y"})), "(null) and x, y");
  EXPECT_EQ(format("%s - (%d - %s)", "/bin/x", 2, "No such file"), "/bin/x - (2 - No such file)");
  EXPECT_EQ(format("%f", 2.5), "2.500000");
  EXPECT_EQ(format("%02hX%02hX", 10, 255), "0AFF");
  EXPECT_EQ(format("100%% %@"), "100% (null)");
}

TEST(PlistIoTest, XmlAndBinaryRoundTripKeepsKindsApart) {
  Value root = Value::makeDict();
  root.set("b", true);
  root.set("i", -42);
  root.set("r", 0.25);
  root.set("s", "text & <markup>");
  root.set("d", Value::makeData(std::string("\0\x01\xff", 3)));
  root.set("t", Value(Date{600000000}));
  root.set("a", Value::makeArray({1, "one", Value::makeArray({false})}));
  Value nested = Value::makeDict();
  nested.set("z", "last");
  nested.set("a", "first");
  root.set("n", nested);

  for (const std::string& bytes : {toXml(root), toBinary(root)}) {
    Value back = parsePropertyList(bytes);
    ASSERT_TRUE(back.isDict());
    EXPECT_EQ(back, root);
    EXPECT_TRUE(back.get("b").isBool());
    EXPECT_TRUE(back.get("i").isInteger());
    EXPECT_TRUE(back.get("r").isReal());
    EXPECT_TRUE(back.get("d").isData());
    EXPECT_TRUE(back.get("t").isDate());
    EXPECT_EQ(back.get("n").dict().keys(), (std::vector<std::string>{"z", "a"}));
    EXPECT_EQ(toXml(back), toXml(root));
  }
}

TEST(PlistIoTest, SetsAndNullsWriteAsPropertyListsCanHoldThem) {
  Value root = Value::makeDict();
  root.set("set", Value::makeSet({"b", "a"}));
  root.set("gone", Value());
  Value back = parsePropertyList(toXml(root));
  EXPECT_EQ(back.get("set"), Value::makeArray({"a", "b"}));
  EXPECT_FALSE(back.contains("gone"));
}

TEST(PlistIoTest, MalformedInputGivesNull) {
  EXPECT_TRUE(parsePropertyList("").isNull());
  EXPECT_TRUE(parsePropertyList("<plist><dict><key>a</key>").isNull());
  EXPECT_TRUE(parsePropertyList("bplist00garbage").isNull());
  EXPECT_TRUE(readPropertyListFile("/nonexistent/file.plist").isNull());
  EXPECT_TRUE(readPropertyListFile("/").isNull());
}

}  // namespace
}  // namespace velmar
