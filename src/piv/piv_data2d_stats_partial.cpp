// Partial statistics of a series in a NetCDF file, so that shards of one
// series evaluated apart merge into the statistics of the whole. The file is
// a data file of the shard's mean field, readable as any other, with the
// sums beside it in double: floats would lose the merge its exactness.
#include <cmath>
#include <cstring>
#include <iterator>
#include <vector>

#include "piv_data2d_stats.h"
#include "piv_file.h"
#include "piv_ncfile.h"
#include "piv_util.h"

namespace {

// The seven members of an accumulator, each a variable (node, quantity).
struct Member {
    const char* name;
    double PIV_STATS_ACCUMULATOR::*value;  // null for the count
};
constexpr Member kMembers[] = {
    {"stats_count", nullptr},
    {"stats_mean", &PIV_STATS_ACCUMULATOR::mean},
    {"stats_M2", &PIV_STATS_ACCUMULATOR::M2},
    {"stats_M3", &PIV_STATS_ACCUMULATOR::M3},
    {"stats_M4", &PIV_STATS_ACCUMULATOR::M4},
    {"stats_minimum", &PIV_STATS_ACCUMULATOR::minimum},
    {"stats_maximum", &PIV_STATS_ACCUMULATOR::maximum},
};
constexpr const char* kQuantities =
    "dx dy dz u v w sx sy sz corr meanSquaredCorr dudx dudy dudz vort_x vort_y vort_z";

bool WriteShardAttributes(MyNcFile& file, STATS_SHARD shard, int dataSets) {
    return file.serializeInt("shard_index", &shard.index) &&
           file.serializeInt("shard_count", &shard.count) &&
           file.serializeInt("shard_data_sets", &dataSets) &&
           (!*shard.firstPair || file.serializeString("shard_first_pair", shard.firstPair,
                                                      int(sizeof(shard.firstPair)))) &&
           (!*shard.lastPair ||
            file.serializeString("shard_last_pair", shard.lastPair, int(sizeof(shard.lastPair))));
}

// A whole count within the data sets (any other was read as ~0), the
// moments finite and the even ones not negative; anything else is a
// damaged file.
bool Plausible(const PIV_STATS_ACCUMULATOR& a, int dataSets) {
    if (a.count > uint64_t(dataSets)) return false;
    if (a.count == 0) return true;
    return std::isfinite(a.mean) && std::isfinite(a.M3) && a.M2 >= 0.0 && a.M4 >= 0.0 &&
           std::isfinite(a.M2) && std::isfinite(a.M4) && a.minimum <= a.maximum;
}

}  // namespace

bool PIV_Data2D_Stats::savePartial(const char* fileName, const STATS_SHARD& shard) {
    if (!fileName || !*fileName)
        return m_error.handleError(PIVerror::BAD_FILE_NAME, "savePartial()"), false;
    const bool empty = m_nodes.empty() || m_dataSets == 0;
    if (!empty && !update()) return false;
    PIV::TempFile tmp(fileName);
    bool ok = tmp.file() && tmp.closeStream();
    if (ok && !empty) {
        OUTPUT_CFG out;
        out.OutputFormat = 3;
        // The mean field always holds displacements, whatever else it holds.
        m_avg->setDataType(m_avg->dataType() | PIV::DATA_DISPLACEMENT);
        ok = m_avg->save(tmp.path().c_str(), 0, out);
    }
    if (ok) {
        MyNcFile file(tmp.path().c_str(), MyNcFile::WRITE, empty ? NcFile::Replace : NcFile::Write);
        ok = file.is_valid() && WriteShardAttributes(file, shard, empty ? 0 : m_dataSets);
        // The field was written under the temporary name.
        if (ok && !empty) ok = file.add_att("long_name", fileName);
        if (ok && !empty) {
            const long nodes = long(m_nodes.size());
            NcDim* node = file.add_dim("stats_node", nodes);
            NcDim* quantity = file.add_dim("stats_quantity", Q_COUNT);
            ok = node && quantity && file.add_att("stats_quantities", kQuantities);
            std::vector<double> values(size_t(nodes) * Q_COUNT);
            for (const Member& m : kMembers) {
                NcVar* var = ok ? file.add_var(m.name, ncDouble, node, quantity) : nullptr;
                if (!var) {
                    ok = false;
                    break;
                }
                for (long k = 0; k < nodes; k++)
                    for (int q = 0; q < Q_COUNT; q++) {
                        const PIV_STATS_ACCUMULATOR& a = m_nodes[size_t(k)].q[q];
                        values[size_t(k) * Q_COUNT + size_t(q)] =
                            m.value ? a.*m.value : double(a.count);
                    }
                ok = var->put(values.data(), nodes, Q_COUNT);
            }
        }
        ok = file.close() && ok;
    }
    if (!ok || !tmp.commit(fileName)) {
        m_error.setMessage("savePartial() - writing %s failed", fileName);
        return m_error.handleError(PIVerror::FILE_WRITE_FAILED, "savePartial()"), false;
    }
    return true;
}

