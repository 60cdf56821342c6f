#include "app/help_text.h"

#include <gtest/gtest.h>

namespace velmar::app {
namespace {

TEST(HelpTextTest, AboutNamesVersionsToolAndLog) {
  EXPECT_EQ(toolVersionFromOutput("velmarbs 1.4.2\n"), "1.4.2");
  EXPECT_EQ(toolVersionFromOutput("2.0 \r\nmore"), "2.0");
  EXPECT_EQ(toolVersionFromOutput(""), "unknown");
  EXPECT_EQ(aboutText("VelmarBS", "1.0", "1.4.2", "/usr/libexec/velmarbs/velmarbs", "/home/e/VelmarBS.log"),
            "VelmarBS 1.0\n\nTool: velmarbs 1.4.2\nTool path: /usr/libexec/velmarbs/velmarbs\n"
            "Log file: /home/e/VelmarBS.log\n");
}

}  // namespace
}  // namespace velmar::app
