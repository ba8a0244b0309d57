// The built-in colour tables and the gamma/contrast factors.
#include <algorithm>
#include <cmath>

#include "bitmap_lut.h"

namespace {

struct Rgb {
    double r, g, b;
};

// The six ramps shared by the two multicolour tables: magenta to blue to
// cyan to white to green to yellow to red, s the position inside a segment.
Rgb multicolorSegment(int segment, double s) {
    switch (segment) {
        case 0:
            return {255 - s, 0, 255};
        case 1:
            return {0, s, 255};
        case 2:
            return {s, 255, 255};
        case 3:
            return {255 - s, 255, 255 - s};
        case 4:
            return {s, 255, 0};
        default:
            return {255, 255 - s, 0};
    }
}

Rgb multicolorA(int i) {
    static const int start[] = {0, 43, 86, 128, 170, 213};
    int seg = 5;
    while (seg > 0 && i < start[seg]) --seg;
    return multicolorSegment(seg, 5.9765625 * (i - start[seg]));
}

Rgb multicolorB(int i) {
    if (i < 7) {
        const double c = 115 + 20 * i;
        return {c, 0, c};
    }
    if (i >= 243) return {5115.0 - 20 * i, 0, 0};
    const int seg = std::min((i - 7) / 40, 5);
    return multicolorSegment(seg, 6.375 * (i - 7 - 40 * seg));
}

Rgb longRainbow(int i) {
    const double c = 768 - 6 * i;
    Rgb v = i < 128 ? Rgb{c - 512, 512 - c, c} : Rgb{-c, c + 512, c};
    if (i < 64) {
        const double fade = 1 - (64 - i) / 80.0;
        v.r = std::clamp(v.r, 0.0, 255.0) * fade;
        v.b = std::clamp(v.b, 0.0, 255.0) * fade;
    }
    if (i > 220) v.b = -552 - c;
    return v;
}

Rgb rainbowWhite(int i) {
    const double k = 6.891891891891892;
    if (i < 111) {
        const double c = 256 - 6 * i;
        Rgb v{c, -c, c + 512};
        if (i < 37) {
            v.r *= i / 37.0;
            v.b *= i / 37.0;
        }
        return v;
    }
    if (i <= 185) return {std::trunc(k * (i - 111)), 255 - std::trunc(k * (i - 148)), 0};
    return {255, std::trunc(k * (i - 218)), std::trunc(k * (i - 185))};
}

Rgb colorCoding(int i) {
    // first entry, then start and step of red, green, blue
    static const double ramps[7][7] = {
        {0, 111, 4, 36, -1, 111, 4},   {37, 35, -1, 35, -1, 115, 4},
        {73, 36, -1, 111, 4, 111, 4},  {110, 35, -1, 115, 4, 35, -1},
        {146, 111, 4, 111, 4, 36, -1}, {183, 85, 3.7, 50, 2, 10, 0.5},
        {219, 111, 4, 36, -1, 36, -1},
    };
    int k = 6;
    while (k > 0 && i < ramps[k][0]) --k;
    const double* r = ramps[k];
    const double d = i - r[0];
    return {r[1] + r[2] * d, r[3] + r[4] * d, r[5] + r[6] * d};
}

Rgb entry(int choice, int i) {
    switch (choice) {
        case LUT_GRAYSCALE_RED:
            return i >= 254 ? Rgb{255, 0, 0} : Rgb{double(i), double(i), double(i)};
        case LUT_SHORT_RAINBOW: {
            const double k = 4 * i;
            return i < 128 ? Rgb{0, k, 512 - k} : Rgb{k - 512, 1024 - k, 0};
        }
        case LUT_LONG_RAINBOW:
            return longRainbow(i);
        case LUT_RAINBOW_WHITE:
            return rainbowWhite(i);
        case LUT_LINEAR_GREEN: {
            if (i < 192) return {0, std::trunc(4 * i / 3.0), 0};
            const double j = i - 192;
            return {4 * j, 255, 4 * j};
        }
        case LUT_BLUE_WHITE_RED:
            return i <= 127 ? Rgb{2.0 * i, 2.0 * i, 255} : Rgb{255, 512.0 - 2 * i, 512.0 - 2 * i};
        case LUT_BLUE_BLACK_RED: {
            const double c = 255 - 2 * i;
            return i <= 127 ? Rgb{0, 0, c} : Rgb{-c, 0, 0};
        }
        case LUT_MULTICOLOR_A:
            return multicolorA(i);
        case LUT_MULTICOLOR_B:
            return multicolorB(i);
        case LUT_BLACK_CYAN_BLUE_MAGENTA_RED: {
            const double t = 255 * std::fabs(std::sin(i * 1.5707963267948966 * 0.015625));
            if (i < 64) return {0, t, t};
            if (i < 128) return {0, t, 255};
            if (i < 192) return {t, 0, 255};
            return {255, 0, t};
        }
        case LUT_COLOR_CODING:
            return colorCoding(i);
        default:
            return {double(i), double(i), double(i)};
    }
}

}  // namespace

namespace PIV {

void _buildBitmapLut(int choice, double** red, double** green, double** blue) {
    static double s_red[BitmapLUT::kSize];
    static double s_green[BitmapLUT::kSize];
    static double s_blue[BitmapLUT::kSize];
    for (int i = 0; i < BitmapLUT::kSize; ++i) {
        const Rgb v = entry(choice, i);
        s_red[i] = std::clamp(v.r, 0.0, 255.0);
        s_green[i] = std::clamp(v.g, 0.0, 255.0);
        s_blue[i] = std::clamp(v.b, 0.0, 255.0);
    }
    if (red) *red = s_red;
    if (green) *green = s_green;
    if (blue) *blue = s_blue;
}

void _buildGammaLut(double gamma, double contrast, double* table) {
    if (gamma < 0) gamma = 1;
    if (gamma == 1 && contrast == 0) {
        std::fill(table, table + BitmapLUT::kSize, 1.0);
        return;
    }
    for (int i = 1; i < BitmapLUT::kSize; ++i) {
        const double x = i / 255.0;
        table[i] = std::pow(x, gamma) / x * std::exp(-x * contrast);
    }
    // pow(x, gamma) / x has no value at 0; the first step stands in for it.
    table[0] = table[1];
    const double last = table[BitmapLUT::kSize - 1];
    if (last != 0)
        for (int i = 0; i < BitmapLUT::kSize; ++i) table[i] /= last;
}

void _discretizeLut(int levels, unsigned char* red, unsigned char* green, unsigned char* blue,
                    unsigned char* alpha) {
    if (levels > 128) return;
    if (levels < 2) levels = 2;
    const int n = BitmapLUT::kSize;
    const int step = n / levels;
    for (int b = 0; b < n; b += step) {
        const int from = b == 0 ? 0 : std::min(b + step / 2, n - 1);
        for (int j = b; j < std::min(b + step, n); ++j) {
            red[j] = red[from];
            green[j] = green[from];
            blue[j] = blue[from];
            if (alpha) alpha[j] = alpha[from];
        }
    }
}

}  // namespace PIV
