// Tecplot binary data (file version 7.5): one step in point or block form,
// and a sequence of steps as zones of one file in block form.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "piv_data2d.h"
#include "piv_data2d_export.h"
#include "piv_file.h"
#include "piv_messages.h"

using namespace PIV::Export;

namespace {

// Tecplot number types.
constexpr int kFloat = 1;
constexpr int kLongInt = 3;
constexpr int kByte = 5;
constexpr int kMaxVariables = 24;

constexpr float kZoneMarker = 299.0f;
constexpr float kEndOfHeader = 357.0f;

struct TecplotVariable {
    std::string name;
    int numberType;
    int var;
};

std::vector<TecplotVariable> _setupTecplotVariables(const DataKind& k, const OUTPUT_CFG& cfg,
                                                    bool haveCounts) {
    std::vector<TecplotVariable> list;
    auto add = [&list](const char* name, int var, int type = kFloat) {
        if (int(list.size()) < kMaxVariables) list.push_back({name, type, var});
    };
    if (k.isRaw) {
        add("c", VV_COLUMN);
        add("r", VV_ROW);
        if (k.is3D) add("d", VV_DEPTH);
    } else {
        add("x", VV_X);
        add("y", VV_Y);
        if (k.is3D) add("z", VV_Z);
    }
    if (k.isVelocity) {
        add(k.isRMS ? "u_rms" : "u", VV_U);
        add(k.isRMS ? "v_rms" : "v", VV_V);
        if (k.is3C) add(k.isRMS ? "w_rms" : "w", VV_W);
    } else {
        add(k.isRMS ? "dx_rms" : "dx", VV_DX);
        add(k.isRMS ? "dy_rms" : "dy", VV_DY);
        if (k.is3C) add(k.isRMS ? "dz_rms" : "dz", VV_DZ);
    }
    add("flag", VV_FLAG, kByte);
    if (haveCounts) add("count", VV_COUNT, kLongInt);
    if (cfg.StoreMagnitude) add(k.isRMS ? "rms_mag" : "mag", k.isVelocity ? VV_VMAG : VV_DMAG);
    if (!k.isRaw) {
        if (cfg.StoreVorticity) {
            if (k.is3D) {
                add("vort_x", VV_VORT_X);
                add("vort_y", VV_VORT_Y);
            }
            add("vort_z", VV_VORT_Z);
        }
        if (cfg.StoreShear) add("shear", VV_SHEAR_Z);
        if (cfg.StoreNStrain) add("nstrain", VV_NSTRAIN);
        if (cfg.StoreEnstrophy) add("enstr", VV_ENSTROPHY);
        if (cfg.StoreDiscriminant) add("discriminant", VV_DISCRIMINANT);
        if (cfg.StoreLambda2) add("lambda2", VV_LAMBDA2);
        if (cfg.StoreDifferentials) {
            add("dudx", VV_DUDX + 0);
            add("dudy", VV_DUDX + 1);
            if (k.is3D) add("dudz", VV_DUDX + 2);
            add("dvdx", VV_DUDX + 3);
            add("dvdy", VV_DUDX + 4);
            if (k.is3D) {
                add("dvdz", VV_DUDX + 5);
                add("dwdx", VV_DUDX + 6);
                add("dwdy", VV_DUDX + 7);
                add("dwdz", VV_DUDX + 8);
            }
        }
    }
    if (cfg.StoreSNRData) add("snr", VV_SNR);
    if (cfg.StoreCorrCoeff) add("corr", VV_CORR);
    if (k.is3C && cfg.StoreResiduals) add("resid3c", VV_RESIDUAL);
    return list;
}

bool _hasVariable(const std::vector<TecplotVariable>& list, int var) {
    return std::any_of(list.begin(), list.end(),
                       [var](const TecplotVariable& v) { return v.var == var; });
}

void _writeInt(std::FILE* f, int32_t value) {
    std::fwrite(&value, sizeof(value), 1, f);
}

void _writeFloat(std::FILE* f, float value) {
    std::fwrite(&value, sizeof(value), 1, f);
}

void _writeBinaryTecplotString(std::FILE* f, const char* text) {
    for (const char* c = text; *c; c++) _writeInt(f, int32_t(static_cast<signed char>(*c)));
    _writeInt(f, 0);
}

struct ZoneSize {
    int i, j, k;
};

// Everything up to and including the end-of-header marker.
void _writeHeader(std::FILE* f, const std::string& title, const std::vector<TecplotVariable>& vars,
                  const std::string& zoneName, bool block, const ZoneSize& size, int zones) {
    std::fwrite("#!TDV75 ", 1, 8, f);
    _writeInt(f, 1);
    _writeBinaryTecplotString(f, title.c_str());
    _writeInt(f, int32_t(vars.size()));
    for (const TecplotVariable& v : vars) _writeBinaryTecplotString(f, v.name.c_str());
    for (int z = 0; z < zones; z++) {
        _writeFloat(f, kZoneMarker);
        _writeBinaryTecplotString(f, zoneName.c_str());
        _writeInt(f, block ? 0 : 1);
        _writeInt(f, -1);
        _writeInt(f, size.i);
        _writeInt(f, size.j);
        _writeInt(f, size.k);
    }
    _writeFloat(f, kEndOfHeader);
}

void _writeZoneStart(std::FILE* f, const std::vector<TecplotVariable>& vars) {
    _writeFloat(f, kZoneMarker);
    _writeInt(f, 0);
    for (const TecplotVariable& v : vars) _writeInt(f, v.numberType);
}

// The block section of one step: each variable one run over all nodes,
// written from one scratch array of 8 bytes a node.
class BlockWriter {
public:
    BlockWriter(const PIV_DataBase& data, const OUTPUT_CFG& cfg, const DataKind& kind)
        : m_data(data), m_cfg(cfg), m_kind(kind) {
        const DATA_GRID4D& g = data.grid();
        m_perStep = long(std::max(1, g.nodes.width)) * std::max(1, g.nodes.height) *
                    std::max(1, g.nodes.depth);
        try {
            m_scratch.assign(size_t(m_perStep) * 8, 0);
        } catch (const std::bad_alloc&) {
            throw PIVerror::ALLOCATION_FAILED;
        }
    }

