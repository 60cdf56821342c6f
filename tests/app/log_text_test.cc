#include "app/log_text.h"

#include <gtest/gtest.h>

#include <regex>

#include "tests/app/app_test_support.h"

namespace velmar::app {

void PrintTo(const KeywordRange& r, std::ostream* os) {
  *os << "{" << r.location << ", " << r.length << ", rgb(" << r.background.red << ","
      << r.background.green << "," << r.background.blue << ")}";
}

namespace {

constexpr RgbColour kRed{1, 0, 0};
constexpr RgbColour kGreen{0, 1, 0};
constexpr RgbColour kYellow{1, 1, 0};

TEST(GenerateStringTest, StampTextAndLineBreakAsAsked) {
  EXPECT_EQ(generateString("Stripping FINISHED.", true, true, testing::march14()),
            "2009/03/14 09:05:07 Stripping FINISHED.\n");
  EXPECT_EQ(generateString("", true, false, testing::march14()), "2009/03/14 09:05:07 ");
  EXPECT_EQ(generateString("x", false, false, testing::march14()), "x");
  EXPECT_TRUE(std::regex_match(generateString("now", true, true),
                               std::regex(R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d now\n)")));
}

TEST(KeywordRangeTest, ColoursExactlyTheKeywords) {
  std::string line = "XXX ERROR: step FAILED at 3";
  EXPECT_EQ(keywordRanges(line, 0),
            (std::vector<KeywordRange>{{4, 5, kRed}, {16, 6, kRed}}));
}

TEST(KeywordRangeTest, EveryOccurrenceAndInsideWords) {
  std::string text = "WARNING WRNING WARNING UNFINISHED ERRORS PASSED";
  EXPECT_EQ(keywordRanges(text, 0),
            (std::vector<KeywordRange>{{34, 5, kRed}, {41, 6, kGreen}, {25, 8, kGreen},
                                       {0, 7, kYellow}, {15, 7, kYellow}}));
}

TEST(KeywordRangeTest, StartsAtTheAddedText) {
  std::string log = "old ERROR\nnew ERROR error\n";
  EXPECT_EQ(keywordRanges(log, 10), (std::vector<KeywordRange>{{14, 5, kRed}}));
  EXPECT_TRUE(keywordRanges(log, log.size()).empty());
  EXPECT_TRUE(keywordRanges(log, log.size() + 5).empty());
}

TEST(KeywordRangeTest, Utf16LocationsForATextViewThatCountsThem) {
  // "é" is two bytes of UTF-8 but one UTF-16 unit.
  EXPECT_EQ(keywordRanges(std::string_view("\xC3\xA9 FAILED"), 0)[0].location, 3u);
  EXPECT_EQ(keywordRanges(std::u16string_view(u"\u00e9 FAILED"), 0)[0].location, 2u);
}

TEST(LogWindowTextTest, TitleAndTabStops) {
  EXPECT_EQ(logWindowTitle(""), "VelmarSNIFF Log");
  EXPECT_EQ(logWindowTitle("/home/u/Library/Logs/VelmarBS.log"), "VelmarBS.log");
  std::vector<double> stops = logTabStops();
  ASSERT_EQ(stops.size(), 100u);
  EXPECT_EQ(stops.front(), 50);
  EXPECT_EQ(stops.back(), 5000);
}

}  // namespace
}  // namespace velmar::app
