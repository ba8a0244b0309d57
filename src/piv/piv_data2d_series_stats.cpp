// PIV_Data2D_Stats: node-by-node statistics over a series of vector fields,
// one field at a time, by the one-pass updates of the central moments.
#include <algorithm>
#include <cmath>
#include <ctime>
#include <new>

#include "piv_data2d_stats.h"
#include "piv_file.h"
#include "piv_messages.h"
#include "piv_util.h"

void PIV_STATS_ACCUMULATOR::add(double x) {
    count++;
    const double n = double(count);
    if (count == 1) {
        minimum = maximum = x;
    } else {
        minimum = std::min(minimum, x);
        maximum = std::max(maximum, x);
    }
    const double delta = x - mean;
    const double deltaN = delta / n;
    const double deltaN2 = deltaN * deltaN;
    const double term = delta * deltaN * (n - 1.0);
    mean += deltaN;
    // The higher moments first: each update uses the lower ones before they move.
    M4 += term * deltaN2 * (n * n - 3.0 * n + 3.0) + 6.0 * deltaN2 * M2 - 4.0 * deltaN * M3;
    M3 += term * deltaN * (n - 2.0) - 3.0 * deltaN * M2;
    M2 += term;
}

void PIV_STATS_ACCUMULATOR::merge(const PIV_STATS_ACCUMULATOR& b) {
    if (b.count == 0) return;
    if (count == 0) {
        *this = b;
        return;
    }
    // In the shares of either side, so that one division serves all four.
    const double na = double(count), nb = double(b.count);
    const double fb = nb / (na + nb), fa = 1.0 - fb;
    const double delta = b.mean - mean;
    const double d2 = delta * delta;
    // The higher moments first, from the lower ones of both sides as they were.
    M4 += b.M4 + d2 * d2 * na * fb * (fa * fa - fa * fb + fb * fb) +
          6.0 * d2 * (fa * fa * b.M2 + fb * fb * M2) + 4.0 * delta * (fa * b.M3 - fb * M3);
    M3 += b.M3 + d2 * delta * na * fb * (fa - fb) + 3.0 * delta * (fa * b.M2 - fb * M2);
    M2 += b.M2 + d2 * na * fb;
    mean += delta * fb;
    count += b.count;
    minimum = std::min(minimum, b.minimum);
    maximum = std::max(maximum, b.maximum);
}

double PIV_STATS_ACCUMULATOR::stdDev() const {
    return count > 0 ? std::sqrt(M2 / double(count)) : 0.0;
}

double PIV_STATS_ACCUMULATOR::skew() const {
    if (!(stdDev() > 0.0)) return 0.0;
    return std::sqrt(double(count)) * M3 / (M2 * std::sqrt(M2));
}

double PIV_STATS_ACCUMULATOR::kurt() const {
    if (!(stdDev() > 0.0)) return 0.0;
    return double(count) * M4 / (M2 * M2) - 3.0;
}

PIV_Data2D_Stats::PIV_Data2D_Stats() {
    m_error.setName("PIV_Data2D_Stats");
}

PIV_Data2D_Stats::~PIV_Data2D_Stats() {
    clear();
}

uint32_t PIV_Data2D_Stats::release() {
    const uint32_t left = --m_refCount;
    if (left == 0) delete this;
    return left;
}

void PIV_Data2D_Stats::clear() {
    if (m_avg) m_avg->release();
    if (m_rms) m_rms->release();
    m_avg = m_rms = nullptr;
    m_nodes.clear();
    m_dataSets = 0;
    m_available = false;
}

