// Small grids and node contents shared by the vector field tests.
#pragma once

#include "piv_data2d.h"

namespace field_test {

// nx x ny nodes `step` pixels apart, the first one `step` from the corner,
// in an image one step wider and higher than the nodes reach.
inline DATA_GRID4D gridOf(int nx, int ny, int step = 16) {
    DATA_GRID4D g;
    g.nodes = SIZE3D{nx, ny, 1};
    g.timeSteps = 1;
    g.first = POINT3D{step, step, 0};
    g.step = SIZE3D{step, step, 1};
    g.imageSize = SIZE3D{(nx + 1) * step, (ny + 1) * step, 1};
    return g;
}

// 3 x 2 nodes over a 100 x 80 image: x 10, 30, 50 and y 20, 45.
inline DATA_GRID4D grid3x2(int steps = 1) {
    DATA_GRID4D g;
    g.nodes = SIZE3D{3, 2, 1};
    g.timeSteps = steps;
    g.first = POINT3D{10, 20, 0};
    g.step = SIZE3D{20, 25, 1};
    g.imageSize = SIZE3D{100, 80, 1};
    return g;
}

// Every node enabled with dx = its array index, so any index mix-up shows.
inline void numberNodes(PIV_DataBase& f) {
    for (int k = 0; k < f.nodeCount(); k++) {
        f.data()[k].dx = float(k);
        f.data()[k].flag = VECTOR_ENABLED;
    }
}

}  // namespace field_test
