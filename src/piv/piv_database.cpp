// PIV_DataBase: storage, grid, copies and node access.
#include "piv_database.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "piv_grid.h"
#include "piv_messages.h"

PIV_DataBase::PIV_DataBase() : m_error("PIV_DataBase") {
    init();
}

PIV_DataBase::PIV_DataBase(const DATA_GRID4D& grid) : m_error("PIV_DataBase") {
    init();
    m_grid = grid;
    m_params.eval.grid = grid;
}

void PIV_DataBase::init() {
    std::vector<PIV_VECTOR>().swap(m_vectors);
    std::vector<DIFFERENTIALS>().swap(m_diff);
    std::vector<double>().swap(m_time);
    std::vector<unsigned char>().swap(m_validationTags);
    std::memset(m_name, 0, sizeof(m_name));
    m_grid = DATA_GRID4D();
    m_params = PIV_PARAMETERS();
    m_outputCfg = OUTPUT_CFG();
    FileAttributes().swap(m_fileAttributes);
    m_nodeCount = m_diffCount = 0;
    m_dataType = 0;
    m_analysisMode = PIV::ANALYSIS_CROSS_CORRELATION;
    m_fileData = m_rawData = m_converted = m_validated = m_skipValidation = false;
    m_allowPostProcess = m_differentiated = m_3C = m_3CResiduals = m_statisticsData = false;
    m_smoothed = m_medianFiltered = m_sampledOffGrid = m_intermediateData = false;
    m_needsConversion = m_needsValidation = m_needsDifferentiation = true;
    m_numberOfPeaks = PIV::MaxCorrelationPeaks();
    m_multiplePeaks = m_numberOfPeaks > 1;
    m_null = PIV_VECTOR();
    for (PIV_VECTOR& s : m_stats) s = PIV_VECTOR();
    for (DIFFERENTIALS& s : m_diffStats) s = DIFFERENTIALS();
    m_active = m_interpolated = m_replaced = m_disabled = m_masked = 0;
    m_desamplingFactor = 1;
    m_dataSets = 1;
    std::memset(m_formattedStats, 0, sizeof(m_formattedStats));
}

unsigned long PIV_DataBase::blockLength(int nx, int ny, int nz, int timeSteps) {
    const unsigned long n =
        static_cast<unsigned long>(nx) * unsigned(ny) * unsigned(nz) * unsigned(timeSteps);
    // The row and column accessors put time steps nx*nx nodes apart. When nx
    // is larger than ny the last step reaches beyond the nodes; the block
    // grows so that its last node still lies inside.
    const unsigned long reach =
        static_cast<unsigned long>(nx) * (unsigned(ny) + unsigned(timeSteps - 1) * unsigned(nx));
    return std::max(n, reach);
}

bool PIV_DataBase::alloc(int nx, int ny, int nz, int timeSteps) {
    if (nx < 1 || ny < 1 || nz < 1 || timeSteps < 1) {
        m_error.handleErrorLong(PIVerror::ALLOCATION_FAILED,
                                "alloc( x:%d, y:%d, z:%d, timeSteps=%d)", nx, ny, nz, timeSteps);
        return false;
    }
    const unsigned long n =
        static_cast<unsigned long>(nx) * unsigned(ny) * unsigned(nz) * unsigned(timeSteps);
    const unsigned long block = blockLength(nx, ny, nz, timeSteps);
    try {
        if (!m_vectors.empty() && n == m_nodeCount) {
            // Same number of nodes: the data stays, only the axes change
            // names. A batch reuses one array image after image this way.
            if (block > m_vectors.size()) m_vectors.resize(block);
            if (!m_diff.empty() && block > m_diff.size()) m_diff.resize(block);
            if (m_time.size() != size_t(timeSteps)) m_time.resize(size_t(timeSteps), 0.0);
        } else {
            std::vector<PIV_VECTOR> vectors(block);
            std::vector<double> time(size_t(timeSteps), 0.0);
            m_vectors.swap(vectors);
            m_time.swap(time);
            std::vector<DIFFERENTIALS>().swap(m_diff);
            std::vector<unsigned char>().swap(m_validationTags);
            m_diffCount = 0;
            m_nodeCount = n;
            m_converted = m_validated = m_differentiated = m_3C = false;
            m_smoothed = m_medianFiltered = false;
            m_numberOfPeaks = PIV::MaxCorrelationPeaks();
        }
    } catch (const std::bad_alloc&) {
        m_error.handleErrorLong(PIVerror::ALLOCATION_FAILED,
                                "alloc( x:%d, y:%d, z:%d, timeSteps=%d)", nx, ny, nz, timeSteps);
        return false;
    }
    m_grid.nodes = SIZE3D{nx, ny, nz};
    m_grid.timeSteps = timeSteps;
    return true;
}

