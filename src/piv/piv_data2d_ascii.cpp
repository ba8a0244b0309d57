// Text exports: the Tecplot ASCII file with its commented header, and the
// plain table of the PIV Challenge.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "piv_data2d_export.h"
#include "piv_database.h"
#include "piv_file.h"
#include "piv_messages.h"
#include "piv_util.h"

using namespace PIV::Export;

namespace {

std::vector<int> _setupVariables(const DataKind& k, const OUTPUT_CFG& cfg) {
    std::vector<int> v;
    if (k.isRaw)
        v.insert(v.end(), {PIV::VAR_IX, PIV::VAR_IY, PIV::VAR_IZ});
    else
        v.insert(v.end(), {PIV::VAR_X, PIV::VAR_Y, PIV::VAR_Z});
    if (cfg.StoreTimeVar) v.push_back(PIV::VAR_TIME);
    if (k.isRaw) {
        v.insert(v.end(), {PIV::VAR_DX, PIV::VAR_DY});
        if (k.is3C) v.push_back(PIV::VAR_DZ);
        if (cfg.StoreMagnitude) v.push_back(PIV::VAR_MAG);
    } else if (!k.isVelocity) {
        v.insert(v.end(), {PIV::VAR_SX, PIV::VAR_SY});
        if (k.is3C) v.push_back(PIV::VAR_SZ);
        if (cfg.StoreMagnitude) v.push_back(PIV::VAR_SMAG);
    } else {
        v.insert(v.end(), {PIV::VAR_U, PIV::VAR_V, PIV::VAR_W});
        if (cfg.StoreMagnitude) v.push_back(PIV::VAR_VELMAG);
    }
    v.insert(v.end(), {PIV::VAR_FLAG, PIV::VAR_COUNT, PIV::VAR_VALID});
    if (cfg.StoreSNRData) v.push_back(PIV::VAR_SNR);
    if (cfg.StoreCorrCoeff) v.push_back(PIV::VAR_CORR);
    if (!k.isRaw) {
        if (cfg.StoreDifferentials) {
            v.insert(v.end(), {PIV::VAR_DUDX, PIV::VAR_DUDY});
            if (k.is3D) v.push_back(PIV::VAR_DUDZ);
            v.insert(v.end(), {PIV::VAR_DVDX, PIV::VAR_DVDY});
            if (k.is3D)
                v.insert(v.end(), {PIV::VAR_DVDZ, PIV::VAR_DWDX, PIV::VAR_DWDY, PIV::VAR_DWDZ});
        }
        if (cfg.StoreVorticity) {
            if (k.is3D) v.insert(v.end(), {PIV::VAR_VORT_X, PIV::VAR_VORT_Y});
            v.push_back(PIV::VAR_VORT_Z);
        }
        if (cfg.StoreShear) {
            if (k.is3D) v.insert(v.end(), {PIV::VAR_SHEAR_X, PIV::VAR_SHEAR_Y});
            v.push_back(PIV::VAR_SHEAR_Z);
        }
        if (cfg.StoreNStrain) v.push_back(PIV::VAR_NSTRAIN);
    }
    return v;
}

// Time is kept in seconds; images count in pixels.
const char* _unitOf(int type, const PIV_DataBase& data) {
    if (type == PIV::VAR_TIME) return "s";
    if (type >= PIV::VAR_IX && type <= PIV::VAR_IZ) return "pixel";
    if (type >= PIV::VAR_X && type <= PIV::VAR_Z) return data.gridUnit();
    if (type >= PIV::VAR_DX && type <= PIV::VAR_MAG) return "pixel";
    if (type >= PIV::VAR_U && type <= PIV::VAR_VELMAG) return data.velocityUnit();
    if (type >= PIV::VAR_SX && type <= PIV::VAR_SMAG) return data.shiftUnit();
    if (type >= PIV::VAR_DUDX && type <= PIV::VAR_DWDZ) return "1/s";
    return "";
}

std::string _creationDate() {
    const std::time_t now = std::time(nullptr);
    char text[64] = {0};
    if (!::ctime_r(&now, text)) return "\n";
    return text;
}

struct NodeValues {
    const PIV_DataBase& data;
    const OUTPUT_CFG& cfg;
    int dataSets;
    double time;
};

// The quantity of the shared numbering a variable of the list shows; the
// two lists run in the same order within each group.
int _nodeVar(int type) {
    if (type >= PIV::VAR_X && type <= PIV::VAR_Z) return VV_X + (type - PIV::VAR_X);
    if (type >= PIV::VAR_DX && type <= PIV::VAR_SMAG) return VV_DX + (type - PIV::VAR_DX);
    if (type >= PIV::VAR_DUDX && type <= PIV::VAR_DWDZ) return VV_DUDX + (type - PIV::VAR_DUDX);
    if (type >= PIV::VAR_VORT_X && type <= PIV::VAR_VORT_Z)
        return VV_VORT_X + (type - PIV::VAR_VORT_X);
    if (type >= PIV::VAR_SHEAR_X && type <= PIV::VAR_SHEAR_Z)
        return VV_SHEAR_X + (type - PIV::VAR_SHEAR_X);
    if (type == PIV::VAR_NSTRAIN) return VV_NSTRAIN;
    if (type == PIV::VAR_SNR) return VV_SNR;
    return -1;
}

double _value(int type, const PIV_VECTOR& p, const DIFFERENTIALS& d, const NodeValues& nv) {
    const double shift = nv.cfg.CoordinateShift;
    const auto shifted = [shift](double pos, float by) {
        return pos + (shift != 0.0 ? by * shift : 0.0);
    };
    switch (type) {
        case PIV::VAR_IX:
            return shifted(p.ix, p.dx);
        case PIV::VAR_IY:
            return shifted(nv.cfg.KeepRowOrder ? p.iy : nv.data.grid().imageSize.height - p.iy,
                           p.dy);
        case PIV::VAR_IZ:
            return shifted(p.iz, p.dz);
        case PIV::VAR_TIME:
            return nv.time;
        case PIV::VAR_VALID:
            return double(p.count) / nv.dataSets;
        case PIV::VAR_CORR:
            return p.corr * 100.0;
        default:
            return NodeValue(_nodeVar(type), p, d);
    }
}

// The rows a text writer visits, in file order.
std::vector<int> _rows(const Walk& w, bool keepRowOrder) {
    std::vector<int> rows;
    for (int j = 0; j < w.visitedY(); j++) rows.push_back(j * w.sy);
    if (!keepRowOrder) std::reverse(rows.begin(), rows.end());
    return rows;
}

}  // namespace

