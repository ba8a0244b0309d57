// ReynoldsStresses: averaged products of the fluctuations of a series of
// fields about a mean field that is already known (a first pass over the
// series gave it), and their text table.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include "piv_data2d_stats.h"
#include "piv_file.h"
#include "piv_messages.h"
#include "piv_util.h"

namespace {

// The sums of one node: six products each of velocity, displacement and
// speckle shift, in the order of REYNOLDS_STRESS.
enum { kVelocity = 0, kDisplacement = 6, kShift = 12, kProducts = 18 };

void AddProducts(double* p, double a, double b, double d) {
    p[0] += a * a;
    p[1] += b * b;
    p[2] += d * d;
    p[3] += a * b;
    p[4] += a * d;
    p[5] += b * d;
}

// Data type bit of a field that serves as the mean of a series.
constexpr int kSeriesMean = 0x80000;

// Which of the three quantities a table shows.
enum class Quantity { Velocity, Displacement, Shift };

}  // namespace

ReynoldsStresses::ReynoldsStresses() {
    m_error.setName("ReynoldsStresses");
}

ReynoldsStresses::~ReynoldsStresses() {
    if (m_mean) m_mean->release();
    if (m_current) m_current->release();
}

void ReynoldsStresses::reset() {
    m_sums.clear();
    m_result.clear();
    m_dataSets = 0;
    m_upToDate = false;
}

bool ReynoldsStresses::allocPivData(const PIV_Data2D* field) {
    if (!m_mean) m_mean = new (std::nothrow) PIV_Data2D();
    if (!m_mean || !m_mean->copy(*field)) return false;
    m_mean->setFlagRawData(true);
    m_mean->setDataType(field->dataType() | kSeriesMean);
    try {
        m_sums.assign(size_t(field->nodeCount()), Sums());
        m_result.assign(size_t(field->nodeCount()), REYNOLDS_STRESS());
    } catch (const std::bad_alloc&) {
        reset();
        return false;
    }
    for (Sums& s : m_sums) std::memset(&s, 0, sizeof(s));
    return true;
}

bool ReynoldsStresses::setMeanData(const PIV_Data2D* field) {
    if (!field) {
        m_error.setMessage("setMeanData() - invalid data pointer");
        return m_error.handleError(PIVerror::INVALID_POINTER, "setMeanData()"), false;
    }
    if (field->isNull()) {
        m_error.setMessage("setMeanData() - invalid node count (%d)", field->nodeCount());
        return m_error.handleError(PIVerror::ALLOCATION_FAILED, "setMeanData()"), false;
    }
    reset();
    if (!allocPivData(field))
        return m_error.handleError(PIVerror::ALLOCATION_FAILED, "setMeanData()"), false;
    return true;
}

bool ReynoldsStresses::setMeanData(const char* fileName) {
    PIV_Data2D* field = new (std::nothrow) PIV_Data2D();
    if (!field) return m_error.handleError(PIVerror::ALLOCATION_FAILED, "setMeanData()"), false;
    bool ok = field->load(fileName);
    if (!ok) {
        m_error.setMessage("setMeanData() - %s", field->getLastError());
        m_error.handleError(PIVerror::FILE_READ_FAILED, "setMeanData()");
    } else {
        ok = setMeanData(field);
    }
    field->release();
    return ok;
}

bool ReynoldsStresses::incrementPivData(const PIV_Data2D* field, int timeStep,
                                        unsigned int flagMask) {
    if (!field || field->isNull())
        return m_error.handleError(PIVerror::DATA_IS_NULL, "incrementPivData()"), false;
    if (!m_current) m_current = new (std::nothrow) PIV_Data2D();
    if (!m_current || !m_current->copy(*field))
        return m_error.handleError(PIVerror::ALLOCATION_FAILED, "incrementPivData()"), false;
    return increment(timeStep, flagMask);
}

bool ReynoldsStresses::incrementPivData(const char* fileName, int timeStep, unsigned int flagMask) {
    if (!m_current) m_current = new (std::nothrow) PIV_Data2D();
    if (!m_current)
        return m_error.handleError(PIVerror::ALLOCATION_FAILED, "incrementPivData()"), false;
    if (!m_current->load(fileName)) {
        m_error.setMessage("incrementPivData() - %s", m_current->getLastError());
        return m_error.handleError(PIVerror::FILE_READ_FAILED, "incrementPivData()"), false;
    }
    return increment(timeStep, flagMask);
}

