// Statistics over a series of vector fields, node by node: the mean and
// root-mean-square fields with higher moments (PIV_Data2D_Stats), and the
// Reynolds stresses against a known mean field (ReynoldsStresses). Both take
// one field at a time, so that a batch of thousands of fields never has to
// be held in memory.
#pragma once

#include <cstdint>
#include <vector>

#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_error.h"
#include "piv_types.h"

// One running statistic, updated one value at a time without a stored sum of
// squares: central moments M2, M3, M4 about the running mean.
struct PIV_STATS_ACCUMULATOR {
    double M2, M3, M4;
    double mean;
    uint64_t count;
    double minimum, maximum;

    PIV_STATS_ACCUMULATOR() { PIV::ZeroRecord(*this); }
    void add(double x);
    // Adds the values another accumulator has seen, as if they had come one
    // by one: the pairwise formulas for the central moments. An empty side
    // leaves the other as it is.
    void merge(const PIV_STATS_ACCUMULATOR& other);
    // Population values: sqrt(M2 / n), and skew and excess kurtosis, both 0
    // for a series without spread.
    double stdDev() const;
    double skew() const;
    double kurt() const;
};
KELVANE_ASSERT_RECORD(PIV_STATS_ACCUMULATOR);

// Where the sums of a partial file come from: shard `index` of `count`,
// holding the pairs from `firstPair` to `lastPair` (names of their first
// frames; empty for a shard without pairs).
struct STATS_SHARD {
    int index, count;
    char firstPair[2048];
    char lastPair[2048];

    STATS_SHARD() { PIV::ZeroRecord(*this); }
};
KELVANE_ASSERT_RECORD(STATS_SHARD);

class PIV_Data2D_Stats {
public:
    // The accumulators of a node, in this order.
    enum Quantity {
        Q_DX,
        Q_DY,
        Q_DZ,
        Q_U,
        Q_V,
        Q_W,
        Q_SX,
        Q_SY,
        Q_SZ,
        Q_CORR,
        Q_MSCORR,
        Q_DUDX,
        Q_DUDY,
        Q_DUDZ,
        Q_VORT_X,
        Q_VORT_Y,
        Q_VORT_Z,
        Q_COUNT
    };
    struct NodeStats {
        PIV_STATS_ACCUMULATOR q[Q_COUNT];
    };

    PIV_Data2D_Stats();
    PIV_Data2D_Stats(const PIV_Data2D_Stats&) = delete;
    PIV_Data2D_Stats& operator=(const PIV_Data2D_Stats&) = delete;
    ~PIV_Data2D_Stats();

    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();

    // Result fields and accumulators for the grid of `field`; the series
    // starts over.
    bool init(PIV_Data2D* field);
    // Adds one field: one time step, clamped to the last, or all of them for a
    // negative step. A vector counts when it is enabled and carries none of
    // the bits of flagMask. The field is differentiated first if it is not.
    // A field on another grid is refused and the sums stay.
    bool increment(PIV_Data2D* field, int timeStep = -1, unsigned int flagMask = 0);
    // Mean and rms fields from the sums; error 9 without data.
    bool update();
    // Adds the sums of another series over the same grid, node by node; the
    // data set counts add. An empty side leaves the other: this one takes
    // the grid and parameters of `other` when it holds none, as a run takes
    // its first field's. Another grid is refused (error 16) and the sums stay.
    bool merge(const PIV_Data2D_Stats& other);
    // The sums of one shard of a series in a NetCDF file: its field grid and
    // parameters as a data file, the accumulators in double beside them and
    // the shard's place as global attributes. Written beside the target and
    // renamed. A shard without data writes the attributes only.
    bool savePartial(const char* fileName, const STATS_SHARD& shard);
    // Reads such a file over this object, the series before it lost.
    bool loadPartial(const char* fileName, STATS_SHARD& shard);
    // Writes mean, stddev, skew, kurt and valid of one variable per node as
    // a Tecplot text table.
    bool dumpVariableToFile(const char* fileName, PIV::DataVariableType variable);

    PIV_Data2D* avgData() { return m_avg; }
    PIV_Data2D* rmsData() { return m_rms; }
    int dataSetCount() const { return m_dataSets; }
    bool statsAvailable() const { return m_available; }
    const NodeStats* nodeStats() const { return m_nodes.empty() ? nullptr : m_nodes.data(); }
    // Empties the series and the result fields.
    void clear();
    PIVerror& error() { return m_error; }
    const char* getLastError() const { return m_error.getLastError(); }

private:
    bool allocPIVdata(PIV_Data2D* field);

