#include "app/ui/save_dialog.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>

namespace velmar::app {

SaveDialog::SaveDialog(QWidget* parent, const QString& folder, const QString& name) : QFileDialog(parent) {
  setWindowTitle(tr("Save the Stripped Bundle"));
  setOption(QFileDialog::DontUseNativeDialog);
  // The question is ours, for folders and images alike.
  setOption(QFileDialog::DontConfirmOverwrite);
  setAcceptMode(QFileDialog::AcceptSave);
  setFileMode(QFileDialog::AnyFile);
  setWindowModality(Qt::WindowModal);
  setDirectory(folder);
  selectFile(name);
  if (QLineEdit* field = nameField()) {
    field->setAccessibleName(tr("Name of the stripped bundle"));
    // Qt's own rule runs first (it greys Save for an existing folder's name);
    // this one runs after it.
    connect(field, &QLineEdit::textChanged, this, &SaveDialog::updateSaveButton, Qt::QueuedConnection);
  }
  connect(this, &QFileDialog::currentChanged, this, &SaveDialog::updateSaveButton, Qt::QueuedConnection);
  connect(this, &QFileDialog::directoryEntered, this, &SaveDialog::updateSaveButton, Qt::QueuedConnection);
  if (QPushButton* save = saveButton()) save->setAccessibleName(tr("Save"));
}

QPushButton* SaveDialog::saveButton() const {
  auto* box = findChild<QDialogButtonBox*>();
  return box ? box->button(QDialogButtonBox::Save) : nullptr;
}

QLineEdit* SaveDialog::nameField() const { return findChild<QLineEdit*>(QStringLiteral("fileNameEdit")); }

void SaveDialog::updateSaveButton() {
  QPushButton* save = saveButton();
  QLineEdit* field = nameField();
  if (!save || !field) return;
  const QString name = field->text().trimmed();
  save->setEnabled(!name.isEmpty());
  save->setText(tr("&Save"));
}

void SaveDialog::accept() {
  QLineEdit* field = nameField();
  const QString name = field ? field->text().trimmed() : QString();
  if (name.isEmpty()) return;
  const QString path = QDir(directory()).absoluteFilePath(name);
  if (name.endsWith(QLatin1Char('/'))) {
    // "Folder/" is where to look, not what to write.
    if (QFileInfo(path).isDir()) {
      setDirectory(path);
      if (field) field->clear();
    }
    return;
  }
  if (QFileInfo::exists(path) || QFileInfo(path).isSymLink()) {
    askToReplace(path);
    return;
  }
  chosen_ = path;
  QDialog::accept();
}

void SaveDialog::askToReplace(const QString& path) {
  if (question_) return;
  const QFileInfo info(path);
  question_ = new QMessageBox(
      QMessageBox::Warning, windowTitle(),
      tr("\"%1\" already exists. Do you want to replace it?").arg(info.fileName()),
      QMessageBox::NoButton, this);
  question_->setInformativeText(
      tr("A folder or image of the same name already exists in \"%1\". Replacing it overwrites its "
         "contents once the new bundle is complete.")
          .arg(info.absolutePath()));
  QPushButton* replace = question_->addButton(tr("Replace"), QMessageBox::AcceptRole);
  question_->addButton(QMessageBox::Cancel);
  question_->setDefaultButton(QMessageBox::Cancel);
  question_->setAttribute(Qt::WA_DeleteOnClose);
  connect(question_, &QMessageBox::finished, this, [this, replace, path] {
    if (question_ && question_->clickedButton() == replace) {
      chosen_ = path;
      QDialog::accept();
    }
  });
  question_->open();
}

}  // namespace velmar::app