bool PIV_Data2D_Stats::allocPIVdata(PIV_Data2D* field) {
    clear();
    // One plane and one step: the series collapses time.
    DATA_GRID4D grid = field->grid();
    grid.nodes.depth = 1;
    grid.timeSteps = 1;
    m_avg = new (std::nothrow) PIV_Data2D();
    if (!m_avg || !m_avg->create(grid)) {
        m_error.setMessage("allocPivData() - avgData - failed!");
        return false;
    }
    m_rms = new (std::nothrow) PIV_Data2D();
    if (!m_rms || !m_rms->create(grid)) {
        m_error.setMessage("allocPivData() - rmsData - failed!");
        return false;
    }
    try {
        m_nodes.assign(size_t(m_avg->nodeCount()), NodeStats());
    } catch (const std::bad_alloc&) {
        m_error.setMessage("allocPivData() - failed!");
        return false;
    }
    const PIV_VECTOR* src = field->data();
    for (PIV_Data2D* f : {m_avg, m_rms}) {
        f->setPivParameters(field->pivParameters());
        f->setAnalysisMode(field->analysisMode());
        f->setFlag3C(field->is3C());
        f->setDataType(field->dataType());
        f->setName(field->name());
        // The nodes sit where the series' nodes sit, in pixels and physically.
        PIV_VECTOR* dst = f->data();
        for (int k = 0; k < f->nodeCount(); k++) {
            dst[k].x = src[k].x;
            dst[k].y = src[k].y;
            dst[k].z = src[k].z;
        }
    }
    return true;
}

bool PIV_Data2D_Stats::init(PIV_Data2D* field) {
    if (!field) return m_error.handleError(PIVerror::INVALID_POINTER, "init()"), false;
    if (field->isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "init()"), false;
    if (!allocPIVdata(field)) {
        clear();
        return m_error.handleError(PIVerror::ALLOCATION_FAILED, "init()"), false;
    }
    m_dataSets = 0;
    m_available = false;
    return true;
}

bool PIV_Data2D_Stats::increment(PIV_Data2D* field, int timeStep, unsigned int flagMask) {
    if (!field) return m_error.handleError(PIVerror::INVALID_POINTER, "increment()"), false;
    if (field->isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "increment()"), false;
    if (m_nodes.empty() && !init(field)) return false;
    const SIZE3D& held = m_avg->grid().nodes;
    const SIZE3D& given = field->grid().nodes;
    if (given.width != held.width || given.height != held.height) {
        // This field is refused; the series so far stays as it was.
        m_error.setMessage("allocPivData() - grid mismatch: %d vs %d", given.width * given.height,
                           held.width * held.height);
        return m_error.handleError(PIVerror::GRID_MISMATCH, "increment()"), false;
    }
    if (!field->isDifferentiated()) field->differentiate();
    const int steps = std::max(field->timeSteps(), 1);
    const int first = timeStep < 0 ? 0 : std::min(timeStep, steps - 1);
    const int last = timeStep < 0 ? steps - 1 : first;
    const long plane = long(held.width) * held.height;
    for (int t = first; t <= last; t++) {
        const PIV_VECTOR* v = field->dataAtTime(t);
        const DIFFERENTIALS* d = field->diffDataAtTime(t);
        for (long k = 0; k < plane; k++) {
            const PIV_VECTOR& c = v[k];
            if (!(c.flag & VECTOR_ENABLED) || (c.flag & flagMask)) continue;
            const DIFFERENTIALS g = d ? d[k] : DIFFERENTIALS();
            const double values[Q_COUNT] = {c.dx,
                                            c.dy,
                                            c.dz,
                                            c.u,
                                            c.v,
                                            c.w,
                                            c.sx,
                                            c.sy,
                                            c.sz,
                                            c.corr,
                                            c.meanSquaredCorr,
                                            g.dudx,
                                            g.dudy,
                                            g.dudz,
                                            double(g.dwdy) - g.dvdz,
                                            double(g.dudz) - g.dwdx,
                                            double(g.dvdx) - g.dudy};
            PIV_STATS_ACCUMULATOR* acc = m_nodes[size_t(k)].q;
            for (int q = 0; q < Q_COUNT; q++) acc[q].add(values[q]);
        }
    }
    m_dataSets++;
    m_available = false;
    return true;
}