    void writeStep(std::FILE* f, int step, const std::vector<TecplotVariable>& vars) {
        _writeZoneStart(f, vars);
        const PIV_VECTOR* nodes = m_data.data() + m_perStep * step;
        const DIFFERENTIALS* diff = m_data.diffData();
        const bool haveDiff = diff && m_data.diffCount() >= unsigned(m_data.nodeCount());
        if (haveDiff) diff += m_perStep * step;
        for (size_t i = 0; i < vars.size(); i++) {
            const TecplotVariable& v = vars[i];
            DebugPrintExt(3, "writing var%d - '%s'  format=%d", int(i), v.name.c_str(),
                          v.numberType);
            if (v.var <= VV_DEPTH) {
                _writeBlockDataCoords(f, nodes, v.var);
            } else if (v.var < VV_VORT_X) {
                _writeBlockData(f, nodes, v.var);
            } else if (v.var == VV_SHEAR_Z && m_kind.is3D) {
                // Three runs against the one name "shear": intended, readers of
                // these files expect the extra two runs.
                for (int s = VV_SHEAR_X; s <= VV_SHEAR_Z; s++)
                    _writeBlockDataDifferentials(f, haveDiff ? diff : nullptr, s);
            } else {
                _writeBlockDataDifferentials(f, haveDiff ? diff : nullptr, v.var);
            }
        }
    }

private:
    void flush(std::FILE* f, size_t bytesPerNode) {
        std::fwrite(m_scratch.data(), bytesPerNode, size_t(m_perStep), f);
    }

    float* floats() { return reinterpret_cast<float*>(m_scratch.data()); }

    void _writeBlockDataCoords(std::FILE* f, const PIV_VECTOR* nodes, int var) {
        const double shift = m_cfg.CoordinateShift;
        const int height = m_data.grid().imageSize.height;
        float* out = floats();
        for (long n = 0; n < m_perStep; n++) {
            const PIV_VECTOR& p = nodes[n];
            double value = 0.0;
            if (var == VV_COLUMN)
                value = p.ix + (shift != 0.0 ? p.dx * shift : 0.0);
            else if (var == VV_ROW)
                value = height - p.iy + (shift != 0.0 ? p.dy * shift : 0.0);
            else
                value = p.iz + (shift != 0.0 ? p.dz * shift : 0.0);
            out[n] = float(value);
        }
        flush(f, 4);
    }

