// The --help text is the source of the manual page (help2man) and must name
// the same words as the parser and the bash completion.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "tool/command_line.h"

namespace velmar::tool {
namespace {

std::set<std::string> optionWords(const std::string& text) {
  std::set<std::string> words;
  static const std::regex word("--[A-Za-z][A-Za-z-]*");
  for (auto it = std::sregex_iterator(text.begin(), text.end(), word); it != std::sregex_iterator(); ++it)
    words.insert(it->str());
  return words;
}

std::string completionWordList() {
  std::ifstream in(VELMAR_SOURCE_DIR "/packaging/velmarbs.bash-completion");
  std::stringstream all;
  all << in.rdbuf();
  std::string text = all.str();
  size_t begin = text.find("local words='");
  if (begin == std::string::npos) return "";
  begin += 13;
  return text.substr(begin, text.find('\'', begin) - begin);
}

TEST(UsageText, EveryWordItNamesIsOneTheParserTakes) {
  std::set<std::string> words = optionWords(usageText());
  ASSERT_GT(words.size(), 35u);
  for (const std::string& word : words) {
    ParsedCommandLine parsed = parseCommandLine({word});
    EXPECT_EQ(parsed.error.find("unknown word"), std::string::npos) << word << ": " << parsed.error;
  }
  // And words the parser refuses do not slip in.
  EXPECT_EQ(words.count("--frobnicate"), 0u);
}

TEST(UsageText, BashCompletionOffersTheSameWords) {
  std::string list = completionWordList();
  ASSERT_FALSE(list.empty());
  EXPECT_EQ(optionWords(list), optionWords(usageText()));
}

TEST(UsageText, LaidOutForHelp2man) {
  std::string usage = usageText();
  EXPECT_EQ(usage.rfind("Usage: velmarbs --source BUNDLE", 0), 0u);
  // Sections help2man turns into headings, each starting a line.
  for (const char* heading : {"\n  or:  velmarbs --knownProducts", "\nExit status:\n", "\nFiles:\n",
                              "\nEnvironment:\n", "\nExamples:\n  $ velmarbs "})
    EXPECT_NE(usage.find(heading), std::string::npos) << heading;
  for (const char* status : {"\n  0  ", "\n  1  ", "\n  2  ", "\n  3  "})
    EXPECT_NE(usage.find(status), std::string::npos) << status;
  // Lines fit a wide terminal.
  std::istringstream lines(usage);
  for (std::string line; std::getline(lines, line);)
    EXPECT_LE(line.size(), 100u) << line;
}

}  // namespace
}  // namespace velmar::tool
