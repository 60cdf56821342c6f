#include "app/ui/source_dialog.h"

#include <QFileInfo>

#include "app/paths.h"

namespace velmar::app {

SourceDialog::SourceDialog(QWidget* parent, const std::string& lastSource) : QFileDialog(parent) {
  setWindowTitle(tr("Choose a Restore Bundle"));
  setOption(QFileDialog::DontUseNativeDialog);
  setFileMode(QFileDialog::Directory);
  setOption(QFileDialog::ShowDirsOnly, false);
  setNameFilter(tr("Restore bundles (*.dmg)"));
  setAcceptMode(QFileDialog::AcceptOpen);
  setLabelText(QFileDialog::Accept, tr("Choose"));
  setWindowModality(Qt::WindowModal);
  const std::string expanded = expandTilde(lastSource);
  setDirectory(QString::fromStdString(parentFolder(expanded)));
  selectFile(QString::fromStdString(expanded));
}

void SourceDialog::accept() {
  const QStringList files = selectedFiles();
  if (files.isEmpty()) return;
  const QFileInfo chosen(files.first());
  if (chosen.isFile()) {
    // Folder mode would not take an image; it is chosen all the same.
    chosen_ = chosen.absoluteFilePath();
    QDialog::accept();
    return;
  }
  chosen_ = chosen.absoluteFilePath();
  QFileDialog::accept();
}

}  // namespace velmar::app