void PIV_DataBase::clearNode(unsigned long k, uint8_t flag) {
    PIV_VECTOR& v = m_vectors[k];
    PIV_VECTOR cleared;
    cleared.ix = v.ix;
    cleared.iy = v.iy;
    cleared.iz = v.iz;
    cleared.x = v.x;
    cleared.y = v.y;
    cleared.z = v.z;
    cleared.flag = flag;
    v = cleared;
    if (k < m_diff.size()) m_diff[k] = DIFFERENTIALS();
}

unsigned long PIV_DataBase::clear() {
    std::memset(m_name, 0, sizeof(m_name));
    FileAttributes().swap(m_fileAttributes);
    m_fileData = m_statisticsData = m_rawData = m_converted = m_validated = false;
    m_skipValidation = m_differentiated = m_3C = m_intermediateData = m_sampledOffGrid = false;
    m_smoothed = m_medianFiltered = false;
    m_needsConversion = m_needsValidation = m_needsDifferentiation = true;
    m_numberOfPeaks = PIV::MaxCorrelationPeaks();
    m_multiplePeaks = m_numberOfPeaks > 1;
    for (PIV_VECTOR& s : m_stats) s = PIV_VECTOR();
    for (DIFFERENTIALS& s : m_diffStats) s = DIFFERENTIALS();
    std::memset(m_formattedStats, 0, sizeof(m_formattedStats));
    m_active = m_interpolated = m_replaced = m_masked = 0;
    m_disabled = isNull() ? 0 : m_nodeCount;
    // The padding beyond the nodes is cleared too: the row and column
    // accessors reach into it for later time steps.
    for (unsigned long k = 0; k < m_vectors.size(); k++) clearNode(k, VECTOR_OUTLIER);
    return m_nodeCount;
}

int PIV_DataBase::initializeGrid(const DATA_GRID4D& grid) {
    DATA_GRID4D g = grid;
    if (g.timeSteps < 1) {
        DebugPrint("Time steps less than one!  -- defaulting to 1");
        g.timeSteps = 1;
    }
    // A grid record without depth describes one plane.
    if (g.nodes.depth < 1) g.nodes.depth = 1;
    if (!PIV::GridPositionsFit(g)) {
        m_error.handleErrorLong(PIVerror::BAD_GRID_DIMENSION,
                                "initializeGrid() - nodes or image beyond %d pixels",
                                PIV::kMaxGridPixels);
        return 0;
    }
    if (!alloc(g.nodes.width, g.nodes.height, g.nodes.depth, g.timeSteps)) return 0;
    m_grid = g;
    m_params.eval.grid = g;
    for (int t = 0; t < g.timeSteps; t++) m_time[size_t(t)] = t;
    const unsigned long perStep = m_nodeCount / unsigned(g.timeSteps);
    for (int t = 0; t < g.timeSteps; t++) {
        PIV_VECTOR* step = m_vectors.data() + perStep * unsigned(t);
        unsigned long k = 0;
        for (int z = 0; z < g.nodes.depth; z++)
            for (int j = 0; j < g.nodes.height; j++)
                for (int i = 0; i < g.nodes.width; i++, k++) {
                    PIV_VECTOR& v = step[k];
                    v.ix = g.first.x + i * g.step.width;
                    v.iy = g.first.y + j * g.step.height;
                    v.iz = g.first.z + z * g.step.depth;
                    v.x = float(v.ix);
                    v.y = float(g.imageSize.height - v.iy);
                    v.z = float(v.iz);
                    v.flag = VECTOR_OUTLIER;
                }
    }
    clear();
    return 1;
}

