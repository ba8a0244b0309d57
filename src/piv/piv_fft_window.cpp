#include "piv_fft_window.h"

#include <algorithm>
#include <cmath>

#include "piv_enums.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// The LFC windows' one-dimensional factors, s = |offset from centre| / length.
double Lfc1(double s) {
    return 4.0 * s * s - 4.0 * s + 1.0;
}
double Lfc3(double s) {
    return 12.0 * s * s - 12.0 * s + 3.0 + 0.15 * std::cos(4.0 * kPi * s) +
           0.2 * std::cos(6.0 * kPi * s) + 0.1 * std::cos(8.0 * kPi * s) +
           0.05 * std::cos(10.0 * kPi * s);
}

}  // namespace

double PIV::FFTWindowWeight1D(int type, int i, int n) {
    const double t = n > 1 ? double(i) / double(n - 1) : 0.0;
    switch (type) {
    case FFTWINDOW_TUKEY: {
        const int quarter = std::max(n / 4, 1);
        if (i > n / 2) return FFTWindowWeight1D(type, n - 1 - i, n);
        if (i < n / 4) return (std::cos((double(i) / quarter - 1.0) * kPi) + 1.0) / 2.0;
        return 1.0;
    }
    case FFTWINDOW_BLACKMAN:
        return 0.42 - 0.5 * std::cos(2.0 * kPi * t) + 0.08 * std::cos(4.0 * kPi * t);
    case FFTWINDOW_HANN: return (1.0 - std::cos(2.0 * kPi * t)) / 2.0;
    case FFTWINDOW_HAMMING: return 0.54 - 0.46 * std::cos(2.0 * kPi * t);
    case FFTWINDOW_COSINE: return std::sin(kPi * t);
    case FFTWINDOW_GAUSS: {
        const double c = (n - 1) / 2.0;
        if (c <= 0.0) return 1.0;
        const double z = (i - c) / (0.4 * c);
        return std::exp(-0.5 * z * z);
    }
    default: return 1.0;
    }
}

void PIV::CreateFFTWindow(int type, int width, int height, int stride, float* out) {
    if (!out || width < 1 || height < 1 || stride < width) return;
    double largest = 0.0;
    for (int j = 0; j < height; j++) {
        float* row = out + size_t(j) * stride;
        const int dy = j - height / 2;
        const double y = std::fabs(double(dy) / height);
        const double wy = FFTWindowWeight1D(type, j, height);
        for (int i = 0; i < width; i++) {
            const int dx = i - width / 2;
            const double x = std::fabs(double(dx) / width);
            double w;
            switch (type) {
            case FFTWINDOW_LFC1: w = 9.0 * Lfc1(y) * Lfc1(x); break;
            case FFTWINDOW_LFC2: {
                const double r = std::sqrt(double(dx) * dx + double(dy) * dy) / width;
                w = r < 0.5 ? (4.0 * r * r - 4.0 * r + 1.0) * 24.0 / kPi : 0.0;
                break;
            }
            case FFTWINDOW_LFC3: w = Lfc3(y) * Lfc3(x); break;
            default: w = wy * FFTWindowWeight1D(type, i, width); break;
            }
            row[i] = float(w);
            largest = std::max(largest, w);
        }
        std::fill(row + width, row + stride, 0.0f);
    }
    if (largest <= 0.0) return;
    for (int j = 0; j < height; j++) {
        float* row = out + size_t(j) * stride;
        for (int i = 0; i < width; i++) row[i] = float(row[i] / largest);
    }
}
