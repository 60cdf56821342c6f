#include "app/ui/source_dialog.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QPushButton>

#include "app/paths.h"

namespace velmar::app {

SourceDialog::SourceDialog(QWidget* parent, const std::string& lastSource) : QFileDialog(parent) {
  setWindowTitle(tr("Choose a Restore Bundle"));
  setOption(QFileDialog::DontUseNativeDialog);
  setFileMode(QFileDialog::ExistingFile);
  setNameFilter(tr("Restore bundles (*.dmg)"));
  setAcceptMode(QFileDialog::AcceptOpen);
  setLabelText(QFileDialog::Accept, tr("Choose"));
  setWindowModality(Qt::WindowModal);
  const std::string expanded = expandTilde(lastSource);
  if (!expanded.empty()) {
    setDirectory(QString::fromStdString(parentFolder(expanded)));
    selectFile(QString::fromStdString(expanded));
  }
  if (QPushButton* choose = chooseButton()) choose->setAccessibleName(tr("Choose the selected bundle"));
}

QPushButton* SourceDialog::chooseButton() const {
  auto* box = findChild<QDialogButtonBox*>();
  return box ? box->button(QDialogButtonBox::Open) : nullptr;
}

bool SourceDialog::isSource(const QString& path) {
  const QFileInfo info(path);
  if (info.isDir()) return true;
  return info.isFile() && info.suffix().compare(QStringLiteral("dmg"), Qt::CaseInsensitive) == 0;
}

void SourceDialog::accept() {
  const QStringList files = selectedFiles();
  if (files.isEmpty()) return;
  const QFileInfo chosen(files.first());
  if (!isSource(chosen.absoluteFilePath())) {
    QApplication::beep();
    return;
  }
  // A folder is taken as the bundle, not opened: the file mode would open it.
  chosen_ = chosen.absoluteFilePath();
  QDialog::accept();
}

}  // namespace velmar::app
