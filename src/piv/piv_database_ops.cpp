// PIV_DataBase: arithmetic on whole fields, status bits and masks.
#include <cmath>

#include "image2d.h"
#include "piv_database.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "piv_units.h"

bool PIV_DataBase::combine(const PIV_DataBase& other, float sign, const char* where) {
    if (&other == this) return m_error.handleError(PIVerror::OVERWRITE_OWN_DATA, where), false;
    if (isNull() || other.isNull())
        return m_error.handleError(PIVerror::DATA_IS_NULL, where), false;
    if (other.m_nodeCount != m_nodeCount)
        return m_error.handleError(PIVerror::GRID_MISMATCH, where), false;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        const PIV_VECTOR& o = other.m_vectors[k];
        v.dx += sign * o.dx;
        v.dy += sign * o.dy;
        v.dz += sign * o.dz;
        v.u += sign * o.u;
        v.v += sign * o.v;
        v.w += sign * o.w;
        v.sx += sign * o.sx;
        v.sy += sign * o.sy;
        v.sz += sign * o.sz;
        // A peak is a displacement candidate of this node: it moves with the
        // other field's displacement, whatever the other field's peaks are.
        for (PIV_PEAK& p : v.peak) {
            p.x += sign * o.dx;
            p.y += sign * o.dy;
        }
    }
    return true;
}

bool PIV_DataBase::subtractData(const PIV_DataBase& other) {
    return combine(other, -1.0f, "subtractData()");
}

bool PIV_DataBase::addData(const PIV_DataBase& other) {
    return combine(other, 1.0f, "addData()");
}

bool PIV_DataBase::scaleData(float factor) {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "scaleData()"), false;
    const bool zero = factor == 0.0f;
    // A zero factor is almost always a mistake of the caller, so it is
    // reported; the field is still scaled, as asked.
    if (zero)
        m_error.handleErrorLong(PIVerror::BAD_PARAMETERS, "scaleData() - scale factor is zero");
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        v.dx *= factor;
        v.dy *= factor;
        v.dz *= factor;
        v.u *= factor;
        v.v *= factor;
        v.w *= factor;
        v.sx *= factor;
        v.sy *= factor;
        v.sz *= factor;
        for (PIV_PEAK& p : v.peak) {
            p.x *= factor;
            p.y *= factor;
        }
    }
    return !zero;
}

bool PIV_DataBase::scaleGridAndData(float factor) {
    if (!(factor > 0.0f)) return false;
    if (factor == 1.0f) return true;
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "scaleGridAndData()"), false;
    auto scale3 = [factor](int32_t& a, int32_t& b, int32_t& c) {
        a = int32_t(float(a) * factor);
        b = int32_t(float(b) * factor);
        c = int32_t(float(c) * factor);
    };
    DATA_GRID4D& g = m_grid;
    scale3(g.step.width, g.step.height, g.step.depth);
    scale3(g.imageSize.width, g.imageSize.height, g.imageSize.depth);
    scale3(g.margin.width, g.margin.height, g.margin.depth);
    scale3(g.first.x, g.first.y, g.first.z);
    m_params.eval.grid = g;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        v.ix = int32_t(std::lround(float(v.ix) * factor));
        v.iy = int32_t(std::lround(float(v.iy) * factor));
        v.iz = int32_t(std::lround(float(v.iz) * factor));
        v.dx *= factor;
        v.dy *= factor;
        v.dz *= factor;
        for (PIV_PEAK& p : v.peak) {
            p.x *= factor;
            p.y *= factor;
        }
    }
    return true;
}

bool PIV_DataBase::translateGrid(float dx, float dy, float dz) {
    if (dx == 0.0f && dy == 0.0f && dz == 0.0f) return true;
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "translateGrid()"), false;
    const double* mag = m_params.convert.LengthConversion;
    const int32_t px = int32_t(std::lround(dx * mag[0]));
    const int32_t py = int32_t(std::lround(dy * mag[1]));
    const int32_t pz = int32_t(std::lround(dz * mag[2]));
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        // The physical y axis points up, the image rows down.
        v.ix += px;
        v.iy -= py;
        v.iz += pz;
        v.x += dx;
        v.y += dy;
        v.z += dz;
    }
    return true;
}

