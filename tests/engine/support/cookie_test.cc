// The cookie a stripped bundle carries about how it was made.

#include "engine/support/cookie.h"

#include <gtest/gtest.h>

#include <regex>

#include "tests/engine/support/fake_support_host.h"

namespace velmar {
namespace {

using testing::dictOf;

TEST(VersionNumberTest, ReadsTheLeadingNumberAsAFloat) {
  EXPECT_FLOAT_EQ(versionNumber(Value("2.5")), 2.5f);
  EXPECT_FLOAT_EQ(versionNumber(Value("  3.25b1")), 3.25f);
  EXPECT_FLOAT_EQ(versionNumber(Value("1e2x")), 100.0f);
  EXPECT_FLOAT_EQ(versionNumber(Value("1e")), 1.0f);
  EXPECT_FLOAT_EQ(versionNumber(Value("v2")), 0.0f);
  EXPECT_FLOAT_EQ(versionNumber(Value("inf")), 0.0f);
  EXPECT_FLOAT_EQ(versionNumber(Value(4)), 4.0f);
}

TEST(MakeCookieTest, VersionIsSixDecimalsOfAFloat) {
  Value cookie = makeCookie(dictOf({{"toolVersion", "2.5"}}), "/b", {"velmarbs", "--source"});
  EXPECT_EQ(cookie, dictOf({{"rawArguments", Value::makeArray({"velmarbs", "--source"})},
                            {"source", "/b"},
                            {"version", "2.500000"}}));
  EXPECT_EQ(makeCookie(dictOf({{"toolVersion", "1.1"}}), "/b", {}).get("version"), Value("1.100000"));
}

TEST(MakeCookieTest, FullStringWithoutVersionOrLineBreaks) {
  Value cookie = makeCookie(dictOf({{"toolName", "velmar\nbs"}}), "/b", {});
  EXPECT_FALSE(cookie.contains("version"));
  const std::string full = cookie.get("version_fullString").str();
  EXPECT_TRUE(std::regex_match(
      full, std::regex(R"(velmarbs -- Version \(null\), built [A-Z][a-z]{2} [ 0-9]\d \d{4} \d\d:\d\d:\d\d)")))
      << full;

  cookie = makeCookie(dictOf({{"toolName", "velmarbs"}, {"toolVersion", "2.5b"}}), "/b", {});
  EXPECT_EQ(cookie.get("version_fullString").str().rfind("velmarbs -- Version 2.5b, built ", 0), 0u);
}

class LeaveCookieTest : public testing::SupportStepTest {};

TEST_F(LeaveCookieTest, RecordsTheCookieUnlessAskedNotTo) {
  manifest_.options.set("noCookie", "yes");
  EXPECT_EQ(leaveCookie(manifest_, Value()), 0);
  EXPECT_EQ(logged(), "");
  EXPECT_EQ(manifest_.modifiedRecords, 0);

  legacy_.options.set("noCookie", "true");  // only y... strings count
  EXPECT_EQ(leaveCookie(legacy_, Value()), 0);
  EXPECT_EQ(logged(), "+++ Oreo's left.  No milk.\n");
  Value cookie = legacy_.modified.get("VelmarBSCookie.plist");
  EXPECT_EQ(cookie.get("source"), Value(bundle_.root()));
  EXPECT_EQ(cookie.get("rawArguments"), Value::stringArray(processArguments()));
  EXPECT_GE(cookie.get("rawArguments").count(), 1u);
  EXPECT_FALSE(cookie.contains("version_fullString"));
}

}  // namespace
}  // namespace velmar
