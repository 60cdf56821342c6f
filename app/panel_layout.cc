#include "app/panel_layout.h"

#include <cmath>

namespace velmar::app {

int gridColumns(const GridConstants& grid, double boxWidth) {
  double columns = std::floor((boxWidth - grid.horizontalMargin) / grid.cellWidth);
  return columns > 0 ? static_cast<int>(columns) : 0;
}

int gridRows(size_t count, int columns) {
  if (columns <= 0) return 0;
  return static_cast<int>((count + static_cast<size_t>(columns) - 1) / static_cast<size_t>(columns));
}

double gridRowsHeight(const GridConstants& grid, int rows) {
  if (grid.halfRowBelowTwoRows && rows < 2) return grid.rowPitch / 2;
  return grid.rowPitch * rows;
}

double gridBoxHeight(const GridConstants& grid, const BoxGeometry& box, size_t count) {
  int rows = gridRows(count, gridColumns(grid, box.frame.width));
  return gridRowsHeight(grid, rows) + (box.frame.height - box.topAnchorY) + box.bottomAnchorY;
}

std::vector<Rect> checkBoxFrames(const GridConstants& grid, const BoxGeometry& box, size_t count) {
  std::vector<Rect> frames;
  int columns = gridColumns(grid, box.frame.width);
  if (columns == 0) return frames;
  int rows = gridRows(count, columns);
  double x = grid.leftMargin;
  double y = box.bottomAnchorY + (rows - 1) * grid.rowPitch;
  for (size_t i = 0; i < count; ++i) {
    frames.push_back({x, y, grid.cellWidth, grid.rowPitch});
    if ((i + 1) % static_cast<size_t>(columns) == 0) {
      x = grid.leftMargin;
      y -= grid.rowPitch;
    } else {
      x += grid.cellWidth;
    }
  }
  return frames;
}

namespace {

PanelResize panelResize(const GridConstants& grid, const Rect& window, const BoxGeometry& box,
                        size_t count) {
  PanelResize resize;
  double height = gridBoxHeight(grid, box, count);
  resize.delta = height - box.frame.height;
  resize.window = window;
  resize.window.y -= resize.delta;
  resize.window.height += resize.delta;
  resize.box = box.frame;
  resize.box.height = height;
  resize.resizeBox = true;
  return resize;
}

}  // namespace

PanelResize productsPanelResize(const Rect& window, const BoxGeometry& box, size_t count) {
  return panelResize(kProductsGrid, window, box, count);
}

PanelResize stationsPanelResize(const Rect& window, const BoxGeometry& box, size_t count) {
  PanelResize resize = panelResize(kStationsGrid, window, box, count);
  if (resize.delta <= 0) {
    resize.resizeBox = false;
    resize.box = box.frame;
  }
  return resize;
}

}  // namespace velmar::app
