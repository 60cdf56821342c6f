// The cookie a stripped bundle carries about how it was made.

#include "engine/support/cookie.h"

#include <gtest/gtest.h>

#include <regex>

#include "tests/engine/support/fake_support_host.h"

namespace velmar::testing {
namespace {

TEST(CookieTest, VersionIsTheLeadingNumberAsAFloatAndTheFullStringOneLine) {
  EXPECT_FLOAT_EQ(versionNumber(Value("  3.25b1")), 3.25f);
  EXPECT_FLOAT_EQ(versionNumber(Value("1e2x")), 100.0f);
  EXPECT_FLOAT_EQ(versionNumber(Value("1e")), 1.0f);
  EXPECT_FLOAT_EQ(versionNumber(Value("v2")), 0.0f);
  EXPECT_EQ(makeCookie(dictOf({{"toolVersion", "2.5"}}), "/b", {"bs", "-s"}),
            dictOf({{"rawArguments", arrayOf({"bs", "-s"})}, {"source", "/b"}, {"version", "2.500000"}}));
  EXPECT_EQ(makeCookie(dictOf({{"toolVersion", "1.1"}}), "/b", {}).get("version"), Value("1.100000"));
  // A missing version prints as a missing object; line breaks go.
  Value cookie = makeCookie(dictOf({{"toolName", "velmar\nbs"}}), "/b", {});
  EXPECT_FALSE(cookie.contains("version"));
  const std::string full = cookie.get("version_fullString").str();
  EXPECT_TRUE(std::regex_match(
      full, std::regex(R"(velmarbs -- Version \(null\), built [A-Z][a-z]{2} [ 0-9]\d \d{4} \d\d:\d\d:\d\d)")))
      << full;
}

class LeaveCookieTest : public SupportStepTest {};

TEST_F(LeaveCookieTest, RecordsTheCookieUnlessAskedNotTo) {
  manifest_.options.set("noCookie", "yes");
  EXPECT_EQ(leaveCookie(manifest_, manifest_.supportRequest(Value())), 0);
  EXPECT_EQ(logText(), "");
  EXPECT_EQ(manifest_.modified.count(), 0u);

  manifest_.options.set("noCookie", "true");  // only y... strings count
  EXPECT_EQ(leaveCookie(manifest_, manifest_.supportRequest(Value())), 0);
  EXPECT_EQ(logText(), "+++ Oreo's left.  No milk.\n");
  Value cookie = manifest_.modified.get("VelmarBSCookie.plist");
  EXPECT_EQ(cookie.get("source"), Value(dir_.path()));
  EXPECT_EQ(cookie.get("rawArguments"), Value::stringArray(processArguments()));
  EXPECT_GE(cookie.get("rawArguments").count(), 1u);
}

}  // namespace
}  // namespace velmar::testing