    void _writeBlockData(std::FILE* f, const PIV_VECTOR* nodes, int var) {
        if (var == VV_FLAG) {
            for (long n = 0; n < m_perStep; n++)
                m_scratch[size_t(n)] = uint8_t(_convertFlag(nodes[n], false));
            flush(f, 1);
            return;
        }
        if (var == VV_COUNT) {
            int32_t* counts = reinterpret_cast<int32_t*>(m_scratch.data());
            for (long n = 0; n < m_perStep; n++) counts[n] = nodes[n].count;
            // Eight bytes a node from a run filled at four: intended, the
            // files this writer has always made carry the count run so.
            flush(f, 8);
            return;
        }
        // The residual's run holds the velocity magnitude, and corr goes out
        // unscaled where the point form has it in percent: intended.
        if (var == VV_RESIDUAL) var = VV_VMAG;
        float* out = floats();
        for (long n = 0; n < m_perStep; n++) out[n] = float(NodeValue(var, nodes[n]));
        flush(f, 4);
    }

    void _writeBlockDataDifferentials(std::FILE* f, const DIFFERENTIALS* diff, int var) {
        const PIV_VECTOR none;
        float* out = floats();
        for (long n = 0; n < m_perStep; n++)
            out[n] = float(NodeValue(var, none, diff ? diff[n] : DIFFERENTIALS()));
        flush(f, 4);
    }

