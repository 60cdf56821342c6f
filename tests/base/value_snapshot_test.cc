// Snapshots of parsed property lists: what goes in comes back exactly, equal
// subtrees come back shared, and damaged or hostile snapshots read as null.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>

#include "base/file_bytes.h"
#include "base/plist_io.h"
#include "base/value_snapshot.h"
#include "synth/bundle_builder.h"
#include "synth/factory_bundle.h"
#include "tests/base/value_compare.h"
#include "tests/base/value_literals.h"

namespace velmar {
namespace {

using testing::arrayOf;
using testing::dictOf;

constexpr uint64_t kAnyTree = uint64_t{1} << 40;

// Same kinds, same key order, bit-identical numbers.
::testing::AssertionResult identical(const Value& a, const Value& b) {
  return testing::identicalValues(a, b, testing::Numbers::BitIdentical);
}

std::string snapshotOf(const Value& v) {
  std::string bytes;
  EXPECT_TRUE(encodeSnapshot(v, size_t{1} << 30, &bytes));
  return bytes;
}

Value roundTrip(const Value& v) { return decodeSnapshot(snapshotOf(v), kAnyTree); }

// Hand-made snapshots for the decoder's refusals.
std::string varint(uint64_t v) {
  std::string out;
  while (v >= 0x80) {
    out.push_back(static_cast<char>((v & 0x7f) | 0x80));
    v >>= 7;
  }
  out.push_back(static_cast<char>(v));
  return out;
}
std::string stringRecord(const std::string& text) { return "\x04" + varint(text.size()) + text; }
// A dictionary of one key record `k` and one value record `v`.
std::string dictRecord(uint64_t k, uint64_t v) { return "\x08\x01" + varint(k) + varint(v); }
std::string arrayRecord(std::initializer_list<uint64_t> members) {
  std::string out = "\x07" + varint(members.size());
  for (uint64_t m : members) out += varint(m);
  return out;
}

TEST(ValueSnapshotTest, EveryKindComesBackExactly) {
  Value v = dictOf({
      {"z-first", true},
      {"a-second", false},
      {"ints", arrayOf({0, -1, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()})},
      {"reals", arrayOf({0.5, -0.0, 1e-300, std::numeric_limits<double>::infinity()})},
      {"strings", arrayOf({"", "caf\xC3\xA9 \xE2\x82\xAC", std::string(300, 'x')})},
      {"date", Value(Date{-12345.678})},
      {"data", Value::makeData(std::string("\x00\xff\x01", 3))},
      {"empty", dictOf({{"a", Value::makeArray()}, {"d", Value::makeDict()}})},
      {"", "empty key"},
  });
  EXPECT_TRUE(identical(roundTrip(v), v));
  Value nan = roundTrip(arrayOf({std::numeric_limits<double>::quiet_NaN()}));
  EXPECT_TRUE(std::isnan(nan.arr().at(0).realValue()));
  // A scalar alone is a property list too.
  EXPECT_TRUE(identical(roundTrip(Value("alone")), Value("alone")));
}

TEST(ValueSnapshotTest, PropertyListsOfEveryOriginComeBackAsParsed) {
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(std::filesystem::path(VELMAR_SOURCE_DIR) / "sample")) {
    if (entry.path().extension() != ".plist") continue;
    std::string bytes;
    ASSERT_EQ(readFileBytes(entry.path(), &bytes), 0);
    Value parsed = parsePropertyList(bytes);
    EXPECT_TRUE(identical(roundTrip(parsed), parsed)) << entry.path();
  }
  // A factory manifest, and the same in binary, whose reader keeps shared
  // strings shared.
  for (const synth::BundleEntry& entry : synth::layoutBundle(synth::factoryBundle(2, 3))) {
    if (!entry.path.ends_with("BuildManifest.plist")) continue;
    Value parsed = parsePropertyList(entry.contents);
    ASSERT_FALSE(parsed.isNull());
    EXPECT_TRUE(identical(roundTrip(parsed), parsed));
    EXPECT_TRUE(identical(roundTrip(parsePropertyList(toBinary(parsed))), parsed));
  }
}

TEST(ValueSnapshotTest, EqualSubtreesAreWrittenOnceAndComeBackShared) {
  Value item = dictOf({{"Digest", Value::makeData(std::string(48, 'd'))},
                       {"Info", dictOf({{"Path", "Firmware/some/long/path/to/a/file.img"}})}});
  Value many = Value::makeArray();
  for (int i = 0; i < 1000; ++i) many.append(dictOf({{"Item", item}}));
  const std::string one = snapshotOf(arrayOf({dictOf({{"Item", item}})}));
  const std::string all = snapshotOf(many);
  // A thousand copies cost a thousand references, not a thousand items.
  EXPECT_LT(all.size(), one.size() + 3 * 1000);
  Value back = decodeSnapshot(all, kAnyTree);
  ASSERT_EQ(back.count(), 1000u);
  EXPECT_TRUE(back.arr()[0].sharesStorageWith(back.arr()[999]));
  EXPECT_TRUE(identical(back, many));
  // Each reader's change stays its own.
  Value changed = back;
  changed.arrMut()[0].dictMut().set("Item", "replaced");
  EXPECT_TRUE(identical(back, many));
}

TEST(ValueSnapshotTest, RefusesWhatAPropertyListCannotHoldOrWhatIsTooLarge) {
  std::string bytes;
  EXPECT_FALSE(encodeSnapshot(arrayOf({1, Value()}), 1 << 20, &bytes));
  EXPECT_FALSE(encodeSnapshot(dictOf({{"set", Value::makeSet({1})}}), 1 << 20, &bytes));
  EXPECT_FALSE(encodeSnapshot(Value(), 1 << 20, &bytes));
  EXPECT_FALSE(encodeSnapshot(Value(std::string(2000, 'x')), 1000, &bytes));
  Value deep = Value::makeArray();
  for (int i = 0; i < 600; ++i) deep = arrayOf({deep});
  EXPECT_FALSE(encodeSnapshot(deep, 1 << 20, &bytes));
}

TEST(ValueSnapshotTest, DamagedSnapshotsReadAsNullOrAValueNeverACrash) {
  const std::string good = snapshotOf(dictOf({{"a", arrayOf({1, "two", 3.5, true, "two"})},
                                              {"d", Value::makeData("\x01\x02")},
                                              {"t", Value(Date{1000})}}));
  ASSERT_FALSE(decodeSnapshot(good, kAnyTree).isNull());
  for (size_t n = 0; n < good.size(); ++n)
    EXPECT_TRUE(decodeSnapshot(good.substr(0, n), kAnyTree).isNull()) << "cut at " << n;
  EXPECT_TRUE(decodeSnapshot(good + "x", kAnyTree).isNull());
  for (size_t i = 0; i < good.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = good;
      damaged[i] = static_cast<char>(damaged[i] ^ (1 << bit));
      decodeSnapshot(damaged, kAnyTree);  // anything but a crash
    }
  }
}

