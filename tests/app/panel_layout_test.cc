#include "app/panel_layout.h"

#include <gtest/gtest.h>

namespace velmar::app {
namespace {

TEST(GridTest, ProductsBoxOf340HoldsFourColumns) {
  EXPECT_EQ(gridColumns(kProductsGrid, 340), 4);
  EXPECT_EQ(gridRows(9, 4), 3);
  EXPECT_EQ(gridRowsHeight(kProductsGrid, 3), 60);
}

TEST(GridTest, HalfARowOnlyForFewProducts) {
  EXPECT_EQ(gridRowsHeight(kProductsGrid, gridRows(1, 4)), 10);
  EXPECT_EQ(gridRowsHeight(kProductsGrid, gridRows(0, 4)), 10);
  EXPECT_EQ(gridRowsHeight(kStationsGrid, gridRows(1, 3)), 20);
  EXPECT_EQ(gridRowsHeight(kStationsGrid, gridRows(0, 3)), 0);
}

TEST(GridTest, TooNarrowBoxHasNoColumn) {
  EXPECT_EQ(gridColumns(kProductsGrid, 114), 0);
  EXPECT_EQ(gridColumns(kProductsGrid, 115), 1);
  EXPECT_EQ(gridColumns(kStationsGrid, 189), 0);
  EXPECT_EQ(gridRows(5, 0), 0);
  EXPECT_TRUE(checkBoxFrames(kStationsGrid, {{0, 0, 100, 80}, 60, 10}, 3).empty());
}

TEST(GridTest, SevenStationsFillRowsOfThreeTopRowFirst) {
  BoxGeometry box{{0, 0, 500, 80}, 60, 12};
  std::vector<Rect> frames = checkBoxFrames(kStationsGrid, box, 7);
  ASSERT_EQ(frames.size(), 7u);
  EXPECT_EQ(frames[0], (Rect{20, 52, 150, 20}));
  EXPECT_EQ(frames[2], (Rect{320, 52, 150, 20}));
  EXPECT_EQ(frames[3], (Rect{20, 32, 150, 20}));
  EXPECT_EQ(frames[6], (Rect{20, 12, 150, 20}));
}

TEST(GridTest, FifthProductOfFourColumnsStartsTheSecondRow) {
  BoxGeometry box{{0, 0, 340, 100}, 80, 8};
  std::vector<Rect> frames = checkBoxFrames(kProductsGrid, box, 5);
  EXPECT_EQ(frames[3], (Rect{245, 28, 75, 20}));
  EXPECT_EQ(frames[4], (Rect{20, 8, 75, 20}));
}

TEST(PanelResizeTest, WindowKeepsItsTopWhileTheProductsBoxGrows) {
  // 9 products in 4 columns: 60 + (100 - 80) + 8 = 88.
  BoxGeometry box{{10, 200, 340, 100}, 80, 8};
  PanelResize r = productsPanelResize({0, 300, 600, 500}, box, 9);
  EXPECT_EQ(r.delta, -12);
  EXPECT_EQ(r.window, (Rect{0, 312, 600, 488}));
  EXPECT_TRUE(r.resizeBox);
  EXPECT_EQ(r.box, (Rect{10, 200, 340, 88}));
}

TEST(PanelResizeTest, StationsBoxNeverShrinksButTheWindowDoes) {
  BoxGeometry box{{10, 50, 500, 100}, 80, 10};
  PanelResize shrink = stationsPanelResize({0, 300, 600, 500}, box, 2);  // 20 + 20 + 10 = 50
  EXPECT_EQ(shrink.delta, -50);
  EXPECT_EQ(shrink.window, (Rect{0, 350, 600, 450}));
  EXPECT_FALSE(shrink.resizeBox);
  EXPECT_EQ(shrink.box, box.frame);

  PanelResize grow = stationsPanelResize({0, 300, 600, 500}, box, 12);  // 80 + 20 + 10 = 110
  EXPECT_EQ(grow.delta, 10);
  EXPECT_TRUE(grow.resizeBox);
  EXPECT_EQ(grow.box.height, 110);
}

}  // namespace
}  // namespace velmar::app
