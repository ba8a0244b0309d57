#include "piv_grid.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "piv_error.h"
#include "piv_messages.h"

namespace {

struct AxisRange {
    int start;
    int end;
};

}  // namespace

int PIV::GetAnchoredAxis(int anchor, int step, int start, int end, int& first) {
    int pos = anchor;
    if (anchor > start) {
        // Walk down towards the start so that the grid runs through the anchor.
        const int n = (pos - start + step - 1) / step;
        pos -= n * step;
        if (pos < start) pos += step;
    } else if (pos < start) {
        const int n = (start - pos + step - 1) / step;
        pos += n * step;
    }
    first = pos;
    if (pos > end) {
        DebugPrintExt(2, "no nodes on axis");
        return 0;
    }
    return (end - pos) / step + 1;
}

bool PIV::CreateDataGrid4D(DATA_GRID4D& grid, const SIZE3D& sampleSize) {
    try {
        if (sampleSize.width < 1 || sampleSize.height < 1 || sampleSize.depth < 1)
            throw PIVerror::BAD_SAMPLE_SIZE;
        const SIZE3D& image = grid.imageSize;
        if (image.width < 1 || image.height < 1 || image.depth < 1) throw PIVerror::BAD_IMAGE_SIZE;
        if (grid.step.width < 1 || grid.step.height < 1 || grid.step.depth < 1)
            throw PIVerror::BAD_PARAMETERS;
        if (grid.timeSteps < 1) {
            DebugPrint("Time steps less than one!  -- defaulting to 1");
            grid.timeSteps = 1;
        }

        AxisRange x{0, image.width}, y{0, image.height}, z{0, image.depth};
        if (grid.roiEnabled) {
            const RECT3D& r = grid.roi;
            x = AxisRange{std::max(std::min(r.left, r.right), 0),
                          std::min(std::max(r.left, r.right), image.width)};
            y = AxisRange{std::max(std::min(r.top, r.bottom), 0),
                          std::min(std::max(r.top, r.bottom), image.height)};
            // The depth range runs from the larger to the smaller value, which
            // only matters for volumes: a plane never reaches this range.
            int front = r.front, back = r.back;
            if (back <= front) std::swap(front, back);
            z = AxisRange{back, front};
        }

        auto inset = [](AxisRange& a, int window, int margin) {
            a.start += window / 2;
            a.end -= window / 2;
            if (margin > 0) {
                a.start += margin;
                a.end -= margin;
            }
        };
        inset(x, sampleSize.width, grid.margin.width);
        inset(y, sampleSize.height, grid.margin.height);
        inset(z, sampleSize.depth, grid.margin.depth);

        const bool atPoint = grid.align == GRID_ALIGN_AT_POINT;
        const int anchorX = atPoint ? grid.anchor.x : x.start;
        const int anchorY =
            atPoint ? grid.anchor.y : (grid.align == GRID_ALIGN_BOTTOM ? y.end : y.start);

        POINT3D first{};
        SIZE3D nodes{};
        nodes.width = GetAnchoredAxis(anchorX, grid.step.width, x.start, x.end, first.x);
        nodes.height = GetAnchoredAxis(anchorY, grid.step.height, y.start, y.end, first.y);
        if (image.depth == 1) {
            first.z = 0;
            nodes.depth = 1;
        } else {
            const int anchorZ = atPoint ? grid.anchor.z : z.start;
            nodes.depth = GetAnchoredAxis(anchorZ, grid.step.depth, z.start, z.end, first.z);
        }
        if (nodes.width < 1 || nodes.height < 1 || nodes.depth < 1)
            throw PIVerror::BAD_GRID_DIMENSION;

        grid.nodes = nodes;
        grid.first = first;
        DebugPrintExt(2,
                      "PIV::CreateDataGrid4D() - grid %dx%dx%d nodes, first (%d,%d,%d), "
                      "step (%d,%d,%d), image %dx%dx%d",
                      nodes.width, nodes.height, nodes.depth, first.x, first.y, first.z,
                      grid.step.width, grid.step.height, grid.step.depth, image.width, image.height,
                      image.depth);
        return true;
    } catch (PIVerror::ErrorType code) {
        PIVerror::handleErrorExt(code, "PIV::CreateDataGrid4D()", DebugLevel() > 0);
        return false;
    }
}

bool PIV::GridPositionsFit(const DATA_GRID4D& g) {
    auto within = [](int64_t v) { return v >= -kMaxGridPixels && v <= kMaxGridPixels; };
    const int64_t first[3] = {g.first.x, g.first.y, g.first.z};
    const int64_t nodes[3] = {g.nodes.width, g.nodes.height, g.nodes.depth};
    const int64_t step[3] = {g.step.width, g.step.height, g.step.depth};
    const int64_t image[3] = {g.imageSize.width, g.imageSize.height, g.imageSize.depth};
    for (int a = 0; a < 3; a++) {
        const int64_t last = first[a] + std::max<int64_t>(0, nodes[a] - 1) * step[a];
        if (!within(first[a]) || !within(last) || !within(image[a])) return false;
    }
    return true;
}
