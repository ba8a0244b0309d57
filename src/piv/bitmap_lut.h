// Colour tables of the plot: 256 entries that turn an index into a colour.
// BitmapLUT holds the choice, gamma, contrast, discretisation and opacity of
// one table and rebuilds its packed colours on every change, so a table is
// always complete. No toolkit types here; the plot items wrap it.
#pragma once

#include <cstdint>

#include "piv_error.h"

// The order is the order of the dialog's list "Lookup Table".
enum BitmapLUTChoice : int32_t {
    LUT_LINEAR_GRAYSCALE = 0,
    LUT_GRAYSCALE_RED = 1,
    LUT_SHORT_RAINBOW = 2,
    LUT_LONG_RAINBOW = 3,
    LUT_RAINBOW_WHITE = 4,
    LUT_LINEAR_GREEN = 5,
    LUT_BLUE_WHITE_RED = 6,
    LUT_BLUE_BLACK_RED = 7,
    LUT_MULTICOLOR_A = 8,
    LUT_MULTICOLOR_B = 9,
    LUT_BLACK_CYAN_BLUE_MAGENTA_RED = 10,
    LUT_COLOR_CODING = 11,
    LUT_USER_DEFINED = 12,
};

// The name of a choice as the list "Lookup Table" shows it; "" outside 0-12.
const char* BitmapLUTName(int choice);

// Keys "Mode", "Opacity", "ColorTrans", "ColorTransEnable" in the plot file.
enum BitmapOpacityMode : int32_t {
    OPACITY_NONE = 0,
    OPACITY_CONSTANT = 1,
    OPACITY_RAMP = 2,
    OPACITY_DOUBLE_RAMP = 3,
};

struct BITMAP_OPACITY_CFG {
    int32_t mode;              // BitmapOpacityMode
    double opacity;            // 0 to 1; the top of the ramps
    uint32_t colorTrans;       // 0xRRGGBB shown fully transparent ...
    int32_t colorTransEnable;  // ... when this is non-zero
};

class BitmapLUT {
public:
    static constexpr int kSize = 256;

    BitmapLUT();

    // A choice of 13 or above becomes 0, a negative one the user table.
    void setLUT(int choice);
    void setLUT(int choice, int levels, bool reversed);
    // Cycle through the built-in tables 0 to 11; the user table is skipped.
    void incrementLUT();
    void decrementLUT();
    void setReversed(bool reversed);
    // Below 2 becomes 2; above 128 becomes 256, the undiscretised table.
    void setDiscreteLevels(int levels);
    // Accepted above 0.01 and below 10; false and no change otherwise.
    bool setGamma(double gamma);
    bool setContrast(double contrast);
    bool setOpacity(const BITMAP_OPACITY_CFG& cfg);
    // 256 entries: blue in the low byte, then green, red, alpha. Selects the
    // user table.
    void setUserLUT(const unsigned int* argb);

    bool load(const char* file);
    bool save(const char* file);

    int size() const { return kSize; }
    int currentLUT() const { return m_choice; }
    bool isReversed() const { return m_reversed; }
    int currentLevels() const { return m_levels; }
    BITMAP_OPACITY_CFG opacity() const { return m_opacity; }
    double currentGamma() const { return m_gamma; }
    double currentContrast() const { return m_contrast; }

    // The index is clamped to 0 to 255.
    uint32_t rgbValue(int i) const { return m_rgb[clampIndex(i)]; }
    unsigned char red(int i) const { return m_red[clampIndex(i)]; }
    unsigned char green(int i) const { return m_green[clampIndex(i)]; }
    unsigned char blue(int i) const { return m_blue[clampIndex(i)]; }
    unsigned char alpha(int i) const { return m_alpha[clampIndex(i)]; }
    // The colour of a value normalised to 0..1: entry trunc(size * f), the
    // first for f below 0, the last for f of 1 or more.
    uint32_t vectorColor(double f) const;

    const PIVerror& error() const { return m_error; }
    void setDebugLevel(int level) { m_debugLevel = level; }

protected:
    void buildLUT();
    void applyContrastGammaAndDiscretize();

private:
    static int clampIndex(int i) { return i < 0 ? 0 : (i >= kSize ? kSize - 1 : i); }
    void loadRawTables();
    double alphaOf(int i) const;

    uint32_t m_rgb[kSize];
    unsigned char m_red[kSize];
    unsigned char m_green[kSize];
    unsigned char m_blue[kSize];
    unsigned char m_alpha[kSize];
    double m_rawRed[kSize];
    double m_rawGreen[kSize];
    double m_rawBlue[kSize];
    double m_gammaTable[kSize];
    double m_userRed[kSize];
    double m_userGreen[kSize];
    double m_userBlue[kSize];
    double m_userAlpha[kSize];
    int m_levels;
    bool m_reversed;
    double m_gamma;
    double m_contrast;
    int m_choice;
    BITMAP_OPACITY_CFG m_opacity;
    double m_opacityMin;
    double m_opacityMax;
    int m_debugLevel;
    PIVerror m_error;
};

namespace PIV {

// Tables 0 to 11 into three arrays of 256 doubles, clamped to 0..255. The
// arrays are shared static storage that the next call overwrites; any other
// choice gives the grayscale.
void _buildBitmapLut(int choice, double** red, double** green, double** blue);
// Factors a colour value is multiplied by; all 1 for gamma 1 and contrast 0.
void _buildGammaLut(double gamma, double contrast, double* table);
// Each band of 256 / levels entries takes one colour (levels from 2 to 128).
void _discretizeLut(int levels, unsigned char* red, unsigned char* green, unsigned char* blue,
                    unsigned char* alpha);

}  // namespace PIV

// Three byte tables of 256 entries for a built-in choice.
bool CreateBitmapLUT(int choice, unsigned char* red, unsigned char* green, unsigned char* blue,
                     bool reversed);

namespace PIVPLOT {

// As CreateBitmapLUT, with discretisation for levels 1 to 128, gamma and
// contrast. False for null tables or a choice outside 0 to 12.
bool CreateBitmapLUTExtra(int choice, unsigned char* red, unsigned char* green, unsigned char* blue,
                          bool reversed, int levels, double gamma, double contrast);

}  // namespace PIVPLOT