    uint32_t m_refCount = 1;
    int m_dataSets = 0;
    bool m_available = false;
    PIV_Data2D* m_avg = nullptr;
    PIV_Data2D* m_rms = nullptr;
    std::vector<NodeStats> m_nodes;
    PIVerror m_error;
};

// The averaged products of the fluctuations of one node: velocity,
// displacement and speckle shift, and the number of samples.
struct REYNOLDS_STRESS {
    float uu, vv, ww, uv, uw, vw;
    float dxdx, dydy, dzdz, dxdy, dxdz, dydz;
    float sxsx, sysy, szsz, sxsy, sxsz, sysz;
    uint64_t count;

    REYNOLDS_STRESS() { PIV::ZeroRecord(*this); }
};
KELVANE_ASSERT_RECORD(REYNOLDS_STRESS);

namespace PIV {
inline constexpr float REYNOLDS_STRESS::*kStressMembers[18] = {
    &REYNOLDS_STRESS::uu,   &REYNOLDS_STRESS::vv,   &REYNOLDS_STRESS::ww,   &REYNOLDS_STRESS::uv,
    &REYNOLDS_STRESS::uw,   &REYNOLDS_STRESS::vw,   &REYNOLDS_STRESS::dxdx, &REYNOLDS_STRESS::dydy,
    &REYNOLDS_STRESS::dzdz, &REYNOLDS_STRESS::dxdy, &REYNOLDS_STRESS::dxdz, &REYNOLDS_STRESS::dydz,
    &REYNOLDS_STRESS::sxsx, &REYNOLDS_STRESS::sysy, &REYNOLDS_STRESS::szsz, &REYNOLDS_STRESS::sxsy,
    &REYNOLDS_STRESS::sxsz, &REYNOLDS_STRESS::sysz,
};
// Product i (0 to 17) in the order of the record.
inline float& Product(REYNOLDS_STRESS& r, int i) {
    return r.*kStressMembers[i];
}
inline float Product(const REYNOLDS_STRESS& r, int i) {
    return r.*kStressMembers[i];
}
}  // namespace PIV

class ReynoldsStresses {
public:
    ReynoldsStresses();
    ReynoldsStresses(const ReynoldsStresses&) = delete;
    ReynoldsStresses& operator=(const ReynoldsStresses&) = delete;
    ~ReynoldsStresses();

    // The mean field the fluctuations are taken against; starts a new series.
    bool setMeanData(const char* fileName);
    bool setMeanData(const PIV_Data2D* field);
    // Adds the fluctuation products of one field (see PIV_Data2D_Stats::
    // increment for the step and the mask); a field of another node count is
    // refused (error 16) and the sums stay.
    bool incrementPivData(const char* fileName, int timeStep = -1, unsigned int flagMask = 0);
    bool incrementPivData(const PIV_Data2D* field, int timeStep = -1, unsigned int flagMask = 0);
    // Averages the sums; nodes with fewer than 2 samples stay zero.
    bool update();
    // Tecplot text table of the averaged products; the last argument has no
    // effect and is kept for the callers.
    bool save(const char* fileName, const OUTPUT_CFG& output, bool unused = false);
    // The last field added less the mean, through PIV_Data2D::save.
    bool saveCurrentDifference(const char* fileName, const OUTPUT_CFG& output);

    PIV_Data2D* meanData() { return m_mean; }
    PIV_Data2D* currentData() { return m_current; }
    // The averaged tensors, one per node; null before the mean is set.
    const REYNOLDS_STRESS* data() const { return m_result.empty() ? nullptr : m_result.data(); }
    unsigned long length() const { return static_cast<unsigned long>(m_result.size()); }
    int dataSetCount() const { return m_dataSets; }
    bool isUpToDate() const { return m_upToDate; }
    // Frees the tensors and clears the counts; the mean stays.
    void reset();
    PIVerror& error() { return m_error; }
    const char* getLastError() const { return m_error.getLastError(); }

private:
    // Sums of the products in double precision, so that products of either
    // sign over long series do not cancel away the result.
    struct Sums {
        double p[18];
        uint64_t count;
    };
    bool allocPivData(const PIV_Data2D* field);
    bool increment(int timeStep, unsigned int flagMask);

    int m_dataSets = 0;
    bool m_upToDate = false;
    PIV_Data2D* m_mean = nullptr;
    PIV_Data2D* m_current = nullptr;
    std::vector<Sums> m_sums;
    std::vector<REYNOLDS_STRESS> m_result;
    PIVerror m_error;
};
