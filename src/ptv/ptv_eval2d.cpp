#include "ptv_eval2d.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "gaussfit2d.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "ptv_regions.h"

namespace {

// log of a patch value for the 3-point rule; nothing to take the log of
// counts as very dark.
double _logValue(float v) {
    return v > 0.0f ? std::log(double(v)) : -1000.0;
}

}  // namespace

PTV_Eval2D::PTV_Eval2D() : PTV_Eval2D(nullptr) {}

PTV_Eval2D::PTV_Eval2D(PTV_Data2D* data)
    : m_params(),
      m_data(data),
      m_progress(false),
      m_mask(nullptr),
      m_text(),
      m_error("PTV_Eval2D"),
      m_refCount(1),
      m_counts(),
      m_clock(0.0) {}

PTV_Eval2D::~PTV_Eval2D() = default;

uint32_t PTV_Eval2D::release() {
    const uint32_t n = --m_refCount;
    if (n == 0) delete this;
    return n;
}

void PTV_Eval2D::appendToLogFile(const char* text) {
    DebugPrint("%s", text);
}
void PTV_Eval2D::showStatusMessage(const char* text) {
    DebugPrint("%s", text);
}
void PTV_Eval2D::showNewPTVdata() {}

double PTV_Eval2D::getTime(bool restart) {
    const double now =
        std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    const double elapsed = now - m_clock;
    if (restart) m_clock = now;
    return restart ? 0.0 : elapsed;
}

// Steps up to the 8-bit image whose non-zero pixels are particle images.
void PTV_Eval2D::prepareWorkImage(const Image2D& image, Image2D& work) {
    const IMAGE_CFG& cfg = m_params.imageCfg;
    const bool invert = cfg.filters.Invert;
    if (!work.copy(image) || !work.toFloat()) {
        m_error.setMessage("failed copying the image");
        throw PIVerror::OPERATION_FAILED;
    }
    const bool invertedBackground = invert && cfg.BkgdSubtract;
    if (cfg.BkgdSubtract) {
        Image2D background;
        if (!background.load(cfg.Bkgd) || !background.toFloat()) {
            m_error.setMessage("failed loading background image '%s'", cfg.Bkgd);
            throw PIVerror::OPERATION_FAILED;
        }
        if (!background.isSameSize(work, false)) {
            m_error.setMessage("background image '%s' is %dx%d, the image %dx%d", cfg.Bkgd,
                               int(background.width()), int(background.height()), int(work.width()),
                               int(work.height()));
            throw PIVerror::OPERATION_FAILED;
        }
        const bool subtracted = invertedBackground
                                    ? background.subtract(work, true) && work.copy(background)
                                    : work.subtract(background, true);
        if (!subtracted) {
            m_error.setMessage("failed subtracting background image '%s'", cfg.Bkgd);
            throw PIVerror::OPERATION_FAILED;
        }
    }
    // The negative is formed below, on the scaled image; the filters must not
    // form it a second time.
    IMAGE_FILTER_CFG filters = cfg.filters;
    filters.Invert = false;
    if (!work.applyImageFilters(filters, false)) {
        m_error.setMessage("failed applying image filters");
        throw PIVerror::OPERATION_FAILED;
    }
    if (!work.toFloat() || !work.subtract(m_params.DetectThresh, true) ||
        !work.clipRange(0.0, 65535.0) || !work.scaleToRange(0.0, 255.0) || !work.to8Bit(true)) {
        m_error.setMessage("failed scaling image to 8 bits");
        throw PIVerror::OPERATION_FAILED;
    }
    if (invert && !invertedBackground && !work.negative(0)) {
        m_error.setMessage("failed computing negative image");
        throw PIVerror::OPERATION_FAILED;
    }
    if (m_mask && !work.applyMask(*m_mask, false)) {
        m_error.setMessage("failed applying mask image");
        throw PIVerror::OPERATION_FAILED;
    }
}