bool PIV_DataBase::create2(const SIZE3D& imageSize, const SIZE3D& step, const POINT3D& first,
                           const POINT3D& last, int timeSteps) {
    if (imageSize.width < 10 || imageSize.height < 10 || step.width == 0 || step.height == 0 ||
        step.depth == 0) {
        m_error.handleErrorLong(PIVerror::BAD_GRID_DIMENSION, "create() - invalid image size");
        return false;
    }
    DATA_GRID4D g;
    g.imageSize = imageSize;
    if (g.imageSize.depth < 1) g.imageSize.depth = 1;
    g.step = step;
    g.timeSteps = timeSteps < 1 ? 1 : timeSteps;
    g.first = first;
    g.anchor = first;
    g.margin = SIZE3D{0, 0, 0};
    g.roi = RECT3D{0, 1024, 0, 1024, 0, 1024};
    g.roiEnabled = false;
    g.align = PIV::GRID_ALIGN_TOP;
    g.nodes.width = (last.x - first.x) / step.width + 1;
    g.nodes.height = (last.y - first.y) / step.height + 1;
    g.nodes.depth = (last.z - first.z) / step.depth + 1;
    if (g.nodes.width < 1 || g.nodes.height < 1 || g.nodes.depth < 1) {
        m_error.handleErrorLong(PIVerror::BAD_GRID_DIMENSION, "create() - invalid node count");
        return false;
    }
    return initializeGrid(g) != 0;
}

bool PIV_DataBase::createZeroData(const SIZE3D& imageSize, const SIZE3D& step, const POINT3D& first,
                                  const POINT3D& last, int timeSteps) {
    if (!create2(imageSize, step, first, last, timeSteps)) return false;
    m_validated = true;
    m_rawData = true;
    m_dataType = PIV::DATA_DISPLACEMENT | PIV::DATA_FLAGS | PIV::DATA_VELOCITY;
    return true;
}

void PIV_DataBase::takeFlags(const PIV_DataBase& source) {
    m_3C = source.m_3C;
    m_dataType = source.m_dataType;
    m_fileData = source.m_fileData;
    m_rawData = source.m_rawData;
    m_multiplePeaks = source.m_multiplePeaks;
    m_converted = source.m_converted;
    m_needsConversion = source.m_needsConversion;
    m_validated = source.m_validated;
    m_needsValidation = source.m_needsValidation;
    m_skipValidation = source.m_skipValidation;
    m_allowPostProcess = source.m_allowPostProcess;
    m_differentiated = source.m_differentiated;
    m_needsDifferentiation = source.m_needsDifferentiation;
    m_3CResiduals = source.m_3CResiduals;
    m_statisticsData = source.m_statisticsData;
    m_dataSets = source.m_dataSets;
    m_smoothed = source.m_smoothed;
    m_medianFiltered = source.m_medianFiltered;
    m_intermediateData = source.m_intermediateData;
    m_analysisMode = source.m_analysisMode;
    m_sampledOffGrid = source.m_sampledOffGrid;
    m_numberOfPeaks = source.m_numberOfPeaks;
    m_params = source.m_params;
    std::memcpy(m_name, source.m_name, sizeof(m_name));
}

