#include "app/ui/check_box_panel.h"

#include <QCheckBox>
#include <QPushButton>

namespace velmar::app {

CheckBoxPanel::CheckBoxPanel(const QString& title, const GridConstants& grid, bool growOnly,
                             int width, QWidget* parent)
    : QGroupBox(title, parent),
      grid_(grid),
      growOnly_(growOnly),
      setAllButton_(new QPushButton(tr("Set All"), this)),
      clearAllButton_(new QPushButton(tr("Clear All"), this)) {
  setFixedSize(width, static_cast<int>(kRoomAbove + grid.rowPitch + kRoomBelow));
  setAccessibleName(title);
  setAllButton_->setAccessibleName(tr("Set all %1").arg(title.toLower()));
  clearAllButton_->setAccessibleName(tr("Clear all %1").arg(title.toLower()));
  placeButtons();
}

BoxGeometry CheckBoxPanel::geometry() const {
  BoxGeometry box;
  box.frame = {0, 0, static_cast<double>(width()), static_cast<double>(height())};
  box.topAnchorY = height() - kRoomAbove;
  box.bottomAnchorY = kRoomBelow;
  return box;
}

void CheckBoxPanel::setNames(const NameList& names) {
  for (QCheckBox* old : checkBoxes_) {
    old->hide();
    old->deleteLater();
  }
  checkBoxes_.clear();

  // The window arithmetic is only wanted for the box: the window's layout
  // follows the box's height by itself.
  const BoxGeometry box = geometry();
  const PanelResize resize = growOnly_ ? stationsPanelResize({}, box, names.size())
                                       : productsPanelResize({}, box, names.size());
  const int boxHeight = static_cast<int>(resize.resizeBox ? resize.box.height : box.frame.height);
  setFixedHeight(boxHeight);

  // Frames count from the box's lower left corner, y upwards; widgets from
  // its upper left, y downwards.
  const std::vector<Rect> frames = checkBoxFrames(grid_, box, names.size());
  for (size_t tag = 0; tag < frames.size(); ++tag) {
    const Rect& f = frames[tag];
    auto* checkBox = new QCheckBox(QString::fromStdString(names[tag]), this);
    checkBox->setGeometry(static_cast<int>(f.x), static_cast<int>(boxHeight - f.y - f.height),
                          static_cast<int>(f.width), static_cast<int>(f.height));
    checkBox->setEnabled(false);
    checkBox->setAccessibleName(title() + QStringLiteral(": ") + checkBox->text());
    connect(checkBox, &QCheckBox::clicked, this, [this, tag](bool on) { emit hit(static_cast<int>(tag), on); });
    checkBox->show();
    checkBoxes_.push_back(checkBox);
  }
  placeButtons();
  emit namesChanged();
}

void CheckBoxPanel::showStates(const std::vector<CheckBoxState>& states) {
  for (size_t tag = 0; tag < checkBoxes_.size() && tag < states.size(); ++tag) {
    checkBoxes_[tag]->setChecked(states[tag].on);
    checkBoxes_[tag]->setEnabled(states[tag].enabled);
  }
}

void CheckBoxPanel::resizeEvent(QResizeEvent* event) {
  QGroupBox::resizeEvent(event);
  placeButtons();
}

void CheckBoxPanel::placeButtons() {
  // Bottom right, in the room kept below the grid.
  const int margin = 10;
  QSize size = clearAllButton_->sizeHint().expandedTo(setAllButton_->sizeHint());
  int y = height() - margin - size.height();
  int x = width() - margin - size.width();
  clearAllButton_->setGeometry(x, y, size.width(), size.height());
  setAllButton_->setGeometry(x - 6 - size.width(), y, size.width(), size.height());
}

}  // namespace velmar::app