// Positions of the groups: a Gaussian where it fits, else the 3-point rule
// around the brightest pixel, else the centroid.
void PTV_Eval2D::locateGroups(std::vector<PixelGroup>& groups, const Image2D& values) {
    GaussFit2D fitter;
    fitter.setFitType(31);
    fitter.error().setErrorHandling(PIVerror::ERROR_QUIET);
    const int w = int(values.width()), h = int(values.height());
    for (size_t i = 0; i < groups.size(); i++) {
        PixelGroup& g = groups[i];
        g.method = BLOB_CENTROID;
        g.fit[0] = g.mean;
        if (g.count > m_params.MaxRegionSize) {
            DebugPrintExt(2, "region%04d too large for fit - %d px", int(i), g.count);
            g.valid = false;
            m_counts.tooLarge++;
            continue;
        }
        if (g.count > 9) {
            GAUSSFIT2D_PARAMS r;
            if (fitter.doFit(g, &r)) {
                const double dist = std::hypot(r.cx - g.cx, r.cy - g.cy);
                if (dist < 1.0) {
                    const double fit[7] = {r.amplitude, r.offset, r.cx,      r.cy,
                                           r.widthX,    r.widthY, r.rotation};
                    std::copy(fit, fit + 7, g.fit);
                    g.method = BLOB_GAUSSFIT;
                    m_counts.gaussFits++;
                    continue;
                }
                DebugPrintExt(2, "position discrepancy on region%04d - dist=%.2f px", int(i), dist);
            }
        }
        if (g.count == 0 || w < 3 || h < 3) continue;
        const PIXEL_VALUE* top = &g.pixels[0];
        for (const PIXEL_VALUE& p : g.pixels)
            if (p.value > top->value) top = &p;
        const int px = std::min(std::max(top->x, 1), w - 2);
        const int py = std::min(std::max(top->y, 1), h - 2);
        float v[3][3];
        for (int j = -1; j <= 1; j++)
            for (int k = -1; k <= 1; k++) v[j + 1][k + 1] = values.pixel(px + k, py + j);
        const double c = _logValue(v[1][1]);
        const double west = _logValue(v[1][0]), east = _logValue(v[1][2]);
        const double north = _logValue(v[0][1]), south = _logValue(v[2][1]);
        const double denX = 2.0 * (west + east - 2.0 * c), denY = 2.0 * (north + south - 2.0 * c);
        double offX = 0.0, offY = 0.0;
        g.method = BLOB_3POINT;
        if (denX == 0.0 || denY == 0.0) {
            double sum = 0.0, sx = 0.0, sy = 0.0;
            for (int j = 0; j < 3; j++)
                for (int k = 0; k < 3; k++) {
                    sum += v[j][k];
                    sx += double(v[j][k]) * (k - 1);
                    sy += double(v[j][k]) * (j - 1);
                }
            if (denX == 0.0 && sum != 0.0) offX = sx / sum;
            if (denY == 0.0 && sum != 0.0) offY = sy / sum;
            g.method = BLOB_CENTROID;
        }
        if (denX != 0.0) offX = (west - east) / denX;
        if (denY != 0.0) offY = (north - south) / denY;
        g.fit[2] = px + offX;
        g.fit[3] = py + offY;
        g.cx = g.fit[2];
        g.cy = g.fit[3];
        m_counts.threePointFits++;
    }
}

