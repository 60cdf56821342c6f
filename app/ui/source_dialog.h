// SourceDialog: the open dialog for a source bundle, which is either a
// folder or a ".dmg" image. Qt's dialog chooses files or folders, not
// either: it runs in file mode, where Choose stays enabled for a folder as
// well as for an image, and its accept rule takes whichever is selected
// instead of opening the folder. A double click still opens a folder.

#ifndef VELMAR_APP_UI_SOURCE_DIALOG_H_
#define VELMAR_APP_UI_SOURCE_DIALOG_H_

#include <QFileDialog>
#include <string>

class QPushButton;

namespace velmar::app {

class SourceDialog : public QFileDialog {
  Q_OBJECT

 public:
  // Starts in the folder that holds `lastSource` ("~" expanded), with it selected.
  SourceDialog(QWidget* parent, const std::string& lastSource);

  // The folder or image chosen; empty until accepted.
  QString chosenPath() const { return chosen_; }
  QPushButton* chooseButton() const;

  // A bundle can be a folder or a ".dmg" image; nothing else is taken.
  static bool isSource(const QString& path);

 public slots:
  void accept() override;

 private:
  QString chosen_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_SOURCE_DIALOG_H_