    const PIV_DataBase& m_data;
    const OUTPUT_CFG& m_cfg;
    DataKind m_kind;
    long m_perStep = 0;
    std::vector<uint8_t> m_scratch;
};

// The point section of one step, value by value.
void _writePointData(std::FILE* f, const PIV_DataBase& data, const OUTPUT_CFG& cfg,
                     const DataKind& k, const std::vector<TecplotVariable>& vars, int step) {
    const DATA_GRID4D& g = data.grid();
    const int nx = std::max(1, g.nodes.width), ny = std::max(1, g.nodes.height);
    const int nz = std::max(1, g.nodes.depth);
    const long perStep = long(nx) * ny * nz;
    const PIV_VECTOR* nodes = data.data() + perStep * step;
    const DIFFERENTIALS* diff = data.diffData();
    const bool haveDiff = diff && data.diffCount() >= unsigned(data.nodeCount());
    const bool writeDerived = !k.isRaw && !k.isRMS && haveDiff;
    const bool haveCount = _hasVariable(vars, VV_COUNT);
    const bool haveSNR = _hasVariable(vars, VV_SNR);
    const bool haveResidual = _hasVariable(vars, VV_RESIDUAL);
    const bool haveCorr = _hasVariable(vars, VV_CORR);
    const bool interpolatedAsOutlier = cfg.OutputFormat == 6;
    const double shift = cfg.CoordinateShift;

    // Every node of the step, whatever the desampling steps say: intended,
    // the header's count of a skipping file is made with them all the same.
    for (int z = 0; z < nz; z++)
        for (int row = ny - 1; row >= 0; row--)
            for (int col = 0; col < nx; col++) {
                const long n = col + long(nx) * (row + long(ny) * z);
                const PIV_VECTOR& p = nodes[n];
                if (cfg.OutputSkipOutliers && IsSkippedNode(p)) continue;
                if (k.isRaw) {
                    // Two raw coordinates even where the names list a third
                    // ("d"): intended.
                    _writeFloat(f, float(p.ix + (shift != 0.0 ? p.dx * shift : 0.0)));
                    _writeFloat(
                        f, float(g.imageSize.height - p.iy + (shift != 0.0 ? p.dy * shift : 0.0)));
                } else {
                    _writeFloat(f, p.x);
                    _writeFloat(f, p.y);
                    if (k.is3D) _writeFloat(f, p.z);
                }
                const int triple = k.isVelocity ? VV_U : VV_DX;
                _writeFloat(f, float(NodeValue(triple, p)));
                _writeFloat(f, float(NodeValue(triple + 1, p)));
                if (k.is3C) _writeFloat(f, float(NodeValue(triple + 2, p)));
                const uint8_t flag = uint8_t(_convertFlag(p, interpolatedAsOutlier));
                std::fwrite(&flag, 1, 1, f);
                if (haveCount) {
                    const uint16_t count = uint16_t(p.count & 0xFFFF);
                    std::fwrite(&count, sizeof(count), 1, f);
                }
                if (cfg.StoreMagnitude) _writeFloat(f, float(NodeValue(triple + 3, p)));
                if (writeDerived) {
                    const DIFFERENTIALS& d = diff[perStep * step + n];
                    const DerivedValues r = Derive(d);
                    // Vorticity, shear and normal strain whatever the Store
                    // switches say: intended, a fixed group of this form.
                    if (k.is3D) {
                        for (float v : r.vort) _writeFloat(f, v);
                        for (float v : r.shear) _writeFloat(f, v);
                    } else {
                        _writeFloat(f, r.vort[2]);
                        _writeFloat(f, r.shear[2]);
                    }
                    _writeFloat(f, r.nstrain);
                    if (cfg.StoreEnstrophy) _writeFloat(f, r.enstrophy);
                    if (cfg.StoreDiscriminant) _writeFloat(f, r.discriminant);
                    if (cfg.StoreLambda2) _writeFloat(f, r.lambda2);
                    if (cfg.StoreDifferentials) {
                        if (k.is3D) {
                            for (int i = 0; i < 9; i++) _writeFloat(f, PIV::Gradient(d, i));
                        } else {
                            _writeFloat(f, d.dudx);
                            _writeFloat(f, d.dudy);
                            _writeFloat(f, d.dvdx);
                            _writeFloat(f, d.dvdy);
                        }
                    }
                }
                if (haveSNR) _writeFloat(f, p.snr);
                if (haveResidual) _writeFloat(f, p.residual);
                if (haveCorr) _writeFloat(f, p.corr * 100.0f);
            }
}

std::string _zoneName(const char* fileName) {
    return BaseName(fileName).substr(0, 63);
}

bool _haveDifferentials(const PIV_DataBase& data) {
    return data.diffData() && data.diffCount() >= unsigned(data.nodeCount());
}

}  // namespace

bool PIV_DataBase::saveTecplotBinary(const char* fileName, int timeStep, bool block) {
    const char* where = "saveTecplotBinary()";
    DebugPrintExt(2, "PIV_Data2D::saveTecplotBinary(%s)", fileName ? fileName : "");
    if (isNull()) {
        m_error.setMessage("saveTecplotBinary() - no valid data available!");
        m_error.handleError(PIVerror::DATA_IS_NULL, where);
        return false;
    }
    if (!fileName || !*fileName) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, where);
        return false;
    }
    const OUTPUT_CFG& cfg = m_outputCfg;
    const DataKind kind = GetDataKind(*this, cfg);
    if (!kind.isRaw && !kind.isRMS && !_haveDifferentials(*this)) {
        m_error.setMessage("saveTecplotBinary() - missing differentials");
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, where);
        return false;
    }
    const int step = ClampStep(timeStep, m_grid.timeSteps);
    const std::vector<TecplotVariable> vars =
        _setupTecplotVariables(kind, cfg, (m_dataType & PIV::DATA_COUNTS) != 0);

    const Walk walk = MakeWalk(m_grid, cfg);
    ZoneSize size{walk.nx, walk.ny, walk.nz};
    if (!block && (cfg.OutputSkipOutliers || cfg.OutputPointFormat)) {
        const PIV_VECTOR* nodes = m_vectors.data() + long(walk.nx) * walk.ny * walk.nz * step;
        int visited = 0, skipped = 0;
        for (int z = 0; z < walk.nz; z += walk.sz)
            for (int row = 0; row < walk.ny; row += walk.sy)
                for (int col = 0; col < walk.nx; col += walk.sx) {
                    visited++;
                    if (IsSkippedNode(nodes[col + long(walk.nx) * (row + long(walk.ny) * z)]))
                        skipped++;
                }
        if (cfg.OutputSkipOutliers && skipped > 0) size = ZoneSize{visited - skipped, 1, 1};
    }

    PIV::TempFile tmp(fileName);
    if (!tmp.file()) {
        m_error.setMessage("saveTecplotBinary() - failed opening output file: %s", fileName);
        m_error.handleError(PIVerror::FILE_CREATE_FAILED, where);
        return false;
    }
    std::FILE* f = tmp.file();
    const std::string title =
        _TecplotFileTitle(cfg, BaseName(fileName).c_str(), kind.isRaw, kind.isVelocity, kind.isRMS);
    _writeHeader(f, title, vars, _zoneName(fileName), block, size, 1);
    try {
        if (block) {
            BlockWriter writer(*this, cfg, kind);
            writer.writeStep(f, step, vars);
        } else {
            _writeZoneStart(f, vars);
            _writePointData(f, *this, cfg, kind, vars, step);
        }
    } catch (PIVerror::ErrorType code) {
        std::fflush(f);
        m_error.handleError(code, "saveTecplotBinaryData()");
        return false;
    } catch (const std::bad_alloc&) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "saveTecplotBinaryData()");
        return false;
    }
    if (std::ferror(f) || !tmp.commit(fileName)) {
        m_error.setMessage("saveTecplotBinary() - failed writing output file: %s", fileName);
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, where);
        return false;
    }
    return true;
}

