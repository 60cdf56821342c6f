// The widget tests' main: a QApplication on the offscreen platform, named
// as the application is, with HOME and the settings folder in a private
// folder so the user's settings and log are never touched.

#include <gtest/gtest.h>

#include <QApplication>
#include <cstdio>
#include <cstdlib>

#include "synth/temp_dir.h"

namespace {

// The offscreen platform says, for every window, what it cannot do.
void quietHandler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
  if (message.startsWith(QStringLiteral("This plugin does not support"))) return;
  std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
  velmar::synth::TempDir home("velmar-ui-home");
  setenv("HOME", home.path().c_str(), 1);
  setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
  setenv("XDG_RUNTIME_DIR", home.path().c_str(), 1);

  qInstallMessageHandler(quietHandler);
  QApplication app(argc, argv);
  QApplication::setOrganizationName("VelmarBS");
  QApplication::setApplicationName("VelmarBS");
  QApplication::setApplicationVersion("9.9");
  int status = RUN_ALL_TESTS();
  return status;
}
