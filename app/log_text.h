// The log's text: time-stamped lines, the keywords that are coloured and
// where they are, the log window's fixed texts and text format.

#ifndef VELMAR_APP_LOG_TEXT_H_
#define VELMAR_APP_LOG_TEXT_H_

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace velmar::app {

std::tm localTimeNow();

// "2009/03/14 09:05:07 " (local time, 24-hour clock, one space after).
std::string logTimeStamp(const std::tm& localTime);

// generateString:withTimeStamp:withNewLine: — the time stamp of now when
// wanted, the text, then "\n" when wanted.
std::string generateString(std::string_view text, bool withTimeStamp, bool withNewLine);
// The same at a given local time, for tests and for callers that hold one.
std::string generateString(std::string_view text, bool withTimeStamp, bool withNewLine,
                           const std::tm& localTime);

struct RgbColour {
  double red = 0, green = 0, blue = 0;
  bool operator==(const RgbColour&) const = default;
};

struct LogKeyword {
  std::string_view word;
  RgbColour background;
};

// In the order they are searched: "ERROR" and "FAILED" red, "PASSED" and
// "FINISHED" green, "WARNING" yellow.
const std::vector<LogKeyword>& logKeywords();

struct KeywordRange {
  size_t location = 0;
  size_t length = 0;
  RgbColour background;
  bool operator==(const KeywordRange&) const = default;
};

// Every occurrence of every keyword at or after `start`, keyword by keyword
// in table order and left to right within a keyword; literal and
// case-sensitive, inside longer words too (the FINISHED of UNFINISHED).
// Locations count in the units of the text given: bytes of UTF-8, or UTF-16
// code units for a text view that counts those.
std::vector<KeywordRange> keywordRanges(std::string_view text, size_t start);
std::vector<KeywordRange> keywordRanges(std::u16string_view text, size_t start);

// The log window's title without a log file.
inline constexpr char kLogWindowUntitled[] = "VelmarSNIFF Log";
// The window title for a log file: its last path component, or the
// untitled title for none.
std::string logWindowTitle(const std::string& logFilename);

// Text format: the user's fixed-pitch font at this size, and left tab stops
// every kLogTabInterval points up to kLogTabInterval * kLogTabStopCount.
inline constexpr double kLogFontSize = 10;
inline constexpr double kLogTabInterval = 50;
inline constexpr int kLogTabStopCount = 100;
std::vector<double> logTabStops();

// The question before the log is cleared; "Yes" clears.
inline constexpr char kClearLogTitle[] = "Clear Log";
inline constexpr char kClearLogMessage[] = "Are you sure you want to clear the log file?";
inline constexpr char kClearLogDefaultButton[] = "Yes";
inline constexpr char kClearLogAlternateButton[] = "No";

// The menu item that shows or hides the log window.
inline constexpr char kShowLogWindowTitle[] = "Show Log Window";
inline constexpr char kHideLogWindowTitle[] = "Hide Log Window";
inline const char* toggleLogWindowTitle(bool logWindowVisible) {
  return logWindowVisible ? kHideLogWindowTitle : kShowLogWindowTitle;
}

}  // namespace velmar::app

#endif  // VELMAR_APP_LOG_TEXT_H_