bool PIV_DataBase::initShift(float dx, float dy, float dz) {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "initShift()"), false;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        v.dx = dx;
        v.dy = dy;
        v.dz = dz;
        v.snr = 0.0f;
        v.flag = VECTOR_ENABLED;
        v.count = 1;
        for (PIV_PEAK& p : v.peak) p = PIV_PEAK{dx, dy, 0.0f};
    }
    return true;
}

bool PIV_DataBase::addShift(float dx, float dy, float dz) {
    if (dx == 0.0f && dy == 0.0f && dz == 0.0f) return false;
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "addShift()"), false;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        v.dx += dx;
        v.dy += dy;
        v.dz += dz;
        // A peak without value was never found: it stays an empty slot.
        for (PIV_PEAK& p : v.peak) {
            if (p.value == 0.0f) continue;
            p.x += dx;
            p.y += dy;
        }
    }
    return true;
}

bool PIV_DataBase::convert(const PIV_Parameters* parameters) {
    if (isNull()) return m_error.handleError(PIVerror::CORRUPT_DATA, "convert()"), false;
    const PIVCONVERT_CFG cfg = parameters ? parameters->pivConvertCfg() : m_params.convert;
    for (unsigned long k = 0; k < m_nodeCount; k++) PIV::ConvertVector(&m_vectors[k], cfg);
    m_converted = true;
    return true;
}

void PIV_DataBase::clearFlags(unsigned char mask) {
    const uint8_t keep = uint8_t(~mask);
    for (unsigned long k = 0; k < m_nodeCount; k++) m_vectors[k].flag &= keep;
}

int PIV_DataBase::disableNullVectors() {
    int disabled = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        if (v.dx != 0.0f || v.dy != 0.0f) continue;
        v.flag = VECTOR_OUTLIER;
        v.count = 0;
        disabled++;
    }
    if (disabled > 0) DebugPrint("PIV_DataBase: disabled %d null-vectors", disabled);
    return disabled;
}

int PIV_DataBase::clearAllDisabled() {
    // Despite the name, it is the manual edits that are undone here.
    int cleared = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        if (!(v.flag & VECTOR_EDITED)) continue;
        v.flag &= uint8_t(~VECTOR_EDITED);
        cleared++;
    }
    return cleared;
}

bool PIV_DataBase::maskOutVectors(const Image2D& mask) {
    const char* where = "maskOutVectors()";
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, where), false;
    if (mask.isNull()) return m_error.handleError(PIVerror::IMAGE_IS_NULL, where), false;
    const SIZE2D ms = mask.size2D();
    if (ms.width != m_grid.imageSize.width || ms.height != m_grid.imageSize.height)
        return m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, where), false;
    m_masked = 0;
    unsigned long masked = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        const PIV_VECTOR& v = m_vectors[k];
        if (!mask.isInside(v.ix, v.iy) || mask.pixel(v.ix, v.iy) == 0.0f) continue;
        clearNode(k, VECTOR_MASKED | VECTOR_OUTLIER);
        masked++;
    }
    DebugPrintExt(2, "PIV_DataBase::maskOutVectors() - masked %u of %u vectors", unsigned(masked),
                  unsigned(m_nodeCount));
    m_masked = masked;
    return true;
}

int PIV_DataBase::eliminateSelfCorrelationPeaks(float radius) {
    if (!haveRawData()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, "eliminateSelfCorrelationPeaks()");
        return 0;
    }
    int changed = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        changed += PIV::EliminateZeroPeak(m_vectors[k], 0.0f, 0.0f, radius);
    }
    return changed;
}

int PIV::EliminateZeroPeak(PIV_VECTOR& v, float refX, float refY, float radius) {
    // A failed window has no peaks to reorder.
    if (v.flag & VECTOR_NO_RESULT) return 0;
    if (!(std::hypot(v.peak[0].x + refX, v.peak[0].y + refY) < radius)) return 0;
    const PIV_PEAK self{v.peak[0].x, v.peak[0].y, 0.0f};
    v.peak[0] = v.peak[1];
    v.peak[1] = v.peak[2];
    v.peak[2] = self;
    v.dx = v.peak[0].x;
    v.dy = v.peak[0].y;
    v.snr = v.peak[0].value;
    return 1;
}
