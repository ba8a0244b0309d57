// Pairing of the particles of two frames under a PIV field.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "piv_corr2d.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "ptv_eval2d.h"

namespace {

struct BinGrid {
    int binsX = 0, binsY = 0, boxW = 1, boxH = 1, width = 0, height = 0;
    std::vector<PARTICLE_BIN> bins;

    BinGrid(int w, int h, int bw, int bh)
        : binsX(w / bw + 1), binsY(h / bh + 1), boxW(bw), boxH(bh), width(w), height(h) {
        bins.resize(size_t(binsX) * size_t(binsY));
        for (int r = 0; r < binsY; r++)
            for (int c = 0; c < binsX; c++) {
                PARTICLE_BIN& b = bins[size_t(r) * size_t(binsX) + size_t(c)];
                b.x = c * bw;
                b.y = r * bh;
                b.width = bw;
                b.height = bh;
            }
    }
    // The bin of a position in the image; -1 outside it, also just left of
    // or above it, where truncation towards zero would give row or column 0.
    int binOf(double x, double y) const {
        if (!(x >= 0.0 && y >= 0.0 && x < width && y < height)) return -1;
        const int c = int(x / boxW), r = int(y / boxH);
        if (c >= binsX || r >= binsY) return -1;
        return r * binsX + c;
    }
    void put(const std::vector<PARTICLE>& particles) {
        for (size_t i = 0; i < particles.size(); i++) {
            const PARTICLE& p = particles[i];
            if (p.status == PARTICLE_TOO_LARGE) continue;
            const int b = binOf(p.x, p.y);
            if (b >= 0) bins[size_t(b)].particles.push_back(int(i));
        }
    }
    int clampCol(double x) const {
        return std::min(std::max(int(std::floor(x / boxW)), 0), binsX - 1);
    }
    int clampRow(double y) const {
        return std::min(std::max(int(std::floor(y / boxH)), 0), binsY - 1);
    }
};

// The nearest particle of `bin` to (ex, ey) closer than `best`; the earlier
// of two at the same distance.
int _nearestInBin(const PARTICLE_BIN& bin, const std::vector<PARTICLE>& b, double ex, double ey,
                  double& best) {
    int found = -1;
    for (int q : bin.particles) {
        const double d = std::hypot(ex - b[size_t(q)].x, ey - b[size_t(q)].y);
        if (d < best) {
            best = d;
            found = q;
        }
    }
    return found;
}

}  // namespace

void PTV_Eval2D::matchOrThrow(const std::vector<PARTICLE>& a, const std::vector<PARTICLE>& b,
                              const PIV_Data2D& guide, int width, int height) {
    const int bw = m_params.SortBoxWidth, bh = m_params.SortBoxHeight;
    BinGrid gridA(width, height, bw, bh), gridB(width, height, bw, bh);
    gridA.put(a);
    gridB.put(b);
    const double radius = m_params.SearchRadius;
    std::vector<char> guided(a.size(), 0);
    // Every particle of the first frame has its record, those kept out of
    // the bins (too large, outside) without a partner.
    for (const PARTICLE& p : a) {
        PTV_PAIR* rec = m_data->pairData(size_t(p.id));
        if (!rec) throw PIVerror::INTERNAL_ERROR;
        rec->first = p;
        rec->second.id = -1;
        rec->distance = float(radius);
        double dx = 0.0, dy = 0.0;
        guided[size_t(p.id)] = guide.interpolateVector(p.x, p.y, 0, &dx, &dy);
        rec->guideDx = float(dx);
        rec->guideDy = float(dy);
    }
    for (const PARTICLE_BIN& bin : gridA.bins) {
        for (int i : bin.particles) {
            const PARTICLE& p = a[size_t(i)];
            PTV_PAIR* rec = m_data->pairData(size_t(p.id));
            if (!guided[size_t(p.id)]) continue;
            const double dx = rec->guideDx, dy = rec->guideDy;
            const double ex = p.x + dx, ey = p.y - dy;
            const int own = gridB.binOf(ex, ey);
            if (own < 0) continue;
            // The second bin: of those the search circle reaches, the one
            // whose centre lies nearest to the expectation.
            int second = -1;
            double secondDist = double(bw + bh);
            for (int r = gridB.clampRow(ey - radius); r <= gridB.clampRow(ey + radius); r++)
                for (int c = gridB.clampCol(ex - radius); c <= gridB.clampCol(ex + radius); c++) {
                    const int k = r * gridB.binsX + c;
                    if (k == own) continue;
                    const double d = std::hypot(c * bw + 0.5 * bw - ex, r * bh + 0.5 * bh - ey);
                    if (d < secondDist) {
                        secondDist = d;
                        second = k;
                    }
                }
            double best = radius;
            int partner = _nearestInBin(gridB.bins[size_t(own)], b, ex, ey, best);
            if (second >= 0) {
                const int q = _nearestInBin(gridB.bins[size_t(second)], b, ex, ey, best);
                if (q >= 0) partner = q;
            }
            if (partner < 0) continue;
            rec->second = b[size_t(partner)];
            rec->distance = float(best);
        }
    }
}

