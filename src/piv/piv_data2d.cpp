#include "piv_data2d.h"

#include <algorithm>

PIV_Data2D::PIV_Data2D(const DATA_GRID4D& grid) : m_grid(grid), m_error("PIV_Data2D") {
    if (m_grid.timeSteps < 1) m_grid.timeSteps = 1;
    const long nx = std::max(m_grid.nodes.width, 0);
    const long ny = std::max(m_grid.nodes.height, 0);
    if (nodeCount() <= 0) return;
    // The time planes overlap or leave gaps when nx differs from ny; the block
    // is sized so that the last plane's last node still lies inside it.
    const long lastPlaneEnd = nx * (ny + (m_grid.timeSteps - 1) * nx);
    m_vectors.resize(std::max<long>(nodeCount(), lastPlaneEnd));
}

int PIV_Data2D::nodeCount() const {
    const long n = long(std::max(m_grid.nodes.width, 0)) * std::max(m_grid.nodes.height, 0) *
                   std::max(m_grid.nodes.depth, 1) * std::max(m_grid.timeSteps, 1);
    return static_cast<int>(n);
}

long PIV_Data2D::index2D(int row, int col, int t) const {
    if (t < 0) t = 0;
    const long nx = m_grid.nodes.width;
    return col + nx * (row + long(t) * nx);
}

bool PIV_Data2D::inside(int row, int col, int t) const {
    if (t < 0) t = 0;
    return row >= 0 && col >= 0 && row < m_grid.nodes.height && col < m_grid.nodes.width &&
           t < m_grid.timeSteps;
}

PIV_VECTOR PIV_Data2D::getVector2D(int row, int col, int t) const {
    if (m_vectors.empty() || !inside(row, col, t)) return m_null;
    return m_vectors[index2D(row, col, t)];
}

PIVerror::ErrorType PIV_Data2D::setVector2D(const PIV_VECTOR& vector, int row, int col, int t) {
    if (m_vectors.empty()) return PIVerror::DATA_IS_NULL;
    if (!inside(row, col, t)) return PIVerror::CANNOT_OPERATE;
    m_vectors[index2D(row, col, t)] = vector;
    return PIVerror::NO_ERROR;
}
