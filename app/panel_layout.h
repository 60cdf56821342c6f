// Grid arithmetic of the products and stations boxes: how many check boxes
// fit in a row, where each goes, how tall the box must be, and how the
// window follows. Coordinates have their origin at the lower left, y
// growing upwards, as the boxes' frames are given.

#ifndef VELMAR_APP_PANEL_LAYOUT_H_
#define VELMAR_APP_PANEL_LAYOUT_H_

#include <cstddef>
#include <vector>

namespace velmar::app {

struct Rect {
  double x = 0, y = 0, width = 0, height = 0;
  bool operator==(const Rect&) const = default;
};

struct GridConstants {
  double leftMargin;        // x of the first column
  double horizontalMargin;  // taken off the box width before dividing it
  double cellWidth;         // column pitch and check-box width
  double rowPitch;          // row pitch and check-box height
  // A products box with fewer than two rows is given half a row; the
  // stations box is not. Both are how the boxes have always looked.
  bool halfRowBelowTwoRows;
};

inline constexpr GridConstants kProductsGrid{20, 40, 75, 20, true};
inline constexpr GridConstants kStationsGrid{20, 40, 150, 20, false};

// floor((box width - horizontal margin) / cell width); 0 for a box too
// narrow for one check box, which the window must not have.
int gridColumns(const GridConstants& grid, double boxWidth);

// ceil(count / columns); 0 when there are no columns.
int gridRows(size_t count, int columns);

// The height the rows take.
double gridRowsHeight(const GridConstants& grid, int rows);

// The anchors are the invisible boxes inside a box whose origin y values
// give the room kept above (box height - top anchor y) and below (bottom
// anchor y) the grid.
struct BoxGeometry {
  Rect frame;
  double topAnchorY = 0;
  double bottomAnchorY = 0;
};

// The box height that fits `count` check boxes.
double gridBoxHeight(const GridConstants& grid, const BoxGeometry& box, size_t count);

// The frames of `count` check boxes, in list order: rows from the top row
// down (its y is bottom anchor y + (rows - 1) x row pitch), left to right.
// Empty when there is no column.
std::vector<Rect> checkBoxFrames(const GridConstants& grid, const BoxGeometry& box, size_t count);

struct PanelResize {
  Rect window;
  Rect box;
  bool resizeBox = false;  // when false the box keeps its frame
  double delta = 0;        // new box height - old box height
};

// The window grows (or shrinks) by the box's change in height, moving its
// origin down by the same amount so its top edge stays put; the box keeps
// its origin and width.
PanelResize productsPanelResize(const Rect& window, const BoxGeometry& box, size_t count);

// As above, except that the stations box only ever grows: a shorter list
// shrinks the window but leaves the box at its height.
PanelResize stationsPanelResize(const Rect& window, const BoxGeometry& box, size_t count);

}  // namespace velmar::app

#endif  // VELMAR_APP_PANEL_LAYOUT_H_
