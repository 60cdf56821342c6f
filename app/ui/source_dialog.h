// SourceDialog: the open dialog for a source bundle, which is either a
// folder or a ".dmg" image. Qt's dialog chooses files or folders, not
// either, so it runs in folder mode with the images shown and accepts an
// image as well.

#ifndef VELMAR_APP_UI_SOURCE_DIALOG_H_
#define VELMAR_APP_UI_SOURCE_DIALOG_H_

#include <QFileDialog>
#include <string>

namespace velmar::app {

class SourceDialog : public QFileDialog {
  Q_OBJECT

 public:
  // Starts in the folder that holds `lastSource` ("~" expanded).
  SourceDialog(QWidget* parent, const std::string& lastSource);

  // The folder or image chosen; empty until accepted.
  QString chosenPath() const { return chosen_; }

 public slots:
  void accept() override;

 private:
  QString chosen_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_SOURCE_DIALOG_H_