bool ReynoldsStresses::increment(int timeStep, unsigned int flagMask) {
    if (!m_mean || m_mean->isNull() || m_sums.empty()) {
        m_error.setMessage("incrementPivData() - missing mean data");
        return m_error.handleError(PIVerror::DATA_IS_NULL, "incrementPivData()"), false;
    }
    if (m_current->nodeCount() != m_mean->nodeCount())
        return m_error.handleError(PIVerror::GRID_MISMATCH, "incrementPivData()"), false;
    const int steps = std::max(m_current->timeSteps(), 1);
    const int first = timeStep < 0 ? 0 : std::min(timeStep, steps - 1);
    const int last = timeStep < 0 ? steps - 1 : first;
    const long perStep = m_current->nodeCount() / steps;
    const PIV_VECTOR* mean = m_mean->data();
    const PIV_VECTOR* cur = m_current->data();
    for (int t = first; t <= last; t++)
        for (long k = t * perStep; k < (t + 1) * perStep; k++) {
            const PIV_VECTOR& c = cur[k];
            if (!(c.flag & VECTOR_ENABLED) || (c.flag & flagMask)) continue;
            const PIV_VECTOR& m = mean[k];
            Sums& s = m_sums[size_t(k)];
            AddProducts(s.p + kVelocity, double(c.u) - m.u, double(c.v) - m.v, double(c.w) - m.w);
            AddProducts(s.p + kDisplacement, double(c.dx) - m.dx, double(c.dy) - m.dy,
                        double(c.dz) - m.dz);
            AddProducts(s.p + kShift, double(c.sx) - m.sx, double(c.sy) - m.sy,
                        double(c.sz) - m.sz);
            s.count++;
        }
    m_dataSets++;
    m_upToDate = false;
    return true;
}

bool ReynoldsStresses::update() {
    if (m_dataSets == 0) {
        m_error.setMessage("update() - no data sets in processed");
        return m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, "update()"), false;
    }
    for (size_t k = 0; k < m_sums.size(); k++) {
        const Sums& s = m_sums[k];
        REYNOLDS_STRESS r;
        // One sample has no fluctuation to speak of.
        if (s.count > 1) {
            for (int i = 0; i < kProducts; i++)
                PIV::Product(r, i) = float(s.p[i] / double(s.count));
            r.count = s.count;
        }
        m_result[k] = r;
    }
    m_upToDate = true;
    return true;
}

