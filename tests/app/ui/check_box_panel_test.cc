// The boxes of check boxes: the grid turned into widget positions (y grows
// downwards there), tags, and the stations box that only grows.
#include "app/ui/check_box_panel.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QSignalSpy>

namespace velmar::app {
namespace {

NameList names(int count) {
  NameList list;
  for (int i = 0; i < count; ++i) list.push_back("p" + std::to_string(i));
  return list;
}

TEST(CheckBoxPanelTest, ProductsFillRowsFromTheTopLeftToRight) {
  CheckBoxPanel panel("Products", kProductsGrid, false, 340);
  panel.setNames(names(9));  // 4 columns, 3 rows
  const int rows = 60;
  EXPECT_EQ(panel.height(), rows + CheckBoxPanel::kRoomAbove + CheckBoxPanel::kRoomBelow);
  const auto& boxes = panel.checkBoxes();
  ASSERT_EQ(boxes.size(), 9u);
  EXPECT_EQ(boxes[0]->geometry(), QRect(20, CheckBoxPanel::kRoomAbove, 75, 20));
  EXPECT_EQ(boxes[3]->geometry(), QRect(245, CheckBoxPanel::kRoomAbove, 75, 20));
  EXPECT_EQ(boxes[4]->geometry(), QRect(20, CheckBoxPanel::kRoomAbove + 20, 75, 20));
  EXPECT_EQ(boxes[8]->geometry(), QRect(20, CheckBoxPanel::kRoomAbove + 40, 75, 20));
  EXPECT_FALSE(boxes[0]->isEnabled());

  QSignalSpy hit(&panel, &CheckBoxPanel::hit);
  panel.showStates({{false, true}, {false, true}, {false, false}, {false, false}, {false, true}, {true, true}});
  boxes[5]->click();
  ASSERT_EQ(hit.count(), 1);
  EXPECT_EQ(hit[0][0].toInt(), 5);
  EXPECT_FALSE(hit[0][1].toBool());

  // One product: half a row, so the box is 10 points shorter than one row.
  panel.setNames(names(1));
  EXPECT_EQ(panel.checkBoxes().size(), 1u);
  EXPECT_EQ(panel.height(), 10 + CheckBoxPanel::kRoomAbove + CheckBoxPanel::kRoomBelow);
}

TEST(CheckBoxPanelTest, TheStationsBoxOnlyGrows) {
  CheckBoxPanel panel("Stations", kStationsGrid, true, 500);
  panel.setNames(names(7));  // 3 columns: rows of 3, 3 and 1
  const int grown = panel.height();
  EXPECT_EQ(grown, 60 + CheckBoxPanel::kRoomAbove + CheckBoxPanel::kRoomBelow);
  EXPECT_EQ(panel.checkBoxes()[6]->geometry(), QRect(20, CheckBoxPanel::kRoomAbove + 40, 150, 20));
  panel.setNames(names(2));
  EXPECT_EQ(panel.height(), grown);
  // Placed from the bottom, as the grid is.
  EXPECT_EQ(panel.checkBoxes()[1]->geometry().bottom() + 1, grown - CheckBoxPanel::kRoomBelow);
}

}  // namespace
}  // namespace velmar::app
