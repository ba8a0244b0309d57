// BitmapLUT: choice, gamma, contrast, levels, reversal and opacity of one
// colour table, and the free functions that build plain byte tables.
#include "bitmap_lut.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

unsigned char toByte(double v) {
    if (!(v >= 0)) return 0;  // NaN too
    if (v > 255) return 255;
    return static_cast<unsigned char>(v);
}

constexpr int kLastBuiltIn = LUT_COLOR_CODING;

const char* const kNames[LUT_USER_DEFINED + 1] = {
    "Linear Grayscale",
    "Grayscale + Red",
    "Short Rainbow",
    "Long Rainbow",
    "Rainbow + White",
    "Linear Green",
    "Blue White Red",
    "Blue Black Red",
    "Multicolor A",
    "Multicolor B",
    "Black-Cyan-Blue-Magenta-Red",
    "Color Coding",
    "User defined",
};

}  // namespace

const char* BitmapLUTName(int choice) {
    return choice >= 0 && choice <= LUT_USER_DEFINED ? kNames[choice] : "";
}

BitmapLUT::BitmapLUT()
    : m_levels(kSize),
      m_reversed(false),
      m_gamma(1.0),
      m_contrast(0.0),
      m_choice(LUT_LINEAR_GRAYSCALE),
      m_opacity{OPACITY_NONE, 1.0, 0, 0},
      m_opacityMin(0.0),
      m_opacityMax(1.0),
      m_debugLevel(0),
      m_error("BitmapLUT") {
    for (int i = 0; i < kSize; ++i) {
        m_userRed[i] = m_userGreen[i] = m_userBlue[i] = i;
        m_userAlpha[i] = 255;
    }
    PIV::_buildGammaLut(m_gamma, m_contrast, m_gammaTable);
    loadRawTables();
    buildLUT();
}

void BitmapLUT::loadRawTables() {
    double *r, *g, *b;
    PIV::_buildBitmapLut(m_choice, &r, &g, &b);
    std::copy(r, r + kSize, m_rawRed);
    std::copy(g, g + kSize, m_rawGreen);
    std::copy(b, b + kSize, m_rawBlue);
}

void BitmapLUT::setLUT(int choice) {
    if (choice > LUT_USER_DEFINED) choice = LUT_LINEAR_GRAYSCALE;
    if (choice < 0) choice = LUT_USER_DEFINED;
    m_choice = choice;
    loadRawTables();
    buildLUT();
}

void BitmapLUT::setLUT(int choice, int levels, bool reversed) {
    m_levels = levels;
    m_reversed = reversed;
    setLUT(choice);
}

void BitmapLUT::incrementLUT() {
    setLUT(m_choice >= kLastBuiltIn ? 0 : m_choice + 1);
}

void BitmapLUT::decrementLUT() {
    setLUT(m_choice <= 0 || m_choice > kLastBuiltIn ? kLastBuiltIn : m_choice - 1);
}

void BitmapLUT::setReversed(bool reversed) {
    m_reversed = reversed;
    buildLUT();
}

void BitmapLUT::setDiscreteLevels(int levels) {
    m_levels = levels;
    buildLUT();
}

bool BitmapLUT::setGamma(double gamma) {
    if (!(gamma > 0.01 && gamma < 10)) {
        DebugPrintExt(1, "BitmapLUT::setGamma() - gamma %g outside 0.01 to 10", gamma);
        return false;
    }
    m_gamma = gamma;
    PIV::_buildGammaLut(m_gamma, m_contrast, m_gammaTable);
    buildLUT();
    return true;
}

bool BitmapLUT::setContrast(double contrast) {
    if (!std::isfinite(contrast)) return false;
    m_contrast = contrast;
    PIV::_buildGammaLut(m_gamma, m_contrast, m_gammaTable);
    buildLUT();
    return true;
}

bool BitmapLUT::setOpacity(const BITMAP_OPACITY_CFG& cfg) {
    if (cfg.mode < OPACITY_NONE || cfg.mode > OPACITY_DOUBLE_RAMP || !std::isfinite(cfg.opacity)) {
        DebugPrintExt(1, "BitmapLUT::setOpacity() - invalid mode %d", cfg.mode);
        return false;
    }
    m_opacity = cfg;
    m_opacityMin = 0.0;
    m_opacityMax = std::clamp(cfg.opacity, 0.0, 1.0);
    buildLUT();
    return true;
}

void BitmapLUT::setUserLUT(const unsigned int* argb) {
    if (!argb) return;
    for (int i = 0; i < kSize; ++i) {
        m_userBlue[i] = argb[i] & 0xff;
        m_userGreen[i] = (argb[i] >> 8) & 0xff;
        m_userRed[i] = (argb[i] >> 16) & 0xff;
        m_userAlpha[i] = (argb[i] >> 24) & 0xff;
    }
    setLUT(LUT_USER_DEFINED);
}