bool PIV_Data2D_Stats::merge(const PIV_Data2D_Stats& other) {
    if (&other == this) {
        m_error.setMessage("merge() - a series cannot be merged with itself");
        return m_error.handleError(PIVerror::BAD_PARAMETERS, "merge()"), false;
    }
    if (other.m_nodes.empty() || !other.m_avg) return true;
    if (m_nodes.empty()) {
        if (!allocPIVdata(other.m_avg)) {
            clear();
            return m_error.handleError(PIVerror::ALLOCATION_FAILED, "merge()"), false;
        }
        m_nodes = other.m_nodes;
        m_dataSets = other.m_dataSets;
        return true;
    }
    const SIZE3D& held = m_avg->grid().nodes;
    const SIZE3D& given = other.m_avg->grid().nodes;
    if (given.width != held.width || given.height != held.height) {
        m_error.setMessage("merge() - grid mismatch: %d vs %d", given.width * given.height,
                           held.width * held.height);
        return m_error.handleError(PIVerror::GRID_MISMATCH, "merge()"), false;
    }
    for (size_t k = 0; k < m_nodes.size(); k++)
        for (int q = 0; q < Q_COUNT; q++) m_nodes[k].q[q].merge(other.m_nodes[k].q[q]);
    m_dataSets += other.m_dataSets;
    m_available = false;
    return true;
}

bool PIV_Data2D_Stats::update() {
    if (m_dataSets == 0 || m_nodes.empty() || !m_avg || !m_rms) {
        m_error.setMessage("updatePivStats() - missing data");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "update()"), false;
    }
    PIV_VECTOR* avg = m_avg->data();
    PIV_VECTOR* rms = m_rms->data();
    for (size_t k = 0; k < m_nodes.size(); k++) {
        const PIV_STATS_ACCUMULATOR* q = m_nodes[k].q;
        const uint64_t n = q[Q_DX].count;
        const uint8_t flag = n >= 1 ? VECTOR_ENABLED : VECTOR_OUTLIER;
        // The quantities Q_DX .. Q_SZ are the triples' components in order,
        // the correlation next.
        static_assert(Q_DX == 0 && Q_CORR == PIV::kTripleComponents, "quantity order");
        for (int m = 0; m <= PIV::kTripleComponents; m++) {
            float PIV_VECTOR::*const member =
                m < PIV::kTripleComponents ? PIV::kTripleMembers[m] : &PIV_VECTOR::corr;
            avg[k].*member = float(q[m].mean);
            rms[k].*member = float(q[m].stdDev());
        }
        avg[k].meanSquaredCorr = avg[k].corr;
        rms[k].meanSquaredCorr = rms[k].corr;
        avg[k].count = rms[k].count = int32_t(n);
        avg[k].flag = rms[k].flag = flag;
    }
    for (PIV_Data2D* f : {m_avg, m_rms}) {
        f->setFlagRawData(true);
        f->setFlagValidated(true);
        f->setFlagStatisticsData(true);
        f->setFlagFileData(true);
        f->setFlagMultiplePeaks(false);
        f->differentiate();
        f->doStatistics();
        // The number of fields the statistics stand on goes with the parameters.
        PIV_PARAMETERS p = f->pivParameters();
        p.eval.MultiCorr_Count = m_dataSets;
        f->setPivParameters(p);
        f->setDataSetCount(m_dataSets);
    }
    m_avg->setDataType(m_avg->dataType() | PIV::DATA_COUNTS);
    m_rms->setDataType(m_avg->dataType());
    m_available = true;
    return true;
}