bool PIV_DataBase::saveASCII(const char* fileName, int timeStep, bool /*unused*/) {
    return saveASCII_new(fileName, timeStep);
}

bool PIV_DataBase::saveASCII_new(const char* fileName, int timeStep) {
    const char* where = "saveASCII()";
    DebugPrintExt(2, "PIV_DataBase::saveASCII(%s)", fileName ? fileName : "");
    if (isNull()) {
        m_error.setMessage("saveASCII() - no valid data available!");
        m_error.handleError(PIVerror::DATA_IS_NULL, where);
        return false;
    }
    if (!fileName || !*fileName) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, where);
        return false;
    }
    const OUTPUT_CFG& cfg = m_outputCfg;
    const DataKind kind = GetDataKind(*this, cfg);
    const int step = PIV::Export::ClampStep(timeStep, m_grid.timeSteps);
    const Walk w = MakeWalk(m_grid, cfg);
    const long perStep = long(w.nx) * w.ny * w.nz;
    const PIV_VECTOR* nodes = m_vectors.data() + perStep * step;
    const bool haveDiff = !m_diff.empty() && m_diffCount >= m_nodeCount;
    const DIFFERENTIALS* diff = haveDiff ? m_diff.data() + perStep * step : nullptr;
    const std::vector<int> rows = _rows(w, cfg.KeepRowOrder);

    int visited = 0, skipped = 0;
    for (int z = 0; z < w.nz; z += w.sz)
        for (int row : rows)
            for (int col = 0; col < w.nx; col += w.sx) {
                visited++;
                if (IsSkippedNode(nodes[col + long(w.nx) * (row + long(w.ny) * z)])) skipped++;
            }
    const bool randomNodes = cfg.OutputSkipOutliers && skipped > 0;

    PIV::TempFile tmp(fileName);
    if (!tmp.file()) {
        m_error.setMessage("saveASCII() - file creation failed for: %s", fileName);
        m_error.handleError(PIVerror::FILE_CREATE_FAILED, where);
        return false;
    }
    std::FILE* f = tmp.file();
    // No line end of its own: the comment runs into the next header line,
    // as it always has in these files.
    if (std::strlen(cfg.Comment) > 1) std::fprintf(f, "# Comments = \"%s\"", cfg.Comment);
    if (m_name[0]) std::fprintf(f, "# Original file name: %s\n", m_name);
    std::fprintf(f, "# Creation date: %s", _creationDate().c_str());
    std::fprintf(f, "# Software: %s\n", PIV::SoftwareName());
    if (randomNodes)
        std::fprintf(f, "# Grid size: %d random nodes (no continuous grid)\n", visited - skipped);
    else
        std::fprintf(f, "# Grid size: %d horiz.nodes, %d vert.nodes, %d depth.nodes\n",
                     w.visitedX(), w.visitedY(), w.visitedZ());
    if (w.sx > 1 || w.sy > 1 || w.sz > 1)
        std::fprintf(f, "# Original data desampled: %dx horiz, %dx vert, %dx depth\n", w.sx, w.sy,
                     w.sz);
    if (m_dataSets > 1)
        std::fprintf(f, "# Data based on %lu data sets (files)\n", (unsigned long)m_dataSets);

    const std::vector<int> vars = _setupVariables(kind, cfg);
    DATA_VARIABLE_INFO info;
    for (size_t i = 0; i < vars.size(); i++) {
        _getVarInfo(info, vars[i], _unitOf(vars[i], *this));
        std::fprintf(f, "# var%2lu: '%s' - %s\n", (unsigned long)(i + 1), info.name,
                     info.description);
    }
    const std::string title =
        _TecplotFileTitle(cfg, BaseName(fileName).c_str(), kind.isRaw, kind.isVelocity, kind.isRMS);
    std::fprintf(f, "TITLE = \"%s\"\n", title.c_str());
    for (size_t i = 0; i < vars.size(); i++)
        std::fprintf(f, i == 0 ? "VARIABLES = \"%s\"" : ", \"%s\"",
                     PIV::GetVariableNameFromType(vars[i]));
    std::fprintf(f, "\n");
    const char* zoneTitle = kind.isRaw ? "pixel shifts" : "velocity";
    if (randomNodes)
        std::fprintf(f, "ZONE I=%d, J=1, K=1, F=POINT, T=\"%s\"\n", visited - skipped, zoneTitle);
    else
        std::fprintf(f, "ZONE I=%d, J=%d, K=%d, F=POINT, T=\"%s\"\n", w.visitedX(), w.visitedY(),
                     w.visitedZ(), zoneTitle);

    const NodeValues nv{*this, cfg, m_dataSets, timeAt(step)};
    int lines = 0;
    for (int z = 0; z < w.nz; z += w.sz)
        for (int row : rows)
            for (int col = 0; col < w.nx; col += w.sx) {
                const long n = col + long(w.nx) * (row + long(w.ny) * z);
                const PIV_VECTOR& p = nodes[n];
                if (cfg.OutputSkipOutliers && IsSkippedNode(p)) continue;
                const DIFFERENTIALS d = diff ? diff[n] : DIFFERENTIALS();
                for (int type : vars) {
                    if (type == PIV::VAR_FLAG)
                        std::fprintf(f, "%d ", _convertFlag(p, false));
                    else if (type == PIV::VAR_COUNT)
                        std::fprintf(f, "%d ", int(p.count));
                    else
                        std::fprintf(f, "%g ", _value(type, p, d, nv));
                }
                std::fprintf(f, "\n");
                lines++;
            }
    DebugPrintExt(2, "   wrote %d lines - closing file", lines);
    if (std::ferror(f) || !tmp.commit(fileName)) {
        m_error.setMessage("saveASCII() - writing failed for: %s", fileName);
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, where);
        return false;
    }
    return true;
}