void PTV_Eval2D::extractOrThrow(Image2D& image, std::vector<PARTICLE>& out) {
    m_counts = ExtractionCounts();
    if (image.isNull()) throw PIVerror::IMAGE_IS_NULL;
    const PTV_PARAMS& q = m_params;
    if ((q.PixelConnectivity != 4 && q.PixelConnectivity != 8) || q.MaxRegionSize < 1 ||
        !std::isfinite(q.DetectThresh)) {
        m_error.setMessage(
            "bad parameters: connectivity %d (4 or 8), maximum region %d px, "
            "threshold %g",
            q.PixelConnectivity, q.MaxRegionSize, q.DetectThresh);
        throw PIVerror::BAD_PARAMETERS;
    }
    Image2D work;
    prepareWorkImage(image, work);

    Image2D labels;
    int count = 0;
    if (!PIV::LabelRegions(&work, labels, &count, 0, m_params.PixelConnectivity, &m_error)) {
        m_error.setMessage("failed detecting regions in image");
        throw PIVerror::OPERATION_FAILED;
    }
    if (count == 0) {
        m_error.setMessage("no regions detected in image");
        throw PIVerror::OPERATION_FAILED;
    }
    m_counts.regions = count;

    // With Invert the groups carry the brightness of the dark particle
    // images, not the scaled working values.
    Image2D inverted;
    const Image2D* values = &work;
    if (m_params.imageCfg.filters.Invert) {
        inverted.copy(image);
        if (!inverted.toFloat() || !inverted.negative(inverted.maximum())) {
            m_error.setMessage("failed computing negative image");
            throw PIVerror::OPERATION_FAILED;
        }
        values = &inverted;
    }
    std::vector<PixelGroup> groups;
    try {
        groups.resize(size_t(count));
    } catch (const std::bad_alloc&) {
        m_error.setMessage("failed allocating blobs");
        throw PIVerror::OPERATION_FAILED;
    }
    if (!PIV::ExtractBlobs(*values, &labels, groups.data(), count, &m_error)) {
        m_error.setMessage("failed extracting blobs from image");
        throw PIVerror::OPERATION_FAILED;
    }
    const char* base = PIV::GetBaseNameFromPath(image.fileName());
    if (m_params.LabelImagesSave) {
        char path[2400];
        std::snprintf(path, sizeof(path), "%s%s.tif", m_params.LabelImagesPrefix,
                      *base ? base : "image");
        IMAGE_COMPRESSION lzw;
        lzw.mode = 4;
        labels.setCompression(lzw);
        if (labels.to16Bit(true) && labels.saveTIFF(path))
            DebugPrint(" PTV label image saved in: '%s'", path);
        else
            PrintWarning("failed saving PTV label image '%s'", path);
    }

    locateGroups(groups, *values);

    try {
        out.assign(groups.size(), PARTICLE());
    } catch (const std::bad_alloc&) {
        m_error.setMessage("failed allocating particles");
        throw PIVerror::OPERATION_FAILED;
    }
    for (size_t i = 0; i < groups.size(); i++) {
        const PixelGroup& g = groups[i];
        PARTICLE& p = out[i];
        std::memset(&p, 0, sizeof(p));
        p.id = int(i);
        p.size = g.count;
        if (g.method == BLOB_GAUSSFIT) {
            p.x = float(g.fit[2]);
            p.y = float(g.fit[3]);
            p.value = float(g.fit[0] + g.fit[1]);
            p.status = PARTICLE_GAUSSFIT;
        } else {
            p.x = float(g.cx);
            p.y = float(g.cy);
            p.value = float(g.mean);
            p.status = g.count > m_params.MaxRegionSize ? PARTICLE_TOO_LARGE : PARTICLE_CENTROID;
        }
        p.xPhys = p.x;
        p.yPhys = p.y;
    }

    if (DebugLevel() >= 2) {
        DebugPrintExt(2, "Detected %d regions (GaussFit:%d  3x3Fit:%d  Too large:%d):", count,
                      m_counts.gaussFits, m_counts.threePointFits, m_counts.tooLarge);
        const int first = std::max(0, count / 2 - 5), last = std::min(count, first + 10);
        for (int i = first; i < last; i++) {
            const PixelGroup& g = groups[size_t(i)];
            DebugPrintExt(2,
                          "   rgn%04d:  size=%3d (%2dx%2d) cx=%7.2f  cy=%7.2f  mean=%7.2f  "
                          "range=(%g : %g)",
                          i, g.count, g.width(), g.height(), double(out[size_t(i)].x),
                          double(out[size_t(i)].y), g.mean, double(g.minimum), double(g.maximum));
        }
    }
    if (m_progress) {
        std::snprintf(m_text, sizeof(m_text),
                      "%s: extracted %d particle images (%d greater than %d pixels)", base, count,
                      m_counts.tooLarge, m_params.MaxRegionSize);
        appendToLogFile(m_text);
    }
}

bool PTV_Eval2D::extractParticles(Image2D& image, PARTICLE** particles, unsigned int* count) {
    if (particles) *particles = nullptr;
    if (count) *count = 0;
    return PIV::Guarded(m_error, "extractParticles()", [&] {
        if (!particles || !count) throw PIVerror::INVALID_POINTER;
        std::vector<PARTICLE> found;
        extractOrThrow(image, found);
        PARTICLE* array = new PARTICLE[found.size()];
        std::copy(found.begin(), found.end(), array);
        *particles = array;
        *count = unsigned(found.size());
    });
}

bool PTV_Eval2D::detectParticles(Image2D& image, PTV_Particle2D* out) {
    return PIV::Guarded(m_error, "detectParticles()", [&] {
        if (!out) throw PIVerror::INVALID_POINTER;
        std::vector<PARTICLE> found;
        extractOrThrow(image, found);
        if (!out->assign(found.data(), found.size())) throw PIVerror::ALLOCATION_FAILED;
        out->setImageSize(int(image.width()), int(image.height()));
    });
}
