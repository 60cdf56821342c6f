// Dates: the calendar arithmetic, and the years 1 to 9999 as the one range
// both readers take.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>

#include "base/plist_date.h"
#include "base/plist_io.h"

namespace velmar {
namespace {

constexpr int64_t kUnixSecondsAt2001 = 978307200;

TEST(PlistDateTest, CalendarAgreesWithTheCLibraryAndRoundTrips) {
  // Every 9,999,991 seconds (about 116 days, no divisor of a day) from 1901
  // to 2300, and the days around the reference date.
  for (int64_t s = -3155673600; s < 9467280000; s += 9999991) {
    const time_t unix = static_cast<time_t>(s + kUnixSecondsAt2001);
    struct tm tm;
    ASSERT_NE(gmtime_r(&unix, &tm), nullptr);
    CivilTime t = civilTimeOf(s);
    ASSERT_EQ(t.year, tm.tm_year + 1900) << s;
    ASSERT_EQ(t.month, tm.tm_mon + 1) << s;
    ASSERT_EQ(t.day, tm.tm_mday) << s;
    ASSERT_EQ(t.hour * 3600 + t.minute * 60 + t.second, tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec) << s;
    ASSERT_EQ(secondsOfCivilTime(t.year, t.month, t.day, t.hour, t.minute, t.second), s);
  }
  for (int64_t s = -3 * 86400; s < 3 * 86400; s += 3599) {
    CivilTime t = civilTimeOf(s);
    EXPECT_EQ(secondsOfCivilTime(t.year, t.month, t.day, t.hour, t.minute, t.second), s);
  }
  // Fields out of their ranges carry as timegm carries them.
  EXPECT_EQ(secondsOfCivilTime(2001, 13, 1, 0, 0, 0), secondsOfCivilTime(2002, 1, 1, 0, 0, 0));
  EXPECT_EQ(secondsOfCivilTime(2001, 0, 0, 0, 0, 0), secondsOfCivilTime(2000, 11, 30, 0, 0, 0));
  EXPECT_EQ(secondsOfCivilTime(2001, 3, 1, -1, 0, 0), secondsOfCivilTime(2001, 2, 28, 23, 0, 0));
  EXPECT_EQ(secondsOfCivilTime(1, 1, 1, 0, 0, 0), kEarliestPropertyListDate);
  EXPECT_EQ(secondsOfCivilTime(9999, 12, 31, 23, 59, 60), kPropertyListDateLimit);
  CivilTime last = civilTimeOf(static_cast<int64_t>(kPropertyListDateLimit) - 1);
  EXPECT_EQ(last.year, 9999);
  EXPECT_EQ(last.second, 59);
}

Value xmlDate(const std::string& text) { return parsePropertyList("<plist><date>" + text + "</date></plist>"); }

TEST(PlistDateTest, XmlDatesReadInTheYearsOneToNineThousandNineHundredNinetyNine) {
  EXPECT_EQ(xmlDate("0001-01-01T00:00:00Z").dateValue().seconds, kEarliestPropertyListDate);
  EXPECT_EQ(xmlDate("9999-12-31T23:59:59Z").dateValue().seconds, kPropertyListDateLimit - 1);
  EXPECT_EQ(xmlDate(" 2001-01-01T00:00:01Z ").dateValue().seconds, 1);
  for (const char* outside : {"0000-12-31T23:59:59Z", "10000-01-01T00:00:00Z", "9999-12-31T23:59:60Z",
                              "-2001-01-01T00:00:00Z", "2001-01-01T999999999:00:00Z",
                              "2001-01-01T00:00:1234567890Z", "2001-01-01T-99999999:00:00Z",
                              "999999999-01-01T00:00Z"}) {
    EXPECT_TRUE(xmlDate(outside).isNull()) << outside;
  }
  // Read field by field as the project always has: fields out of range
  // carry, a field that does not match ends the date, and text too short or
  // too long to be one is 1970-01-01.
  EXPECT_EQ(xmlDate("2001-13-01T00:00:00Z").dateValue().seconds, 365 * 86400);
  EXPECT_EQ(xmlDate("2001-01-02T").dateValue().seconds, 86400);
  EXPECT_EQ(xmlDate("2001-01-02Tjunk:00:00Z").dateValue().seconds, 86400);
  EXPECT_EQ(xmlDate("2001-01-01").dateValue().seconds, -kUnixSecondsAt2001);
  EXPECT_EQ(xmlDate("").dateValue().seconds, 0);
}

std::string binaryDate(double seconds) {
  uint64_t bits;
  std::memcpy(&bits, &seconds, sizeof bits);
  std::string out = "bplist00\x33";
  for (int i = 7; i >= 0; --i) out += static_cast<char>((bits >> (8 * i)) & 0xFF);
  out += '\x08';  // the offset table: one object at offset 8
  out += std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + "\x01" + std::string(15, '\0') + "\x11";
  return out;
}

TEST(PlistDateTest, BinaryDatesReadInTheYearsOneToNineThousandNineHundredNinetyNine) {
  for (double fine : {0.0, -1.5, 0.000001, kEarliestPropertyListDate, kPropertyListDateLimit - 0.001, 3e9}) {
    Value v = parsePropertyList(binaryDate(fine));
    ASSERT_TRUE(v.isDate()) << fine;
    EXPECT_EQ(v.dateValue().seconds, fine);
  }
  for (double outside : {std::nan(""), std::numeric_limits<double>::infinity(),
                         -std::numeric_limits<double>::infinity(), 1e300, -1e300,
                         kEarliestPropertyListDate - 0.5, kPropertyListDateLimit}) {
    EXPECT_TRUE(parsePropertyList(binaryDate(outside)).isNull()) << outside;
  }
}

}  // namespace
}  // namespace velmar
