#include "ptv_data2d.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "piv_record.h"

namespace {

PTV_PAIR EmptyPair() {
    PTV_PAIR p;
    PIV::ZeroRecord(p);
    p.first.id = p.second.id = -1;
    return p;
}

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};

}  // namespace

PTV_Data2D::PTV_Data2D() : m_width(0), m_height(0), m_valid(0), m_error("PTV_Data2D") {}

bool PTV_Data2D::resize(size_t n) {
    return PIV::Guarded(m_error, "resize()", [&] {
        m_pairs.assign(n, EmptyPair());
        m_valid = 0;
    });
}

void PTV_Data2D::setImageSize(int width, int height) {
    m_width = width;
    m_height = height;
}

void PTV_Data2D::setImageFilePair(const char* first, const char* second) {
    m_file1 = first ? first : "";
    m_file2 = second ? second : "";
}

PTV_PAIR* PTV_Data2D::pairData(size_t index) {
    return index < m_pairs.size() ? &m_pairs[index] : nullptr;
}

const PTV_PAIR* PTV_Data2D::pairData(size_t index) const {
    return index < m_pairs.size() ? &m_pairs[index] : nullptr;
}

int PTV_Data2D::postProcess(double validRadius) {
    m_valid = 0;
    for (PTV_PAIR& p : m_pairs) {
        const bool partner = p.first.id >= 0 && p.second.id >= 0;
        p.dx = partner ? p.second.x - p.first.x : 0.0f;
        p.dy = partner ? p.first.y - p.second.y : 0.0f;
        p.valid = partner && p.distance < validRadius;
        m_valid += p.valid;
    }
    return m_valid;
}

int PTV_Data2D::particleCount() const {
    int n = 0;
    for (const PTV_PAIR& p : m_pairs) n += p.first.id >= 0;
    return n;
}

bool PTV_Data2D::saveASCII(const char* fileName) const {
    return PIV::Guarded(m_error, "saveASCII()", [&] {
        if (!fileName || !*fileName) throw PIVerror::BAD_FILE_NAME;
        std::unique_ptr<FILE, FileCloser> f(std::fopen(fileName, "w"));
        if (!f) {
            m_error.setMessage("cannot create '%s'", fileName);
            throw PIVerror::FILE_CREATE_FAILED;
        }
        std::fprintf(f.get(), "# particle tracks of '%s' and '%s', %d x %d pixels\n",
                     m_file1.c_str(), m_file2.c_str(), m_width, m_height);
        std::fprintf(f.get(), "# x y dx dy guide_dx guide_dy distance partner valid\n");
        for (const PTV_PAIR& p : m_pairs) {
            if (p.first.id < 0) continue;
            std::fprintf(f.get(), "%.3f %.3f %.4f %.4f %.4f %.4f %.4f %d %d\n", double(p.first.x),
                         double(p.first.y), double(p.dx), double(p.dy), double(p.guideDx),
                         double(p.guideDy), double(p.distance), p.second.id, p.valid);
        }
        if (std::ferror(f.get()) || std::fclose(f.release()) != 0) {
            m_error.setMessage("cannot write '%s'", fileName);
            throw PIVerror::FILE_WRITE_FAILED;
        }
    });
}