bool PIV_DataBase::copy(const PIV_DataBase& source) {
    if (&source == this) {
        m_error.handleError(PIVerror::OVERWRITE_OWN_DATA, "copy()");
        return false;
    }
    const SIZE3D& n = source.m_grid.nodes;
    if (source.isNull()) {
        // What alloc says of a grid without nodes.
        m_error.handleErrorLong(PIVerror::ALLOCATION_FAILED,
                                "alloc( x:%d, y:%d, z:%d, timeSteps=%d)", n.width, n.height,
                                n.depth, source.m_grid.timeSteps);
        return false;
    }
    const bool withDiff = !source.m_diff.empty() && source.m_differentiated;
    // Everything is copied aside first, so that a failed allocation leaves
    // this field as it was.
    std::vector<PIV_VECTOR> vectors;
    std::vector<double> time;
    std::vector<DIFFERENTIALS> diff;
    FileAttributes attributes;
    try {
        attributes = source.m_fileAttributes;
        vectors = source.m_vectors;
        time = source.m_time;
        if (withDiff)
            diff = source.m_diff;
        else if (source.m_nodeCount == m_nodeCount)
            diff = m_diff;  // same node count: alloc keeps what is there
        if (!diff.empty() && diff.size() < vectors.size()) diff.resize(vectors.size());
    } catch (const std::bad_alloc&) {
        m_error.handleErrorLong(PIVerror::ALLOCATION_FAILED,
                                "alloc( x:%d, y:%d, z:%d, timeSteps=%d)", n.width, n.height,
                                n.depth, source.m_grid.timeSteps);
        return false;
    }
    if (source.m_nodeCount != m_nodeCount) std::vector<unsigned char>().swap(m_validationTags);
    m_vectors.swap(vectors);
    m_time.swap(time);
    m_diff.swap(diff);
    m_fileAttributes.swap(attributes);
    m_nodeCount = source.m_nodeCount;
    m_diffCount = m_diff.empty() ? 0 : m_nodeCount;
    m_grid = source.m_grid;
    takeFlags(source);
    return true;
}

bool PIV_DataBase::putTimeStep(const PIV_DataBase& source, int firstStep, double startTime) {
    const char* where = "putTimeStep()";
    if (&source == this) {
        m_error.handleError(PIVerror::OVERWRITE_OWN_DATA, where);
        return false;
    }
    if (isNull() || source.isNull()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, where);
        return false;
    }
    const SIZE3D& a = m_grid.nodes;
    const SIZE3D& b = source.m_grid.nodes;
    if (a.width != b.width || a.height != b.height || a.depth != b.depth) {
        m_error.handleErrorLong(PIVerror::GRID_MISMATCH,
                                "putTimeStep() - mismatch in grid size: %dx%dx%d vs. %dx%dx%d",
                                a.width, a.height, a.depth, b.width, b.height, b.depth);
        return false;
    }
    const int steps = m_grid.timeSteps;
    const int sourceSteps = source.m_grid.timeSteps;
    if (firstStep < 0 || firstStep >= steps) {
        m_error.handleErrorLong(PIVerror::GRID_MISMATCH,
                                "putTimeStep() - invalid time step: %d (possible: 0...%d)",
                                firstStep, steps - 1);
        m_error.handleError(PIVerror::OPERATION_FAILED, where);
        return false;
    }
    if (firstStep + sourceSteps > steps) {
        m_error.handleErrorLong(
            PIVerror::GRID_MISMATCH,
            "putTimeStep() - too many time steps in source; start:%d end:%d (possible: 0...%d)",
            firstStep, firstStep + sourceSteps - 1, steps - 1);
        m_error.handleError(PIVerror::OPERATION_FAILED, where);
        return false;
    }
    const bool withDiff = !source.m_diff.empty();
    if (withDiff && m_diff.empty() && !allocDifferentials()) return false;

    const unsigned long perStep = m_nodeCount / unsigned(steps);
    const double offset = startTime - source.timeAt(0);
    for (int i = 0; i < sourceSteps; i++) {
        const unsigned long from = perStep * unsigned(i);
        const unsigned long to = perStep * unsigned(firstStep + i);
        std::copy_n(source.m_vectors.begin() + long(from), perStep, m_vectors.begin() + long(to));
        if (withDiff)
            std::copy_n(source.m_diff.begin() + long(from), perStep, m_diff.begin() + long(to));
        m_time[size_t(firstStep + i)] = source.timeAt(i) + offset;
    }
    takeFlags(source);
    // The parameters describe this field's grid; the image is the source's.
    m_params.eval.grid = m_grid;
    m_grid.imageSize = source.m_grid.imageSize;
    return true;
}