TEST(ValueSnapshotTest, RefusesHostileRecords) {
  auto decode = [](const std::string& records, uint64_t count) {
    return decodeSnapshot(varint(count) + records, kAnyTree);
  };
  EXPECT_FALSE(decode(stringRecord("ok"), 1).isNull());
  EXPECT_TRUE(decode(arrayRecord({0}), 1).isNull());                        // itself
  EXPECT_TRUE(decode(arrayRecord({1}) + stringRecord("x"), 2).isNull());    // a later record
  EXPECT_TRUE(decode(dictRecord(0, 0), 1).isNull());                        // dict of itself
  EXPECT_TRUE(decode("\x02\x01\x02\x03", 1).isNull());                      // short integer
  EXPECT_TRUE(decode("\x09", 1).isNull());                                  // unknown kind
  EXPECT_TRUE(decode(stringRecord("\xC3("), 1).isNull());                   // not UTF-8
  EXPECT_TRUE(decode("\x04\xff\xff\xff\xff\xff\xff\xff\xff\xff\x7f", 1).isNull());  // huge length
  EXPECT_TRUE(decodeSnapshot(varint(uint64_t{1} << 60) + stringRecord("x"), kAnyTree).isNull());
  // A key that is no string, or holds NUL.
  EXPECT_TRUE(decode("\x02" + std::string(8, '\0') + dictRecord(0, 0), 2).isNull());
  EXPECT_TRUE(decode(stringRecord(std::string("a\0b", 3)) + dictRecord(0, 0), 2).isNull());
  EXPECT_FALSE(decode(stringRecord("k") + dictRecord(0, 0), 2).isNull());

  // Nesting deeper than any reader allows.
  std::string deep = arrayRecord({});
  for (uint64_t i = 1; i <= 600; ++i) deep += "\x07\x01" + varint(i - 1);
  EXPECT_TRUE(decode(deep, 601).isNull());
  // Records that share their way to 2^60 values: refused by the bound, not
  // unfolded.
  std::string bomb = stringRecord("x");
  for (uint64_t i = 1; i <= 60; ++i) bomb += "\x07\x02" + varint(i - 1) + varint(i - 1);
  EXPECT_TRUE(decodeSnapshot(varint(61) + bomb, 1 << 20).isNull());
  EXPECT_FALSE(decodeSnapshot(varint(11) + bomb.substr(0, 3 + 10 * 4), 1 << 20).isNull());
}

}  // namespace
}  // namespace velmar