bool PIV_Data2D::saveSequenceTecplotBinary(const char* fileName, int first, int last) {
    const char* where = "saveSequenceTecplotBinary()";
    DebugPrintExt(2, "PIV_Data2D::saveSequenceTecplotBinary(%s)", fileName ? fileName : "");
    if (isNull()) {
        m_error.setMessage("saveSequenceTecplotBinary() - no valid data available!");
        m_error.handleError(PIVerror::DATA_IS_NULL, where);
        return false;
    }
    if (first < 0 || last < first || last >= m_grid.timeSteps) {
        m_error.setMessage("saveSequenceTecplotBinary() - invalid range of sequence requested!");
        m_error.handleError(PIVerror::BAD_RANGE, where);
        return false;
    }
    if (!fileName || !*fileName) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, where);
        return false;
    }
    const OUTPUT_CFG& cfg = m_outputCfg;
    const DataKind kind = GetDataKind(*this, cfg);
    if (!kind.isRaw && !kind.isRMS && !_haveDifferentials(*this)) {
        m_error.setMessage("saveSequenceTecplotBinary() - missing differentials");
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, where);
        return false;
    }
    const std::vector<TecplotVariable> vars =
        _setupTecplotVariables(kind, cfg, (m_dataType & PIV::DATA_COUNTS) != 0);
    const Walk walk = MakeWalk(m_grid, cfg);

    PIV::TempFile tmp(fileName);
    if (!tmp.file()) {
        m_error.setMessage("saveSequenceTecplotBinary() - failed opening output file: %s",
                           fileName);
        m_error.handleError(PIVerror::FILE_CREATE_FAILED, where);
        return false;
    }
    std::FILE* f = tmp.file();
    const std::string title =
        _TecplotFileTitle(cfg, BaseName(fileName).c_str(), kind.isRaw, kind.isVelocity, kind.isRMS);
    _writeHeader(f, title, vars, _zoneName(fileName), true, ZoneSize{walk.nx, walk.ny, walk.nz},
                 last - first + 1);
    try {
        BlockWriter writer(*this, cfg, kind);
        for (int t = first; t <= last; t++) writer.writeStep(f, t, vars);
    } catch (PIVerror::ErrorType code) {
        std::fflush(f);
        m_error.handleError(code, "saveTecplotBinaryData()");
        return false;
    } catch (const std::bad_alloc&) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "saveTecplotBinaryData()");
        return false;
    }
    if (std::ferror(f) || !tmp.commit(fileName)) {
        m_error.setMessage("saveSequenceTecplotBinary() - failed writing output file: %s",
                           fileName);
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, where);
        return false;
    }
    return true;
}
