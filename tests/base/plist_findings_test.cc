// The inputs the property-list reader's fuzz target found (fuzz/findings/),
// each with what must happen to it now. Whatever a reader takes, both
// writers must write and both readers read back to the same value.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>

#include "base/file_bytes.h"
#include "base/plist_io.h"
#include "base/plist_text.h"

namespace velmar {
namespace {

Value finding(const char* name) {
  std::string bytes;
  EXPECT_EQ(readFileBytes(std::filesystem::path(VELMAR_SOURCE_DIR) / "fuzz/findings" / name, &bytes), 0) << name;
  return parsePropertyList(bytes);
}

// What the fuzz target checks: XML written, read and written again is the
// same text; binary read back says the same as XML; binary keeps the value
// whole.
void expectWrittenAndReadBack(const Value& v) {
  const std::string xml = toXml(v);
  Value fromXml = parsePropertyList(xml);
  ASSERT_FALSE(fromXml.isNull());
  EXPECT_EQ(toXml(fromXml), xml);
  Value fromBinary = parsePropertyList(toBinary(v));
  ASSERT_FALSE(fromBinary.isNull());
  EXPECT_EQ(toXml(fromBinary), xml);
  EXPECT_EQ(fromBinary, v);
}

TEST(PlistFindingsTest, TextXmlCannotHoldIsRefused) {
  // A UTF-16 dictionary key holding U+0000 (it once aborted the tool).
  EXPECT_TRUE(finding("plist_key_utf16_nul.bplist").isNull());
  // A string holding NUL, which the binary writer cut short.
  EXPECT_TRUE(finding("plist_binary_string_with_nul.bplist").isNull());
  // Control characters and bytes that are not UTF-8 in a string, which the
  // XML writer wrote as they were.
  EXPECT_TRUE(finding("plist_string_not_utf8.bplist").isNull());
}

TEST(PlistFindingsTest, DatesOutsideTheYearsXmlCanHoldAreRefused) {
  // A date 10^161 seconds away, which the writers once converted to a
  // 32-bit count with undefined behaviour.
  EXPECT_TRUE(finding("plist_date_beyond_int32.bplist").isNull());
  // Beyond 32 bits but inside the years 1 to 9999 is a date like any other.
  for (double seconds : {3e9, -3e9, 2.5e11}) {
    SCOPED_TRACE(seconds);
    expectWrittenAndReadBack(Value(Date{seconds}));
  }
}

TEST(PlistFindingsTest, ADateWithAFractionOfASecondKeepsItInBinary) {
  // 2000-12-31T18:39:00.778309Z, which came back from the binary writer
  // one second later.
  Value v = finding("plist_date_fraction_rounds.bplist");
  ASSERT_TRUE(v.isDate());
  EXPECT_NE(v.dateValue().seconds, std::floor(v.dateValue().seconds));
  expectWrittenAndReadBack(v);
}

}  // namespace
}  // namespace velmar
