#include "app/log_text.h"

#include "app/paths.h"

namespace velmar::app {

std::string logTimeStamp(const std::tm& localTime) {
  char buffer[64];
  size_t n = std::strftime(buffer, sizeof buffer, "%Y/%m/%d %H:%M:%S ", &localTime);
  return std::string(buffer, n);
}

std::string generateString(std::string_view text, bool withTimeStamp, bool withNewLine,
                           const std::tm& localTime) {
  std::string line;
  if (withTimeStamp) line = logTimeStamp(localTime);
  line.append(text);
  if (withNewLine) line.push_back('\n');
  return line;
}

std::tm localTimeNow() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return local;
}

std::string generateString(std::string_view text, bool withTimeStamp, bool withNewLine) {
  return generateString(text, withTimeStamp, withNewLine, localTimeNow());
}

const std::vector<LogKeyword>& logKeywords() {
  static const std::vector<LogKeyword> table = {
      {"ERROR", {1, 0, 0}},
      {"FAILED", {1, 0, 0}},
      {"PASSED", {0, 1, 0}},
      {"FINISHED", {0, 1, 0}},
      {"WARNING", {1, 1, 0}},
  };
  return table;
}

namespace {

template <class View>
std::vector<KeywordRange> findKeywords(View text, size_t start) {
  std::vector<KeywordRange> ranges;
  if (start > text.size()) return ranges;
  for (const auto& keyword : logKeywords()) {
    // Keywords are ASCII, so they read the same in either code unit.
    typename View::value_type word[16];
    size_t length = keyword.word.size();
    for (size_t i = 0; i < length; ++i) word[i] = static_cast<typename View::value_type>(keyword.word[i]);
    View needle(word, length);
    for (size_t at = text.find(needle, start); at != View::npos; at = text.find(needle, at + length)) {
      ranges.push_back({at, length, keyword.background});
    }
  }
  return ranges;
}

}  // namespace

std::vector<KeywordRange> keywordRanges(std::string_view text, size_t start) {
  return findKeywords(text, start);
}

std::vector<KeywordRange> keywordRanges(std::u16string_view text, size_t start) {
  return findKeywords(text, start);
}

std::string logWindowTitle(const std::string& logFilename) {
  return logFilename.empty() ? std::string(kLogWindowUntitled) : lastPathComponent(logFilename);
}

std::vector<double> logTabStops() {
  std::vector<double> stops;
  for (int i = 1; i <= kLogTabStopCount; ++i) stops.push_back(kLogTabInterval * i);
  return stops;
}

}  // namespace velmar::app
