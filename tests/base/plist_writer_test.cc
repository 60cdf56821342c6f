// The property-list writers against libplist (the oracle) on every value
// libplist writes correctly, and on their own where it does not: text a
// property list cannot hold, dates outside what a 32-bit count of seconds
// holds or with a fraction of a second.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "base/file_bytes.h"
#include "base/plist_date.h"
#include "base/plist_io.h"
#include "base/plist_text.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "tests/base/libplist_oracle.h"
#include "tests/base/plist_corpus.h"
#include "tests/base/value_literals.h"

namespace velmar {
namespace {

using testing::arrayOf;
using testing::dictOf;

// The first line where two texts differ, for a readable failure.
std::string firstDifference(const std::string& a, const std::string& b) {
  size_t at = 0;
  while (at < a.size() && at < b.size() && a[at] == b[at]) ++at;
  size_t lineStart = a.rfind('\n', at == 0 ? 0 : at - 1);
  lineStart = lineStart == std::string::npos ? 0 : lineStart + 1;
  return "at byte " + std::to_string(at) + ": \"" + a.substr(lineStart, at - lineStart + 20) + "\" vs \"" +
         b.substr(lineStart, at - lineStart + 20) + "\"";
}

// Whether `v` holds two equal data objects. libplist then writes some of
// them once and some twice, depending on where its nodes lie in memory.
bool holdsRepeatedData(const Value& v) {
  std::set<std::string> seen;
  bool repeated = false;
  auto walk = [&](const auto& self, const Value& item) -> void {
    if (item.isData()) {
      repeated = repeated || !seen.insert(item.dataValue().bytes).second;
    } else if (item.isDict()) {
      for (const auto& entry : item.dict()) self(self, entry.second);
    } else if (item.isArray()) {
      for (const Value& member : item.arr()) self(self, member);
    }
  };
  walk(walk, v);
  return repeated;
}

void expectLibplistBytes(const Value& v, const std::string& what) {
  const std::string xml = toXml(v), oracleXml = testing::toXmlWithLibplist(v);
  EXPECT_TRUE(xml == oracleXml) << what << " as XML, " << firstDifference(xml, oracleXml);
  const std::string binary = toBinary(v);
  if (holdsRepeatedData(v)) {
    // The same value, however libplist would have shared the data.
    EXPECT_EQ(testing::parseWithLibplist(binary), v.isNull() ? Value(Dict()) : v) << what << " as binary";
    EXPECT_EQ(parsePropertyList(binary), v.isNull() ? Value(Dict()) : v) << what << " as binary";
    return;
  }
  const std::string oracleBinary = testing::toBinaryWithLibplist(v);
  EXPECT_TRUE(binary == oracleBinary) << what << " as binary, " << firstDifference(binary, oracleBinary);
}

Value readSample(const std::filesystem::path& path) {
  std::string bytes;
  EXPECT_EQ(readFileBytes(path, &bytes), 0) << path;
  return parsePropertyList(bytes);
}

TEST(PlistWriterTest, SampleAndSynthesizedPropertyListsAreWrittenAsLibplistWritesThem) {
  std::filesystem::path sample = std::filesystem::path(VELMAR_SOURCE_DIR) / "sample";
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(sample)) {
    if (entry.path().extension() != ".plist") continue;
    Value v = readSample(entry.path());
    ASSERT_FALSE(v.isNull()) << entry.path();
    expectLibplistBytes(v, entry.path());
    ++files;
  }
  EXPECT_GE(files, 5);
  // The large manifest holds 290,000 values: the whole file layout,
  // reference widths of three bytes among them.
  for (const auto& bundle : {synth::sampleBundle(), synth::largeBundle(synth::kLargeBundleProducts)}) {
    for (const synth::BundleEntry& entry : synth::layoutBundle(bundle)) {
      if (!entry.path.ends_with(".plist") || entry.kind != synth::BundleEntry::Kind::File) continue;
      expectLibplistBytes(parsePropertyList(entry.contents), entry.path);
    }
  }
}

TEST(PlistWriterTest, OddButValidPropertyListsAreWrittenAsLibplistWritesThem) {
  for (const std::string& body : testing::oddButValidXmlBodies()) {
    Value v = parsePropertyList(testing::xmlPlist(body));
    ASSERT_FALSE(v.isNull()) << body;
    expectLibplistBytes(v, body);
  }
  for (const Value& v : testing::oddButValidBinaryValues()) expectLibplistBytes(v, v.description().substr(0, 60));
  const std::filesystem::path seeds = std::filesystem::path(VELMAR_SOURCE_DIR) / "fuzz/corpus/plist";
  for (const char* valid : {"manifest.xml", "manifest.bplist", "entities.xml", "bom.xml"})
    expectLibplistBytes(readSample(seeds / valid), valid);
}

TEST(PlistWriterTest, EveryKindAndLayoutIsWrittenAsLibplistWritesIt) {
  // Reals in each of their written forms, integers of every width, text
  // that needs escaping or UTF-16, containers empty, holding only nulls,
  // and sets.
  Value reals = arrayOf({0.0, -0.0, 1.0, 1.5, 0.1, 1e308, -2.25e-3, 1e-300, std::nan(""),
                         std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                         123456789.0, 1e16, 1e17, 5e-324, 1e21, 3.4028234663852886e38, 3.5e38});
  Value integers = arrayOf({0, 1, 255, 256, 65535, 65536, 16777216, Value(4294967295LL), Value(4294967296LL),
                            -1, Value(INT64_MIN), Value(INT64_MAX)});
  Value text = dictOf({{"a<b>&c", "x<y>z&amp; \"q\" 'a' ]]> \t\r\n"}, {"", ""},
                       {"caf\xC3\xA9", "\xE2\x82\xAC \xF0\x9F\x98\x80 \x7F"},
                       {"fifteen chars..", std::string(15, 'z')}, {"u16", "\xC3\xA9" + std::string(20, 'e')}});
  Value containers = arrayOf({Value::makeArray(), Value::makeDict(), arrayOf({Value(), Value()}),
                              dictOf({{"gone", Value()}}), testing::setOf({"b", "a", 3}),
                              dictOf({{"k", Value()}, {"kept", true}}), arrayOf({Value(), false})});
  // Repeated scalars are shared in binary, containers are not; a key and a
  // string of the same text are two objects.
  Value repeats = dictOf({{"x", "x"}, {"y", "x"}, {"t", true}, {"f", true}, {"n", 7}, {"m", 7},
                          {"a1", Value::makeArray()}, {"a2", Value::makeArray()},
                          {"when", Value(Date{100})}, {"again", Value(Date{100})}});
  Value dates = arrayOf({Value(Date{0}), Value(Date{-1}), Value(Date{-978307200}), Value(Date{100.5}),
                         Value(Date{2147483647}), Value(Date{-2147483647})});
  for (const Value& v : {reals, integers, text, containers, repeats, dates, Value(), Value("root"), Value(3),
                         Value::makeData(std::string(200, '\x01'))})
    expectLibplistBytes(v, v.description().substr(0, 60));

  // Data lines shrink with the indentation, which stops at eight tabs.
  std::string bytes;
  for (int i = 0; i < 100; ++i) bytes += static_cast<char>(i);
  Value nested = arrayOf({Value::makeData(""), Value::makeData("abc")});
  for (int depth = 0; depth < 12; ++depth) {
    for (size_t size : {bytes.size(), size_t{57}, size_t{58}, size_t{1}, size_t{2}})
      nested.append(Value::makeData(bytes.substr(0, size)));
    nested = arrayOf({nested});
  }
  expectLibplistBytes(nested, "data at every depth");

  // Past 255 and 65,535 objects references and offsets widen.
  for (int count : {254, 255, 256, 65534, 65535, 65536}) {
    Array many;
    for (int i = 0; i < count; ++i) many.push_back(Value("s" + std::to_string(i)));
    expectLibplistBytes(Value(std::move(many)), std::to_string(count) + " strings");
  }
}

// What neither form can hold, in a value made in code.
TEST(PlistWriterTest, TextAPropertyListCannotHoldIsReplaced) {
  const std::string bad[] = {
      std::string("nul\0here", 8), "bell\x07", "\x1F", "lone \x80 byte", "cut \xE2\x82", "overlong \xC0\xAF",
      "surrogate \xED\xA0\x80", "noncharacter \xEF\xBF\xBE and \xEF\xBF\xBF", "high \xF4\x90\x80\x80"};
  const std::string expected[] = {
      "nul\xEF\xBF\xBDhere", "bell\xEF\xBF\xBD", "\xEF\xBF\xBD", "lone \xEF\xBF\xBD byte", "cut \xEF\xBF\xBD",
      "overlong \xEF\xBF\xBD\xEF\xBF\xBD", "surrogate \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD",
      "noncharacter \xEF\xBF\xBD and \xEF\xBF\xBD", "high \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"};
  for (size_t i = 0; i < std::size(bad); ++i) {
    EXPECT_FALSE(isPropertyListText(bad[i])) << i;
    EXPECT_EQ(propertyListText(bad[i]), expected[i]) << i;
    EXPECT_TRUE(isPropertyListText(expected[i])) << i;
    Value v = dictOf({{"k", bad[i]}});
    v.set(bad[i] + "<&>", arrayOf({bad[i]}));
    Value written = dictOf({{"k", expected[i]}});
    written.set(expected[i] + "<&>", arrayOf({expected[i]}));
    // Both forms carry the replaced text, in the layout of a valid value.
    EXPECT_EQ(toXml(v), toXml(written)) << i;
    EXPECT_EQ(parsePropertyList(toXml(v)), written) << i;
    EXPECT_EQ(toBinary(v), toBinary(written)) << i;
    EXPECT_EQ(parsePropertyList(toBinary(v)), written) << i;
  }
  // Tab, line feed, carriage return and the last characters below and
  // above the noncharacters stay.
  const std::string fine = "\t\n\r \xEF\xBF\xBD \xF0\x90\x80\x80 \xF4\x8F\xBF\xBF";
  EXPECT_TRUE(isPropertyListText(fine));
  EXPECT_EQ(parsePropertyList(toXml(Value(fine))), Value(fine));
  EXPECT_EQ(parsePropertyList(toBinary(Value(fine))), Value(fine));
}

TEST(PlistWriterTest, DatesCoverTheYearsOneToNineThousandNineHundredNinetyNine) {
  struct Case {
    double seconds;
    const char* xml;
  };
  const Case cases[] = {
      {kEarliestPropertyListDate, "0001-01-01T00:00:00Z"},
      {kPropertyListDateLimit - 0.25, "9999-12-31T23:59:59Z"},
      {-1.5, "2000-12-31T23:59:58Z"},  // the second it falls in, not the one nearer 2001
      {0.999, "2001-01-01T00:00:00Z"},
      {-978307200, "1970-01-01T00:00:00Z"},
      {4102444800.0 - 978307200 + 86400 * 59 - 1, "2100-02-28T23:59:59Z"},  // 2100 is no leap year
      {-26524800, "2000-02-29T00:00:00Z"},  // 2000 is one
      {-31622400.0 - 86400 * 307, "1999-02-28T00:00:00Z"},
      {-63113904000.0 + 86400.0 * 365 * 3 + 86400 * 59, "0004-02-29T00:00:00Z"},  // year 4 is a leap year
      {3e9, "2096-01-25T05:20:00Z"},
      {-3e9, "1905-12-08T18:40:00Z"},
  };
  for (const Case& c : cases) {
    const std::string xml = toXml(Value(Date{c.seconds}));
    EXPECT_NE(xml.find(std::string("<date>") + c.xml + "</date>"), std::string::npos) << c.seconds << "\n" << xml;
    // XML keeps the whole second, binary the whole double.
    EXPECT_EQ(parsePropertyList(xml).dateValue().seconds, std::floor(c.seconds)) << c.xml;
    Value fromBinary = parsePropertyList(toBinary(Value(Date{c.seconds})));
    ASSERT_TRUE(fromBinary.isDate()) << c.xml;
    EXPECT_EQ(fromBinary.dateValue().seconds, c.seconds) << c.xml;
  }
  // Made in code beyond the range, or not a number: the nearest date the
  // range holds, or the reference date.
  const std::pair<double, const char*> clamped[] = {
      {-1e300, "0001-01-01T00:00:00Z"},
      {kEarliestPropertyListDate - 1, "0001-01-01T00:00:00Z"},
      {kPropertyListDateLimit, "9999-12-31T23:59:59Z"},
      {std::numeric_limits<double>::infinity(), "9999-12-31T23:59:59Z"},
      {std::nan(""), "2001-01-01T00:00:00Z"},
  };
  for (const auto& [seconds, text] : clamped) {
    EXPECT_NE(toXml(Value(Date{seconds})).find(text), std::string::npos) << text;
    Value fromBinary = parsePropertyList(toBinary(Value(Date{seconds})));
    ASSERT_TRUE(fromBinary.isDate()) << text;
    EXPECT_EQ(toXml(fromBinary), toXml(Value(Date{seconds}))) << text;
  }
}

TEST(PlistWriterTest, WhatIsReadIsWrittenAndReadBackUnchanged) {
  std::vector<Value> values = testing::oddButValidBinaryValues();
  for (const std::string& body : testing::oddButValidXmlBodies()) values.push_back(parsePropertyList(body));
  values.push_back(readSample(std::filesystem::path(VELMAR_SOURCE_DIR) / "sample/Bundle/Restore/BuildManifest.plist"));
  for (const Value& v : values) {
    ASSERT_FALSE(v.isNull());
    const std::string xml = toXml(v);
    EXPECT_EQ(toXml(parsePropertyList(xml)), xml);
    EXPECT_EQ(toXml(parsePropertyList(toBinary(v))), xml);
    const std::string binary = toBinary(v);
    EXPECT_EQ(toBinary(parsePropertyList(binary)), binary);
  }
}

}  // namespace
}  // namespace velmar