void PIV_DataBase::setAnalysisMode(int mode) {
    m_analysisMode = PIV::ToAnalysisMode(mode);
}

void PIV_DataBase::setName(const char* name) {
    PIV::CopyText(m_name, name);
}

void PIV_DataBase::setPivParameters(const PIV_PARAMETERS& params) {
    m_params = params;
    m_params.eval.grid = m_grid;
}

PIV_VECTOR PIV_DataBase::getVector(long index) const {
    if (index < 0 || static_cast<unsigned long>(index) >= m_nodeCount || m_vectors.empty())
        return m_null;
    return m_vectors[size_t(index)];
}

int PIV_DataBase::setVector(long index, const PIV_VECTOR& vector) {
    if (index < 0 || static_cast<unsigned long>(index) >= m_nodeCount || m_vectors.empty())
        return 0;
    m_vectors[size_t(index)] = vector;
    return 1;
}

PIV_VECTOR* PIV_DataBase::dataAtTime(int t) {
    if (isNull()) return nullptr;
    if (t < 0 || t >= m_grid.timeSteps) t = 0;
    return m_vectors.data() + (m_nodeCount / unsigned(m_grid.timeSteps)) * unsigned(t);
}

DIFFERENTIALS* PIV_DataBase::diffDataAtTime(int t) {
    if (m_diff.empty() || isNull()) return nullptr;
    if (t < 0 || t >= m_grid.timeSteps) t = 0;
    return m_diff.data() + (m_nodeCount / unsigned(m_grid.timeSteps)) * unsigned(t);
}

double PIV_DataBase::timeAt(int t) const {
    if (t < 0 || size_t(t) >= m_time.size()) return 0.0;
    return m_time[size_t(t)];
}

void PIV_DataBase::setTime(double start, double step) {
    for (size_t i = 0; i < m_time.size(); i++) m_time[i] = double(i) * step + start;
}

DIFFERENTIALS PIV_DataBase::getDifferentials(long index) const {
    if (index < 0 || static_cast<unsigned long>(index) >= m_diffCount || m_diff.empty())
        return DIFFERENTIALS();
    return m_diff[size_t(index)];
}

int PIV_DataBase::setDifferentials(long index, const DIFFERENTIALS& d) {
    if (index < 0 || static_cast<unsigned long>(index) >= m_diffCount || m_diff.empty()) return 0;
    m_diff[size_t(index)] = d;
    return 1;
}

bool PIV_DataBase::allocDifferentials() {
    if (isNull()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, "allocDifferentials()");
        return false;
    }
    try {
        std::vector<DIFFERENTIALS>(m_vectors.size()).swap(m_diff);
    } catch (const std::bad_alloc&) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "allocDifferentials()");
        return false;
    }
    m_diffCount = m_nodeCount;
    return true;
}

void PIV_DataBase::printGridInfo(const char* title, FILE* stream) const {
    FILE* out = stream ? stream : stdout;
    const DATA_GRID4D& g = m_grid;
    std::fprintf(out,
                 "Grid info for '%s'\n           --x--  --y--  --z--  --t--\n"
                 "   Size    %5d  %5d  %5d   %4d\n",
                 title ? title : "", g.nodes.width, g.nodes.height, g.nodes.depth, g.timeSteps);
    std::fprintf(out, "   Step    %5d  %5d  %5d    -/-\n", g.step.width, g.step.height,
                 g.step.depth);
    std::fprintf(out, "   Start   %5d  %5d  %5d    -/-\n", g.first.x, g.first.y, g.first.z);
    std::fprintf(out, "   Image   %5d  %5d  %5d    -/-\n", g.imageSize.width, g.imageSize.height,
                 g.imageSize.depth);
}

void PIV_DataBase::printDataInfo(const char* title, FILE* stream) const {
    FILE* out = stream ? stream : stdout;
    std::fprintf(out, "Data statistics for '%s'\n%s\n", title ? title : "", m_formattedStats);
}
