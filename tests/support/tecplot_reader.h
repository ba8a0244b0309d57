// Tecplot binary files read by a reader written from the public description
// of the version 7.5 format, sharing nothing with the program's writer. The
// program's deliberate departures are listed in kQuirks; QuirksMet() records
// each one met.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "scratch_files.h"

namespace tecplot_reader {

// ---- the exceptions to the published layout ------------------------------
enum Quirk {
    kPointNoThirdRawCoordinate,
    kPointFixedDerivedGroup,
    kPointCountTwoBytes,
    kPointCountIgnoresDesampling,
    kBlockCountEightBytes,
    kBlockThreeShearRuns,
    kBlockCorrUnscaled,
    kBlockResidualIsSpeed,
    kQuirkCount
};

struct QuirkRow {
    Quirk quirk;
    const char* text;
};

inline const QuirkRow kQuirks[] = {
    {kPointNoThirdRawCoordinate, "point form: a third raw coordinate 'd' named, never written"},
    {kPointFixedDerivedGroup,
     "point form, velocity or speckle data: vorticity, shear and nstrain always follow flag, "
     "count and magnitude, whatever the names say"},
    {kPointCountTwoBytes, "point form: count declared a 32-bit integer, written in 16 bits"},
    {kPointCountIgnoresDesampling,
     "point form with skipped nodes: the header counts the nodes of the desampled grid, the "
     "data holds every kept node of the full grid"},
    {kBlockCountEightBytes,
     "block form: count run of 8 bytes a node, the counts in the first half"},
    {kBlockThreeShearRuns, "block form, 3-D: 'shear' stands for three runs, x, y and z"},
    {kBlockCorrUnscaled, "block form: corr a fraction; in point form it is in percent"},
    {kBlockResidualIsSpeed, "block form: the resid3c run holds |(u, v, w)|"},
};
static_assert(sizeof(kQuirks) / sizeof(kQuirks[0]) == kQuirkCount, "one row per quirk");

inline std::set<int>& QuirksMet() {
    static std::set<int> met;
    return met;
}

// ---- the reader ------------------------------------------------------------
struct Zone {
    std::string name;
    int format = -1;  // 0 block, 1 point
    int color = 0;
    int i = 0, j = 0, k = 0;
    std::vector<int> types;
    // Values by variable name, node by node in file order; corr in percent.
    std::map<std::string, std::vector<double>> values;
    int records = 0;
};

struct TecplotFile {
    std::string magic;
    int byteOrder = 0;
    std::string title;
    std::vector<std::string> names;
    std::vector<Zone> zones;
    bool atEnd = false;
};

class Reader {
public:
    explicit Reader(const std::string& bytes) : m_b(bytes) {}

    TecplotFile read() {
        TecplotFile f;
        f.magic = m_b.substr(0, 8);
        m_at = 8;
        f.byteOrder = i32();
        f.title = text();
        const int n = i32();
        for (int v = 0; v < n; v++) f.names.push_back(text());
        float marker = f32();
        for (; marker == 299.0f; marker = f32())  // name, format, colour, i, j, k, in order
            f.zones.push_back(Zone{text(), i32(), i32(), i32(), i32(), i32(), {}, {}, 0});
        EXPECT_EQ(marker, 357.0f) << "end of header";
        for (Zone& z : f.zones) {
            EXPECT_EQ(f32(), 299.0f) << "zone data marker";
            EXPECT_EQ(i32(), 0) << "no repeated variables";
            for (size_t v = 0; v < f.names.size(); v++) z.types.push_back(i32());
            z.format == 0 ? readBlock(f.names, z) : readPoints(f.names, z);
        }
        f.atEnd = m_at == m_b.size();
        return f;
    }

private:
    static bool is3D(const std::vector<std::string>& names) {
        for (const std::string& n : names)
            if (n == "z" || n == "d") return true;
        return false;
    }
    static bool isRawOrRms(const std::vector<std::string>& names) {
        for (const std::string& n : names)
            if (n == "c" || n.find("_rms") != std::string::npos) return true;
        return false;
    }

