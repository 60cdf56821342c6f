#include "base/value.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

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

namespace velmar {
namespace {

TEST(ValueTest, DictionariesOrderAsTheyCompareWhateverTheirKeyOrder) {
  Value ab = testing::dictOf({{"a", 1}, {"b", 2}});
  Value ba = testing::dictOf({{"b", 2}, {"a", 1}});
  Value ac = testing::dictOf({{"a", 1}, {"c", 2}});
  ASSERT_EQ(ab, ba);
  EXPECT_EQ(Value::compare(ab, ba), 0);
  EXPECT_EQ(Value::compare(ab, ac), -Value::compare(ac, ab));
  EXPECT_NE(Value::compare(ab, ac), 0);
  // A set of dictionaries keeps one of two equal members, in any order of
  // insertion, and finds each member it holds.
  for (const auto& order : {std::vector<Value>{ab, ac, ba}, std::vector<Value>{ba, ab, ac},
                            std::vector<Value>{ac, ba, ab}}) {
    Value set = Value::makeSet();
    for (const Value& v : order) set.insert(v);
    EXPECT_EQ(set.count(), 2u);
    EXPECT_TRUE(set.containsMember(ab) && set.containsMember(ba) && set.containsMember(ac));
  }
  // The same past the size where dictionaries keep a key index.
  Value big1 = Value::makeDict(), big2 = Value::makeDict();
  for (int i = 0; i < 30; ++i) {
    big1.set("k" + std::to_string(i), i);
    big2.set("k" + std::to_string(29 - i), 29 - i);
  }
  EXPECT_EQ(big1, big2);
  EXPECT_EQ(Value::compare(big1, big2), 0);
  big2.set("k7", 8);
  EXPECT_LT(Value::compare(big1, big2), 0);
  EXPECT_GT(Value::compare(big2, big1), 0);
}

TEST(ValueTest, AValueHasNoTruthValueAndFalseIsNotNull) {
  static_assert(!std::is_constructible_v<bool, Value>, "say isNull() or boolValue()");
  Value no(false);
  EXPECT_FALSE(no.isNull());
  EXPECT_FALSE(no.boolValue());
  EXPECT_TRUE(no.isBool());
  EXPECT_TRUE(Value(true).boolValue());
  EXPECT_EQ(Value(true), Value(1));
  EXPECT_NE(Value(false), Value());
}

TEST(ValueTest, CopiesSurviveTheirOriginalAndEveryKindKeepsItsContents) {
  Value dict = testing::dictOf({{"s", std::string(100, 's')}, {"short", "x"}, {"i", -3}, {"r", 2.5},
                                {"b", false}, {"d", Value(Date{12.5})}, {"data", Value::makeData("\x01")},
                                {"a", testing::arrayOf({1, "two"})}, {"set", testing::setOf({"z", "y"})}});
  Value copy;
  {
    Value original = dict;
    copy = original;
    original.set("s", "changed");
    original.arrMut();  // replaces the dictionary with an array
    EXPECT_TRUE(original.isArray());
  }
  EXPECT_EQ(copy, dict);
  EXPECT_EQ(copy.get("s").str(), std::string(100, 's'));
  EXPECT_EQ(copy.get("d").dateValue().seconds, 12.5);
  EXPECT_EQ(copy.get("set").strings(), (std::vector<std::string>{"y", "z"}));
  Value moved = std::move(copy);
  EXPECT_TRUE(copy.isNull());  // NOLINT(bugprone-use-after-move): moved-from is null
  EXPECT_EQ(moved.count(), 9u);
  moved = moved;  // self-assignment keeps the value
  EXPECT_EQ(moved.count(), 9u);
}

}  // namespace
}  // namespace velmar