bool PIV_DataBase::savePivChallengeData(const char* fileName, int timeStep) {
    const char* where = "savePivChallengeData()";
    if (isNull()) {
        m_error.setMessage("savePivChallengeData() - no valid data available!");
        m_error.handleError(PIVerror::DATA_IS_NULL, where);
        return false;
    }
    if (!fileName || !*fileName) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, where);
        return false;
    }
    const OUTPUT_CFG& cfg = m_outputCfg;
    const DataKind kind = GetDataKind(*this, cfg);
    const int step = PIV::Export::ClampStep(timeStep, m_grid.timeSteps);
    const Walk w = MakeWalk(m_grid, cfg);
    const PIV_VECTOR* nodes = m_vectors.data() + long(w.nx) * w.ny * w.nz * step;
    const int height = m_grid.imageSize.height;
    const bool threeComponents = is3C();

    PIV::TempFile tmp(fileName);
    if (!tmp.file()) {
        m_error.setMessage("savePivChallengeData() - file creation failed for: %s", fileName);
        m_error.handleError(PIVerror::FILE_CREATE_FAILED, where);
        return false;
    }
    std::FILE* f = tmp.file();
    for (int z = 0; z < w.nz; z += w.sz)
        for (int row : _rows(w, cfg.KeepRowOrder))
            for (int col = 0; col < w.nx; col += w.sx) {
                const PIV_VECTOR& p = nodes[col + long(w.nx) * (row + long(w.ny) * z)];
                const int status = _convertFlag(p, true);
                double c[5];
                if (kind.isVelocity) {
                    c[0] = p.x, c[1] = p.y, c[2] = p.u, c[3] = p.v, c[4] = p.w;
                } else {
                    c[0] = p.ix, c[1] = height - p.iy, c[2] = p.dx, c[3] = p.dy, c[4] = p.dz;
                }
                if (threeComponents)
                    std::fprintf(f, "%10.5f %10.5f %10.5f %10.5f %10.5f %2d\n", c[0], c[1], c[2],
                                 c[3], c[4], status);
                else
                    std::fprintf(f, "%10.5f %10.5f %10.5f %10.5f %2d\n", c[0], c[1], c[2], c[3],
                                 status);
            }
    if (std::ferror(f) || !tmp.commit(fileName)) {
        m_error.setMessage("savePivChallengeData() - writing failed for: %s", fileName);
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, where);
        return false;
    }
    return true;
}