namespace {

// The accumulator behind a variable, or -1 for a variable without one.
int QuantityOf(PIV::DataVariableType variable) {
    switch (variable) {
        case PIV::VAR_CORR:
            return PIV_Data2D_Stats::Q_CORR;
        case PIV::VAR_DX:
            return PIV_Data2D_Stats::Q_DX;
        case PIV::VAR_DY:
            return PIV_Data2D_Stats::Q_DY;
        case PIV::VAR_DZ:
            return PIV_Data2D_Stats::Q_DZ;
        case PIV::VAR_U:
            return PIV_Data2D_Stats::Q_U;
        case PIV::VAR_V:
            return PIV_Data2D_Stats::Q_V;
        case PIV::VAR_W:
            return PIV_Data2D_Stats::Q_W;
        case PIV::VAR_SX:
            return PIV_Data2D_Stats::Q_SX;
        case PIV::VAR_SY:
            return PIV_Data2D_Stats::Q_SY;
        case PIV::VAR_SZ:
            return PIV_Data2D_Stats::Q_SZ;
        case PIV::VAR_DUDX:
            return PIV_Data2D_Stats::Q_DUDX;
        case PIV::VAR_DUDY:
            return PIV_Data2D_Stats::Q_DUDY;
        case PIV::VAR_DUDZ:
            return PIV_Data2D_Stats::Q_DUDZ;
        case PIV::VAR_VORT_X:
            return PIV_Data2D_Stats::Q_VORT_X;
        case PIV::VAR_VORT_Y:
            return PIV_Data2D_Stats::Q_VORT_Y;
        case PIV::VAR_VORT_Z:
            return PIV_Data2D_Stats::Q_VORT_Z;
        default:
            return -1;
    }
}

}  // namespace

bool PIV_Data2D_Stats::dumpVariableToFile(const char* fileName, PIV::DataVariableType variable) {
    if (m_nodes.empty() || !m_avg || m_dataSets == 0) {
        m_error.setMessage("dumpVariableToFile() - no statistics data");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "dumpVariableToFile()"), false;
    }
    if (!fileName || !*fileName) {
        return m_error.handleError(PIVerror::BAD_FILE_NAME, "dumpVariableToFile()"), false;
    }
    PIV::TempFile file(fileName);
    if (!file.file()) {
        m_error.setMessage("dumpVariableToFile() - file creation failed for: %s", fileName);
        return m_error.handleError(PIVerror::FILE_CREATE_FAILED, "dumpVariableToFile()"), false;
    }
    std::FILE* f = file.file();
    const char* name = PIV::GetVariableNameFromType(variable);
    const SIZE3D& n = m_avg->grid().nodes;
    const std::time_t now = std::time(nullptr);
    std::fprintf(f, "# Original file name: %s\n", m_avg->name());
    std::fprintf(f, "# Statistics output for variable: %s\n", name);
    std::fprintf(f, "# Creation date: %s", std::ctime(&now));
    std::fprintf(f, "# Software: %s\n", PIV::SoftwareName());
    std::fprintf(f, "# Grid size: %d horiz.nodes, %d vert.nodes, %d depth.nodes\n", n.width,
                 n.height, n.depth);
    std::fprintf(f, "# Data based on %d data sets (files)\n", m_dataSets);
    std::fprintf(f, "TITLE = \"%s\"\n", name);
    std::fprintf(f,
                 "VARIABLES = \"ix\", \"iy\", \"iz\", \"x\", \"y\", \"z\", \"mean\", \"stddev\", "
                 "\"skew\", \"kurt\", \"valid\"\n");
    std::fprintf(f, "ZONE I=%d, J=%d, K=%d, F=POINT, T=\"%s\"\n", n.width, n.height, n.depth, name);
    const int q = QuantityOf(variable);
    const PIV_VECTOR* v = m_avg->data();
    int lines = 0;
    for (size_t k = 0; k < m_nodes.size(); k++) {
        double mean = 0.0, dev = 0.0, skew = 0.0, kurt = 0.0, valid = 0.0;
        if (q >= 0) {
            const PIV_STATS_ACCUMULATOR& a = m_nodes[k].q[q];
            mean = a.mean;
            dev = a.stdDev();
            skew = a.skew();
            kurt = a.kurt();
            valid = double(a.count) / m_dataSets;
        }
        std::fprintf(f, "%d %d %d  %g %g %g  %g %g %g %g  %g\n", v[k].ix, v[k].iy, v[k].iz,
                     double(v[k].x), double(v[k].y), double(v[k].z), mean, dev, skew, kurt, valid);
        lines++;
    }
    DebugPrintExt(2, "   wrote %d lines - closing file", lines);
    if (!file.commit(fileName)) {
        m_error.setMessage("dumpVariableToFile() - write failed for: %s", fileName);
        return m_error.handleError(PIVerror::FILE_WRITE_FAILED, "dumpVariableToFile()"), false;
    }
    return true;
}
