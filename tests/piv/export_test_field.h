// The small field every export test writes: 3 x 2 nodes 16 pixels apart in
// a 48 x 32 image, with one outlier, one masked and one interpolated node.
//
//   node  row col  ix iy   dx    dy    flag            count corr snr
//   0     0   0     8  8   1.5  -0.5   enabled          1    0.8  5
//   1     0   1    24  8   9     9     outlier          0    0.25 1.2
//   2     0   2    40  8   2     0.25  interpolated     1    0.5  3
//   3     1   0     8 24   0     0     masked           0    0    0
//   4     1   1    24 24  -1     2     enabled          1    0.75 6.5
//   5     1   2    40 24   0.5   1     enabled          1    0.6  4
//
// Physical values: x = ix / 10, y = (32 - iy) / 10 in mm; u, v = dx, dy / 2
// in m/s; speckle shifts sx, sy = 10 dx, 10 dy in um.
#pragma once

#include <string>

#include "piv_data2d.h"
#include "piv_types.h"

namespace export_test {

enum class Kind { Raw, Velocity, Speckle, Rms };

inline DATA_GRID4D SmallGrid(int steps = 1) {
    DATA_GRID4D g;
    g.nodes = SIZE3D{3, 2, 1};
    g.timeSteps = steps;
    g.step = SIZE3D{16, 16, 1};
    g.imageSize = SIZE3D{48, 32, 1};
    g.first = POINT3D{8, 8, 0};
    return g;
}

struct NodeRow {
    float dx, dy;
    uint8_t flag;
    int count;
    float corr, snr;
};

const NodeRow kNodes[6] = {
    {1.5f, -0.5f, VECTOR_ENABLED, 1, 0.8f, 5.0f},
    {9.0f, 9.0f, VECTOR_ENABLED | VECTOR_OUTLIER, 0, 0.25f, 1.2f},
    {2.0f, 0.25f, VECTOR_ENABLED | VECTOR_INTERPOLATED, 1, 0.5f, 3.0f},
    {0.0f, 0.0f, VECTOR_MASKED, 0, 0.0f, 0.0f},
    {-1.0f, 2.0f, VECTOR_ENABLED, 1, 0.75f, 6.5f},
    {0.5f, 1.0f, VECTOR_ENABLED, 1, 0.6f, 4.0f},
};

inline int TypeBits(Kind kind) {
    const int base = PIV::DATA_DISPLACEMENT | PIV::DATA_FLAGS;
    switch (kind) {
        case Kind::Raw:
            return base;
        case Kind::Velocity:
            return base | PIV::DATA_VELOCITY;
        case Kind::Speckle:
            return base | PIV::DATA_SPECKLE;
        case Kind::Rms:
            return base | PIV::DATA_VELOCITY | PIV::DATA_RMS | PIV::DATA_COUNTS;
    }
    return base;
}

// Fills the nodes of step `t` (steps lie nx*ny*nz nodes apart); `offset` is
// added to dx so that steps can be told apart.
inline void FillStep(PIV_Data2D& field, int t, float offset = 0.0f) {
    PIV_VECTOR* v = field.data() + 6 * t;
    for (int n = 0; n < 6; n++) {
        const NodeRow& r = kNodes[n];
        v[n].dx = r.dx + offset;
        v[n].dy = r.dy;
        v[n].flag = r.flag;
        v[n].count = r.count;
        v[n].corr = r.corr;
        v[n].snr = r.snr;
        v[n].x = float(v[n].ix) / 10.0f;
        v[n].y = float(32 - v[n].iy) / 10.0f;
        v[n].u = v[n].dx / 2.0f;
        v[n].v = v[n].dy / 2.0f;
        v[n].sx = v[n].dx * 10.0f;
        v[n].sy = v[n].dy * 10.0f;
    }
}

inline void MakeField(PIV_Data2D& field, Kind kind, int steps = 1) {
    field.create(SmallGrid(steps));
    for (int t = 0; t < steps; t++) FillStep(field, t, float(t) * 100.0f);
    field.setDataType(TypeBits(kind));
    field.setFlagRawData(true);
}

}  // namespace export_test
