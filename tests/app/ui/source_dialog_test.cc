// The source dialog takes either a folder or a ".dmg" image.
#include "app/ui/source_dialog.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "synth/temp_dir.h"

namespace velmar::app {
namespace {

TEST(SourceDialogTest, AcceptsAnImageOrAFolder) {
  synth::TempDir dir("velmar-source");
  std::filesystem::create_directories(dir / "Bundle/Restore");
  std::ofstream(dir / "bundle.dmg") << "image";

  SourceDialog image(nullptr, dir / "bundle.dmg");
  EXPECT_EQ(image.directory().absolutePath().toStdString(), dir.path());
  image.selectFile(QString::fromStdString(dir / "bundle.dmg"));
  image.accept();
  EXPECT_EQ(image.result(), QDialog::Accepted);
  EXPECT_EQ(image.chosenPath().toStdString(), dir / "bundle.dmg");

  SourceDialog folder(nullptr, dir / "bundle.dmg");
  folder.selectFile(QString::fromStdString(dir / "Bundle"));
  folder.accept();
  EXPECT_EQ(folder.result(), QDialog::Accepted);
  EXPECT_EQ(folder.chosenPath().toStdString(), dir / "Bundle");
}

}  // namespace
}  // namespace velmar::app