bool PIV_Data2D_Stats::loadPartial(const char* fileName, STATS_SHARD& shard) {
    if (!fileName || !*fileName)
        return m_error.handleError(PIVerror::BAD_FILE_NAME, "loadPartial()"), false;
    clear();
    shard = STATS_SHARD();
    int dataSets = -1;
    {
        MyNcFile file(fileName, MyNcFile::READ, NcFile::ReadOnly);
        if (!file.is_valid()) {
            m_error.setMessage("loadPartial() - not a NetCDF file: %s", fileName);
            return m_error.handleError(PIVerror::FILE_OPEN_FAILED, "loadPartial()"), false;
        }
        if (!file.serializeInt("shard_index", &shard.index) ||
            !file.serializeInt("shard_count", &shard.count) ||
            !file.serializeInt("shard_data_sets", &dataSets) || dataSets < 0 || shard.count < 1 ||
            shard.index < 0 || shard.index >= shard.count) {
            m_error.setMessage("loadPartial() - no partial statistics in %s", fileName);
            return m_error.handleError(PIVerror::INVALID_FILE_CONTENT, "loadPartial()"), false;
        }
        file.serializeString("shard_first_pair", shard.firstPair, int(sizeof(shard.firstPair)));
        file.serializeString("shard_last_pair", shard.lastPair, int(sizeof(shard.lastPair)));
    }
    if (dataSets == 0) return true;
    // The field first: its reader knows damaged files, and its node count
    // bounds what the sums may claim before anything is allocated for them.
    PIV_Data2D field;
    field.error().setErrorHandling(PIVerror::ERROR_QUIET);
    if (!field.load(fileName) || !allocPIVdata(&field)) {
        clear();
        m_error.setMessage("loadPartial() - no readable field in %s", fileName);
        return m_error.handleError(PIVerror::INVALID_FILE_CONTENT, "loadPartial()"), false;
    }
    const long nodes = long(m_nodes.size());
    MyNcFile file(fileName, MyNcFile::READ, NcFile::ReadOnly);
    NcDim* node = file.get_dim("stats_node");
    NcDim* quantity = file.get_dim("stats_quantity");
    bool ok = node && quantity && node->size() == nodes && quantity->size() == Q_COUNT;
    std::vector<double> values;
    for (size_t m = 0; ok && m < std::size(kMembers); m++) {
        NcVar* var = file.get_var(kMembers[m].name);
        ok = var && var->num_dims() == 2 && var->get_dim(0) == node && var->get_dim(1) == quantity;
        if (ok) {
            values.resize(size_t(nodes) * Q_COUNT);
            ok = var->get(values.data(), nodes, Q_COUNT);
        }
        for (size_t at = 0; ok && at < values.size(); at++) {
            PIV_STATS_ACCUMULATOR& a = m_nodes[at / Q_COUNT].q[at % Q_COUNT];
            if (kMembers[m].value)
                a.*kMembers[m].value = values[at];
            else
                a.count = values[at] >= 0.0 && values[at] <= dataSets &&
                                  values[at] == std::floor(values[at])
                              ? uint64_t(values[at])
                              : ~0ull;
        }
    }
    if (!ok) {
        clear();
        m_error.setMessage("loadPartial() - the sums in %s are missing or do not fit its field",
                           fileName);
        return m_error.handleError(PIVerror::FILE_READ_FAILED, "loadPartial()"), false;
    }
    for (size_t k = 0; k < m_nodes.size(); k++)
        for (const PIV_STATS_ACCUMULATOR& a : m_nodes[k].q)
            if (!Plausible(a, dataSets)) {
                clear();
                m_error.setMessage("loadPartial() - damaged sums in %s at node %zu", fileName, k);
                return m_error.handleError(PIVerror::CORRUPT_DATA, "loadPartial()"), false;
            }
    m_dataSets = dataSets;
    return true;
}