bool PTV_Eval2D::process(Image2D& first, Image2D& second, PIV_Data2D& guide) {
    getTime(true);
    std::vector<PARTICLE> a, b;
    double detection = 0.0, matching = 0.0;
    return PIV::Guarded(m_error, "process()", [&] {
        if (!m_data) {
            m_error.setMessage("process() - no PTV data set");
            throw PIVerror::INVALID_POINTER;
        }
        if (first.isNull() || second.isNull()) throw PIVerror::IMAGE_IS_NULL;
        const int w = int(first.width()), h = int(first.height());
        if (!first.isSameSize(second, false)) {
            m_error.setMessage("process() - image 1 is %dx%d, image 2 %dx%d", w, h,
                               int(second.width()), int(second.height()));
            throw PIVerror::IMAGE_SIZE_MISMATCH;
        }
        if (guide.isNull()) {
            m_error.setMessage("process() - the guide field is empty");
            throw PIVerror::DATA_IS_NULL;
        }
        const SIZE3D gs = guide.grid().imageSize;
        if (gs.width != w || gs.height != h) {
            m_error.setMessage("process() - guide made for %dx%d pixels, images of %dx%d",
                               int(gs.width), int(gs.height), w, h);
            throw PIVerror::IMAGE_SIZE_MISMATCH;
        }
        const double r = m_params.SearchRadius, vr = m_params.ValidRadius;
        if (m_params.SortBoxWidth < 1 || m_params.SortBoxHeight < 1 || !(r > 0.0) ||
            !std::isfinite(r) || !(vr >= 0.0) || !std::isfinite(vr)) {
            m_error.setMessage("process() - sort box %dx%d, search radius %g, valid radius %g",
                               m_params.SortBoxWidth, m_params.SortBoxHeight, r, vr);
            throw PIVerror::BAD_PARAMETERS;
        }
        Image2D* images[2] = {&first, &second};
        std::vector<PARTICLE>* lists[2] = {&a, &b};
        for (int k = 0; k < 2; k++) {
            if (!PIV::Guarded(m_error, "extractParticles()",
                              [&] { extractOrThrow(*images[k], *lists[k]); })) {
                std::snprintf(m_text, sizeof(m_text),
                              "ERROR: failed detecting particles in image '%.900s'",
                              images[k]->fileName());
                appendToLogFile(m_text);
                m_error.setMessage("process() - failed detecting particles in image %d", k + 1);
                throw PIVerror::OPERATION_FAILED;
            }
        }
        detection = getTime(false);
        if (!m_data->resize(std::max(a.size(), b.size()))) throw PIVerror::ALLOCATION_FAILED;
        m_data->setImageSize(w, h);
        m_data->setImageFilePair(first.fileName(), second.fileName());
        matchOrThrow(a, b, guide, w, h);
        const int valid = m_data->postProcess(m_params.ValidRadius);
        const double total = getTime(false);
        matching = total - detection;
        std::snprintf(m_text, sizeof(m_text),
                      "Matched %lu particle pairs, %d valid (within %g pixels)\nDetection: "
                      "%.3gsec  Matching: %.3gsec  Total: %.3gsec",
                      static_cast<unsigned long>(a.size()), valid, m_params.ValidRadius, detection,
                      matching, total);
        showStatusMessage(m_text);
        std::snprintf(m_text, sizeof(m_text),
                      "Particle tracking (PTV) statistics:\n  Detection: %.3gsec  Matching: "
                      "%.3gsec  Total: %.3gsec\n  Matched %lu particle pairs of %lu and %lu "
                      "particles, %d valid (within %g pixels)",
                      detection, matching, total, static_cast<unsigned long>(a.size()),
                      static_cast<unsigned long>(a.size()), static_cast<unsigned long>(b.size()),
                      valid, m_params.ValidRadius);
        appendToLogFile(m_text);
        showNewPTVdata();
    });
}

bool PTV_Eval2D::doCorrelationMatching(Image2D& first, Image2D& second) {
    m_checkRms = -1.0;
    return PIV::Guarded(m_error, "doCorrelationMatching()", [&] {
        if (!m_data) throw PIVerror::INVALID_POINTER;
        if (first.isNull() || second.isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (!first.isSameSize(second, false)) throw PIVerror::IMAGE_SIZE_MISMATCH;
        PIV_Corr2D corr;
        if (!corr.setPivEvalCfg(m_pivCfg)) throw PIVerror::BAD_PARAMETERS;
        double sum2 = 0.0;
        int checked = 0;
        for (size_t i = 0; i < m_data->size(); i++) {
            const PTV_PAIR& p = *m_data->pairData(i);
            if (!p.valid) continue;
            POINT2D pos{int(std::lround(0.5 * (p.first.x + p.second.x))),
                        int(std::lround(0.5 * (p.first.y + p.second.y)))};
            const POINT2D at = pos;
            const POINT2D offset{int(std::lround(p.dx)), int(std::lround(p.dy))};
            PIV_VECTOR v = PIV_VECTOR();
            if (!corr.sampleAndCorrelate(&first, &second, &pos, offset, false) ||
                !corr.peakDetection(&v, offset, false))
                continue;
            const double diff = std::hypot(double(v.dx) - p.dx, double(v.dy) - p.dy);
            DebugPrintExt(1,
                          "pos:  %4d,%4d   PTV: %7.2f, %7.2f   pos:  %4d,%4d   corr: %7.2f, %7.2f  "
                          "diff=%g",
                          at.x, at.y, double(p.dx), double(p.dy), pos.x, pos.y, double(v.dx),
                          double(v.dy), diff);
            sum2 += diff * diff;
            checked++;
        }
        if (checked > 0) m_checkRms = std::sqrt(sum2 / checked);
    });
}
