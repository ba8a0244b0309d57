// Where the nodes of a field lie: the grid of interrogation windows over an image.
#pragma once

#include "piv_types.h"

namespace PIV {

// Lays the grid of `grid` over its image (or ROI) for windows of
// `sampleSize`: sets grid.nodes and grid.first. On failure (error 41 bad
// window, 35 bad image size, 4 bad step, 17 no node fits) reports it and
// returns false with nodes and first as they were.
bool CreateDataGrid4D(DATA_GRID4D& grid, const SIZE3D& sampleSize);

// The node range of one axis laid through `anchor` at `step` within
// start..end (both inclusive). Returns the node count (0 if none fits) and
// the first node in `first`.
int GetAnchoredAxis(int anchor, int step, int start, int end, int& first);

// Node positions beyond this many pixels come only from damaged files or
// parameters; within it, position arithmetic in int cannot overflow.
constexpr int kMaxGridPixels = 1 << 30;

// True when the first and the last node on every axis, and the image they
// lie in, stay within +-kMaxGridPixels.
bool GridPositionsFit(const DATA_GRID4D& grid);

// Pixel position of node (col, row, plane) of a grid.
inline POINT3D GridNodePosition(const DATA_GRID4D& g, int col, int row, int plane = 0) {
    return POINT3D{g.first.x + col * g.step.width, g.first.y + row * g.step.height,
                   g.first.z + plane * g.step.depth};
}

}  // namespace PIV