uint32_t BitmapLUT::vectorColor(double f) const {
    if (!(f > 0)) return m_rgb[0];
    if (f >= 1) return m_rgb[kSize - 1];
    return m_rgb[clampIndex(static_cast<int>(kSize * f))];
}

// Opacity as a fraction of 255: a ramp climbs from the minimum at entry 0 to
// the maximum at 255; the double ramp is lowest in the middle.
double BitmapLUT::alphaOf(int i) const {
    const double span = m_opacityMax - m_opacityMin;
    switch (m_opacity.mode) {
        case OPACITY_CONSTANT:
            return 255 * m_opacity.opacity;
        case OPACITY_RAMP:
            return 255 * (m_opacityMin + span * i / (kSize - 1.0));
        case OPACITY_DOUBLE_RAMP: {
            const double mid = (kSize - 1) / 2.0;
            return 255 * (m_opacityMin + span * std::fabs(i - mid) / mid);
        }
        default:
            return m_choice == LUT_USER_DEFINED ? m_userAlpha[i] : 255;
    }
}

void BitmapLUT::applyContrastGammaAndDiscretize() {
    const bool user = m_choice == LUT_USER_DEFINED;
    const bool plain = m_gamma == 1 && m_contrast == 0;
    const uint32_t trans = m_opacity.colorTrans & 0xffffff;
    for (int i = 0; i < kSize; ++i) {
        double r = user ? m_userRed[i] : m_rawRed[i];
        double g = user ? m_userGreen[i] : m_rawGreen[i];
        double b = user ? m_userBlue[i] : m_rawBlue[i];
        if (!plain) {
            r *= m_gammaTable[i];
            g *= m_gammaTable[i];
            b *= m_gammaTable[i];
        }
        m_red[i] = toByte(r);
        m_green[i] = toByte(g);
        m_blue[i] = toByte(b);
        m_alpha[i] = toByte(alphaOf(i));
        const uint32_t rgb = (uint32_t(m_red[i]) << 16) | (m_green[i] << 8) | m_blue[i];
        if (m_opacity.colorTransEnable && rgb == trans) m_alpha[i] = 0;
    }
    if (m_levels > 128) m_levels = kSize;
    if (m_levels < 2) m_levels = 2;
    PIV::_discretizeLut(m_levels, m_red, m_green, m_blue, m_alpha);
}

void BitmapLUT::buildLUT() {
    applyContrastGammaAndDiscretize();
    if (m_reversed) {
        for (int i = 0; i < kSize / 2; ++i) {
            const int j = kSize - 1 - i;
            std::swap(m_red[i], m_red[j]);
            std::swap(m_green[i], m_green[j]);
            std::swap(m_blue[i], m_blue[j]);
            std::swap(m_alpha[i], m_alpha[j]);
        }
    }
    for (int i = 0; i < kSize; ++i)
        m_rgb[i] = (uint32_t(m_alpha[i]) << 24) | (uint32_t(m_red[i]) << 16) |
                   (uint32_t(m_green[i]) << 8) | m_blue[i];
}

bool CreateBitmapLUT(int choice, unsigned char* red, unsigned char* green, unsigned char* blue,
                     bool reversed) {
    return PIVPLOT::CreateBitmapLUTExtra(choice, red, green, blue, reversed, 256, 1.0, 0.0);
}

namespace PIVPLOT {

bool CreateBitmapLUTExtra(int choice, unsigned char* red, unsigned char* green, unsigned char* blue,
                          bool reversed, int levels, double gamma, double contrast) {
    if (!red || !green || !blue || choice < 0 || choice > LUT_USER_DEFINED) {
        DebugPrintExt(1, "CreateBitmapLUTExtra() - invalid table or choice %d", choice);
        return false;
    }
    const int n = BitmapLUT::kSize;
    double *r, *g, *b;
    PIV::_buildBitmapLut(choice, &r, &g, &b);
    double factor[BitmapLUT::kSize];
    PIV::_buildGammaLut(gamma, contrast, factor);
    for (int i = 0; i < n; ++i) {
        red[i] = toByte(r[i] * factor[i]);
        green[i] = toByte(g[i] * factor[i]);
        blue[i] = toByte(b[i] * factor[i]);
    }
    if (levels >= 1 && levels <= 128) PIV::_discretizeLut(levels, red, green, blue, nullptr);
    if (reversed) {
        std::reverse(red, red + n);
        std::reverse(green, green + n);
        std::reverse(blue, blue + n);
    }
    return true;
}

}  // namespace PIVPLOT