    void readBlock(const std::vector<std::string>& names, Zone& z) {
        const int nodes = z.i * z.j * z.k;
        for (size_t v = 0; v < names.size(); v++) {
            const std::string& name = names[v];
            if (name == "shear" && is3D(names)) {
                QuirksMet().insert(kBlockThreeShearRuns);
                for (const char* s : {"shear_x", "shear_y", "shear_z"})
                    for (int n = 0; n < nodes; n++) z.values[s].push_back(value(z.types[v]));
                continue;
            }
            for (int n = 0; n < nodes; n++) z.values[name].push_back(value(z.types[v]));
            if (name == "count") {
                QuirksMet().insert(kBlockCountEightBytes);
                for (int n = 0; n < nodes; n++)
                    EXPECT_EQ(i32(), 0) << "second half of the count run";
            }
            if (name == "resid3c") {
                QuirksMet().insert(kBlockResidualIsSpeed);
                z.values["speed"] = z.values[name];
                z.values.erase(name);
            }
            if (name == "corr") {
                QuirksMet().insert(kBlockCorrUnscaled);
                for (double& c : z.values[name]) c *= 100.0;
            }
        }
        z.records = nodes;
    }

    void readPoints(const std::vector<std::string>& names, Zone& z) {
        // The record as the header describes it, then the exceptions.
        std::vector<std::pair<std::string, int>> record;
        for (size_t v = 0; v < names.size(); v++) record.emplace_back(names[v], z.types[v]);
        if (!isRawOrRms(names)) {  // the fixed derived group
            std::vector<std::pair<std::string, int>> kept;
            size_t after = 0;
            for (const auto& r : record) {
                if (r.first.rfind("vort_", 0) == 0 || r.first == "shear" || r.first == "nstrain")
                    continue;
                kept.push_back(r);
                if (r.first == "flag" || r.first == "count" || r.first == "mag")
                    after = kept.size();
            }
            std::vector<std::pair<std::string, int>> group;
            if (is3D(names))
                for (const char* g :
                     {"vort_x", "vort_y", "vort_z", "shear_x", "shear_y", "shear_z"})
                    group.emplace_back(g, 1);
            else
                group = {{"vort_z", 1}, {"shear", 1}};
            group.emplace_back("nstrain", 1);
            kept.insert(kept.begin() + long(after), group.begin(), group.end());
            if (kept != record) QuirksMet().insert(kPointFixedDerivedGroup);
            record = kept;
        }
        std::vector<std::pair<std::string, int>> plan;
        for (const auto& r : record) {
            if (r.first == "d") QuirksMet().insert(kPointNoThirdRawCoordinate);
            if (r.first == "count") QuirksMet().insert(kPointCountTwoBytes);
            // count is read as a short integer (type 4)
            if (r.first != "d") plan.emplace_back(r.first, r.first == "count" ? 4 : r.second);
        }
        int size = 0;
        for (const auto& p : plan) size += bytesOf(p.second);
        z.records = 0;
        while (m_at + size_t(size) <= m_b.size()) {
            for (const auto& p : plan) z.values[p.first].push_back(value(p.second));
            z.records++;
        }
        if (z.records != z.i * z.j * z.k) QuirksMet().insert(kPointCountIgnoresDesampling);
    }

    // Types 1 float, 2 double, 3 long integer, 4 short integer, 5 byte, 6 bit.
    static int bytesOf(int type) { return type == 2 ? 8 : type == 4 ? 2 : type >= 5 ? 1 : 4; }
    double value(int type) {
        if (type == 1) return f32();
        if (type == 2) return get<double>();
        if (type == 3) return i32();
        if (type == 4) return get<int16_t>();
        return get<uint8_t>();
    }

    template <class T>
    T get() {
        T v{};
        if (m_at + sizeof(T) > m_b.size()) {
            ADD_FAILURE() << "read past the end at " << m_at;
            return v;
        }
        std::memcpy(&v, m_b.data() + m_at, sizeof(T));
        m_at += sizeof(T);
        return v;
    }
    int32_t i32() { return get<int32_t>(); }
    float f32() { return get<float>(); }
    std::string text() {
        std::string s;
        for (int32_t c = i32(); c != 0 && m_at < m_b.size(); c = i32()) s += char(c);
        return s;
    }

    const std::string& m_b;
    size_t m_at = 0;
};

inline TecplotFile ReadTecplot(const std::string& path) {
    const std::string bytes = test_support::ReadBytes(path);
    return Reader(bytes).read();
}

}  // namespace tecplot_reader
