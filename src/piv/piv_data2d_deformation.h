// PIV_Data2D_Deformation: the displacement of a vector field at any image
// point, as the image warp and the transfer between grids need it.
//
// Grid coordinates of an image point are (x - first.x) / step.x and
// (y - first.y) / step.y. Outside the hull of the nodes the nearest edge
// applies (the coordinate is clamped), so a border pixel takes the value of
// the outermost node line rather than a mirrored image of the field.
// Method 2 (B-spline) interpolates with the spline of degree `order` through
// the nodes; any other method is bilinear between the four neighbours.
// Disabled nodes take part with the value they hold: the field handed in is
// expected to be validated and filled.
#pragma once

#include <cstdint>
#include <vector>

#include "piv_error.h"
#include "piv_types.h"

class PIV_DataBase;

class PIV_Data2D_Deformation {
public:
    PIV_Data2D_Deformation();
    explicit PIV_Data2D_Deformation(const PIV_DataBase* field, int timeStep = 0);

    // Takes a copy of the displacements of one step; false (error 14) for a
    // null field. The spline coefficients are made again on next use.
    bool setData(const PIV_DataBase* field, int timeStep = 0);
    void setMethod(int method, int order);
    int method() const { return m_method; }
    int order() const { return m_order; }
    bool prepareSplineCoefficients();

    // The displacement at image point (x, y); false before setData.
    bool interpolateDisplacement(double x, double y, double* dx, double* dy);
    // The displacements of image row `row` at columns 0 .. width-1, as the
    // warp reads them: one pass over the nodes per row instead of one per
    // pixel. Safe to call from several threads once the coefficients are
    // prepared (prepareSplineCoefficients, or setData for other methods).
    // `scratch` holds mapScratchSize() doubles of the calling thread: a
    // parallel warp hands each worker its own, allocated before the workers
    // start.
    bool mapData(int row, int width, float* dx, float* dy, double* scratch) const;
    size_t mapScratchSize() const { return 2 * size_t(m_nx > 0 ? m_nx : 0); }
    // Tabulates where image columns 0 .. width-1 lie between the nodes
    // once, so that mapData of every row of that width reuses it: the
    // cubic only (false for others, which mapData then weighs per pixel).
    bool prepareColumns(int width);

    bool isNull() const { return m_nx < 1 || m_ny < 1; }
    // True when every node holds a zero displacement.
    bool isZero() const;
    PIVerror& error() { return m_error; }

private:
    double gridX(double x) const;
    double gridY(double y) const;

    PIVerror m_error;
    std::vector<float> m_dx, m_dy;        // node values, row by row
    std::vector<float> m_coefX, m_coefY;  // their spline coefficients
    int m_nx = 0, m_ny = 0;
    double m_firstX = 0.0, m_firstY = 0.0, m_stepX = 1.0, m_stepY = 1.0;
    // Per column its fraction of the node interval it lies in; per
    // interval its first column (one past the last at the end).
    std::vector<double> m_colFraction;
    std::vector<int> m_runStart;
    int m_colWidth = 0;
    int m_method = 2;
    int m_order = 3;
    bool m_ready = false;
};
