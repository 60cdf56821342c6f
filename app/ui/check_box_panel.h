// CheckBoxPanel: a titled box of check boxes, one per name, laid out at run
// time on the grid of app/panel_layout.h, with its own "Set All" and
// "Clear All" buttons below the grid. The box takes the height the grid
// needs; the stations box only ever grows.

#ifndef VELMAR_APP_UI_CHECK_BOX_PANEL_H_
#define VELMAR_APP_UI_CHECK_BOX_PANEL_H_

#include <QGroupBox>
#include <vector>

#include "app/panel_layout.h"
#include "app/selection.h"

class QCheckBox;
class QPushButton;

namespace velmar::app {

class CheckBoxPanel : public QGroupBox {
  Q_OBJECT

 public:
  // Room kept above the grid (the title) and below it (the two buttons).
  static constexpr double kRoomAbove = 34;
  static constexpr double kRoomBelow = 38;

  // `width` is fixed: the grid's column count follows from it.
  CheckBoxPanel(const QString& title, const GridConstants& grid, bool growOnly, int width,
                QWidget* parent = nullptr);

  // Replaces the check boxes by one per name, tagged by position, off and
  // disabled, and sets the box height for them.
  void setNames(const NameList& names);
  // State and enabled of each check box, by tag.
  void showStates(const std::vector<CheckBoxState>& states);

  const std::vector<QCheckBox*>& checkBoxes() const { return checkBoxes_; }
  QPushButton* setAllButton() const { return setAllButton_; }
  QPushButton* clearAllButton() const { return clearAllButton_; }

 signals:
  // The user clicked the check box with this tag.
  void hit(int tag, bool on);
  // setNames has made new check boxes.
  void namesChanged();

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  BoxGeometry geometry() const;
  void placeButtons();

  GridConstants grid_;
  bool growOnly_;
  std::vector<QCheckBox*> checkBoxes_;
  QPushButton* setAllButton_;
  QPushButton* clearAllButton_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_CHECK_BOX_PANEL_H_
