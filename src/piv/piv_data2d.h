// PIV_Data2D: a field of PIV_VECTOR nodes on a DATA_GRID4D.
#pragma once

#include <vector>

#include "piv_error.h"
#include "piv_types.h"

class PIV_Data2D {
public:
    explicit PIV_Data2D(const DATA_GRID4D& grid);

    const DATA_GRID4D& grid() const { return m_grid; }
    // Nodes of all planes and time steps.
    int nodeCount() const;
    // The vectors in node order.
    PIV_VECTOR* data() { return m_vectors.empty() ? nullptr : m_vectors.data(); }
    const PIV_VECTOR* data() const { return m_vectors.empty() ? nullptr : m_vectors.data(); }

    // A row is a y index, a col an x index; a negative t counts as 0.
    // Outside the grid the object's null vector comes back.
    PIV_VECTOR getVector2D(int row, int col, int t = 0) const;
    // 14 without data, 18 outside the grid, 0 on success.
    PIVerror::ErrorType setVector2D(const PIV_VECTOR& vector, int row, int col, int t = 0);

    // Array index of a node. Time planes are nx*nx apart, not nx*ny: that is
    // the layout of the store, and it shows only for t above 0.
    long index2D(int row, int col, int t) const;

    PIVerror& error() { return m_error; }

private:
    bool inside(int row, int col, int t) const;

    DATA_GRID4D m_grid;
    std::vector<PIV_VECTOR> m_vectors;
    PIV_VECTOR m_null;
    PIVerror m_error;
};