bool ReynoldsStresses::save(const char* fileName, const OUTPUT_CFG& output, bool) {
    if (!m_upToDate || m_result.empty()) {
        m_error.setMessage("save() - invalid Reynolds stresses");
        return m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, "save()"), false;
    }
    if (!m_mean || m_mean->isNull()) {
        m_error.setMessage("save() - missing mean data for Reynolds stress calculation");
        return m_error.handleError(PIVerror::DATA_IS_NULL, "save()"), false;
    }
    PIV::TempFile temp(fileName ? fileName : "");
    std::FILE* f = temp.file();
    if (!fileName || !f) {
        m_error.setMessage("save() - file creation failed for '%s'", fileName ? fileName : "");
        return m_error.handleError(PIVerror::FILE_CREATE_FAILED, "save()"), false;
    }
    const int type = m_mean->dataType();
    Quantity q = Quantity::Velocity;
    if (output.StoreRawData || !(type & (PIV::DATA_VELOCITY | PIV::DATA_SPECKLE)))
        q = Quantity::Displacement;
    else if (!(type & PIV::DATA_VELOCITY))
        q = Quantity::Shift;
    const bool is3C = m_mean->is3C();
    const DATA_GRID4D& g = m_mean->grid();
    const int nx = g.nodes.width, ny = g.nodes.height;
    const int stepX = std::max(output.DesampleX, 1), stepY = std::max(output.DesampleY, 1);
    const std::time_t now = std::time(nullptr);

    std::fprintf(f, "# Comments = \"Reynolds stresses (without density!)\"\n");
    std::fprintf(f, "# Original file name: %s\n", m_mean->name());
    std::fprintf(f, "# Creation date: %s", std::ctime(&now));
    std::fprintf(f, "# Software: %s\n", PIV::SoftwareName());
    std::fprintf(f, "# Grid size: %d horiz.nodes, %d vert.nodes\n", nx, ny);
    if (stepX > 1 || stepY > 1)
        std::fprintf(f, "# Original data desampled: %dx horiz, %dx vert\n", stepX, stepY);
    if (q == Quantity::Displacement) {
        std::fprintf(f, "# GridUnit: [pixel]\n");
        std::fprintf(f, "# Data Unit: [pixel]\n# based on raw displacements");
    } else {
        std::fprintf(f, "# GridUnit: [%s]\n", m_mean->gridUnit());
        if (q == Quantity::Velocity)
            std::fprintf(f, "# Velocity Unit: [%s]", m_mean->velocityUnit());
        else
            std::fprintf(f, "# Displacement Unit: [%s]\n# based on speckle-shift data",
                         m_mean->shiftUnit());
    }
    std::fprintf(f, " using %d files\n", m_dataSets);
    std::fprintf(f,
                 "# U_bar --> mean X-velocity or -displacement\n"
                 "# V_bar --> mean Y-velocity or -displacement\n"
                 "# W_bar --> mean Z-velocity or -displacement\n"
                 "# uu    --> averaged u'u' \n"
                 "# vv    --> averaged v'v' \n"
                 "# uv    --> averaged u'v' \n"
                 "# count --> number of samples at grid point\n"
                 "# valid --> normalized number of samples at grid point\n");
    std::fprintf(f, "TITLE = \"Reynolds Stresses\"\n");
    std::fprintf(f, "VARIABLES = \"x\", \"y\"");
    if (is3C) std::fprintf(f, ", \"z\"");
    std::fprintf(f, ", \"U_bar\", \"V_bar\"");
    if (is3C) std::fprintf(f, ", \"W_bar\"");
    std::fprintf(f, ", \"uu\", \"vv\"");
    if (is3C) std::fprintf(f, ", \"ww\"");
    std::fprintf(f, ", \"uv\"");
    if (is3C) std::fprintf(f, ", \"uw\", \"vw\"");
    std::fprintf(f, ", \"count\", \"valid\"\n");
    const int columns = (nx + stepX - 1) / stepX, rows = (ny + stepY - 1) / stepY;
    std::fprintf(f, "ZONE I=%d, J=%d, F=POINT\n", columns, rows);
    const PIV_VECTOR* mean = m_mean->data();
    const int offset = q == Quantity::Velocity ? kVelocity
                       : q == Quantity::Shift  ? kShift
                                               : kDisplacement;
    for (int j = 0; j < ny; j += stepY)
        for (int i = 0; i < nx; i += stepX) {
            const size_t k = size_t(j) * nx + i;
            const PIV_VECTOR& m = mean[k];
            float r[6];
            for (int c = 0; c < 6; c++) r[c] = PIV::Product(m_result[k], offset + c);
            double x = m.x, y = m.y, z = m.z, U = m.u, V = m.v, W = m.w;
            if (q == Quantity::Displacement) {
                x = m.ix;
                y = g.imageSize.height - m.iy;
                z = m.iz;
                U = m.dx;
                V = m.dy;
                W = m.dz;
            } else if (q == Quantity::Shift) {
                U = m.sx;
                V = m.sy;
                W = m.sz;
            }
            std::fprintf(f, "%g %g ", x, y);
            if (is3C) std::fprintf(f, "%g ", z);
            std::fprintf(f, "%g %g ", U, V);
            if (is3C) std::fprintf(f, "%g ", W);
            std::fprintf(f, "%g %g ", double(r[0]), double(r[1]));
            if (is3C) std::fprintf(f, "%g ", double(r[2]));
            std::fprintf(f, "%g ", double(r[3]));
            if (is3C) std::fprintf(f, "%g %g ", double(r[4]), double(r[5]));
            std::fprintf(f, "%llu %g\n", static_cast<unsigned long long>(m_result[k].count),
                         double(m_result[k].count) / m_dataSets);
        }
    if (std::ferror(f) || !temp.commit(fileName)) {
        m_error.setMessage("save() - file creation failed for '%s'", fileName);
        return m_error.handleError(PIVerror::FILE_WRITE_FAILED, "save()"), false;
    }
    return true;
}

bool ReynoldsStresses::saveCurrentDifference(const char* fileName, const OUTPUT_CFG& output) {
    if (!m_mean || m_mean->isNull() || !m_current || m_current->isNull()) {
        m_error.setMessage("saveCurrentDifference() - missing data");
        return m_error.handleError(PIVerror::DATA_IS_NULL, "saveCurrentDifference()"), false;
    }
    PIV_Data2D difference;
    if (!difference.copy(*m_current) || !difference.subtractData(*m_mean) ||
        !difference.save(fileName, -1, output)) {
        m_error.setMessage("saveCurrentDifference() - saving '%s' failed %s",
                           fileName ? fileName : "", difference.getLastError());
        return m_error.handleError(PIVerror::FILE_WRITE_FAILED, "saveCurrentDifference()"), false;
    }
    return true;
}
