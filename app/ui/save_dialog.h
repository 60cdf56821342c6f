// SaveDialog: where a stripped bundle goes. An existing result may be named
// (the tool replaces a target only once the new one is complete), whether it
// is a folder or an image: the dialog then asks whether to replace it
// instead of opening the folder. A name ending in "/" still opens a folder,
// as does a double click.

#ifndef VELMAR_APP_UI_SAVE_DIALOG_H_
#define VELMAR_APP_UI_SAVE_DIALOG_H_

#include <QFileDialog>
#include <QPointer>

class QLineEdit;
class QMessageBox;
class QPushButton;

namespace velmar::app {

class SaveDialog : public QFileDialog {
  Q_OBJECT

 public:
  SaveDialog(QWidget* parent, const QString& folder, const QString& name);

  // The chosen path; empty until accepted.
  QString chosenPath() const { return chosen_; }
  QPushButton* saveButton() const;
  QLineEdit* nameField() const;
  // The "replace?" question while it is asked, else null.
  QMessageBox* replaceQuestion() const { return question_; }

 public slots:
  void accept() override;

 private:
  void updateSaveButton();
  void askToReplace(const QString& path);

  QString chosen_;
  QPointer<QMessageBox> question_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_SAVE_DIALOG_H_
