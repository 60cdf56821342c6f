// A run whose tool will not stop at SIGTERM is killed after the grace, and
// nothing of it is left running.
#include "app/ui/strip_process.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QSignalSpy>
#include <chrono>
#include <fstream>

#include "synth/temp_dir.h"
#include "ui_test_support.h"

namespace velmar::app {
namespace {

TEST(StripProcessTest, AToolDeafToTerminateIsKilledAfterTheGrace) {
  synth::TempDir dir("velmar-strip-process");
  const std::string tool = dir / "velmarbs";
  std::ofstream(tool) << "#!/bin/sh\ntrap '' TERM\necho started\nwhile :; do sleep 0.1; done\n";
  ::chmod(tool.c_str(), 0755);
  std::string logged;
  StripProcess process([&](const std::string& text) { logged += text; });
  process.setGrace(std::chrono::milliseconds(300));
  QSignalSpy ended(&process, &StripProcess::ended);

  ASSERT_TRUE(process.start(tool, {"--source", "/b/Bundle"}, "/b/Bundle"));
  ASSERT_TRUE(testing::waitFor([&] { return logged.find("started\n") != std::string::npos; }));
  const auto began = std::chrono::steady_clock::now();
  process.cancel();
  ASSERT_TRUE(testing::waitFor([&] { return ended.count() == 1; }));
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(300));
  const RunEnd end = ended.first().first().value<RunEnd>();
  EXPECT_TRUE(end.cancelled);
  EXPECT_EQ(end.sheetText, "Validating \"Bundle\" cancelled.");
  EXPECT_NE(logged.find(" Validating cancelled.\n"), std::string::npos) << logged;
  EXPECT_FALSE(process.isRunning());
  EXPECT_TRUE(testing::waitFor([] { return testing::childProcesses().empty(); }));
}

}  // namespace
}  // namespace velmar::app
