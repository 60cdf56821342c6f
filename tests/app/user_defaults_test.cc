// Where the log file goes by default, and that a user's own choice stays.
#include "app/user_defaults.h"

#include <gtest/gtest.h>

#include "app/paths.h"

namespace velmar::app {
namespace {

TEST(LogFileDefaultTest, FollowsXdgStateHomeWhenItIsAbsolute) {
  EXPECT_EQ(defaultLogFilePath("/var/lib/station/state"), "/var/lib/station/state/VelmarBS/VelmarBS.log");
  EXPECT_EQ(defaultLogFilePath("/srv/state//"), "/srv/state/VelmarBS/VelmarBS.log");
  EXPECT_EQ(defaultLogFilePath("/"), "/VelmarBS/VelmarBS.log");
}

TEST(LogFileDefaultTest, UnsetEmptyOrRelativeXdgStateHomeMeansLocalState) {
  for (const char* unusable : {static_cast<const char*>(nullptr), "", "state", "~/state"})
    EXPECT_EQ(defaultLogFilePath(unusable), "~/.local/state/VelmarBS/VelmarBS.log") << (unusable ? unusable : "null");
  EXPECT_EQ(expandTilde(kDefaultLogFilePath, "/home/ann"), "/home/ann/.local/state/VelmarBS/VelmarBS.log");
}

TEST(LogFileDefaultTest, RegisteredDefaultIsTheStateFolderAndAUsersChoiceStays) {
  UserDefaults defaults;
  EXPECT_EQ(defaults.stringForKey(kLogFilePathKey), defaultLogFilePath());
  EXPECT_EQ(defaultLogFilePath().find("Library"), std::string::npos);

  // Settings written by an earlier version, or a user's own place, win.
  Value set = Value::makeDict();
  set.set(kLogFilePathKey, "~/Library/Logs/VelmarBS.log");
  EXPECT_EQ(UserDefaults(set).stringForKey(kLogFilePathKey), "~/Library/Logs/VelmarBS.log");
  defaults.setObject(kLogFilePathKey, "/srv/logs/station.log");
  EXPECT_EQ(defaults.stringForKey(kLogFilePathKey), "/srv/logs/station.log");
}

}  // namespace
}  // namespace velmar::app
