// A scalar quantity of a vector field as an 8-bit bitmap of colour-table
// indices: bilinear inside each cell of four nodes. The colours come later,
// from the table, so a colour change never touches these pixels.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "image2d.h"
#include "piv_data2d.h"
#include "piv_messages.h"
#include "piv_plot.h"

namespace {

struct IndexScale {
    double min, max, scale;
    int palette, top;
    bool wrap;

    int index(float value) const {
        const double q = (value - min) / scale;
        if (wrap) {
            // Over-range values cycle through the table on purpose.
            double i = std::fmod(std::trunc(q), palette);
            if (!std::isfinite(i)) return 0;
            if (i < 0) i += palette;
            return i > 255 ? 255 : static_cast<int>(i);
        }
        if (value < min || !(q >= 0.0)) return 0;
        if (value >= max || q >= top) return top;
        return static_cast<int>(q);
    }
};

}  // namespace

bool _CreateScalarBitmap(const PIV_Data2D* data, uint8_t* bits, SIZE2D size, int bytesPerLine,
                         const PIVPLOT::CONTOUR_CFG& cfg) {
    if (!data || data->isNull() || !bits) {
        DebugPrint("CreateScalarBitmap() - no data available, BMP=0x%X",
                   static_cast<unsigned>(reinterpret_cast<uintptr_t>(bits)));
        return false;
    }
    const bool differential = PIVPLOT::NeedsDifferentials(cfg.Coding);
    if (differential && !data->isDifferentiated()) {
        DebugPrint("CreateScalarBitmap() - no differentials available");
        return false;
    }
    if (size.width > bytesPerLine) {
        DebugPrint("CreateScalarBitmap() - image size mismatch\nImage width=%d > %d bytes per line",
                   size.width, bytesPerLine);
        return false;
    }
    const int nx = data->grid().nodes.width, ny = data->grid().nodes.height;
    if (nx < 2 || ny < 2) {
        DebugPrint("CreateScalarBitmap() - insufficient points in data");
        return false;
    }
    const PIVPLOT::LUT_CFG& lut = cfg.lut;
    if (lut.ValueMin == lut.ValueMax) {
        DebugPrint("CreateScalarBitmap() - min == maxvalue");
        return false;
    }
    // Limits that are not numbers would silently map the whole field to
    // index 0, and a coding outside the list to a uniform 0.
    if (!std::isfinite(lut.ValueMin) || !std::isfinite(lut.ValueMax)) {
        DebugPrint("CreateScalarBitmap() - value range %g to %g is not finite", lut.ValueMin,
                   lut.ValueMax);
        return false;
    }
    if (cfg.Coding < 0 || cfg.Coding >= PIVPLOT::CC_COUNT) {
        DebugPrint("CreateScalarBitmap() - unknown coding %d", cfg.Coding);
        return false;
    }
    if (lut.PalLength < 1) {
        DebugPrint("CreateScalarBitmap() - Palette length<1");
        return false;
    }
    IndexScale s;
    s.min = lut.ValueMin;
    s.max = lut.ValueMax;
    s.palette = lut.PalLength;
    s.top = s.palette - 1 < 255 ? s.palette - 1 : 255;
    s.scale = (s.max - s.min) / (s.top > 0 ? s.top : 1);
    s.wrap = lut.Wrap;

    const double fill = (cfg.FillValue - s.min) / s.scale;
    const int fillIndex = !(fill >= 0.0) ? 0 : fill >= 256.0 ? s.top : static_cast<int>(fill);
    for (int y = 0; y < size.height; y++)
        std::memset(bits + static_cast<long>(y) * bytesPerLine, fillIndex, size.width);

    // Nodes are placed by their image pixel (ix, iy), rows downwards; with
    // the data area only, the bitmap starts at the first node.
    const PIV_VECTOR first = data->getVector2D(0, 0);
    const int x0 = cfg.DataAreaOnly ? first.ix : 0, y0 = cfg.DataAreaOnly ? first.iy : 0;
    auto value = [&](int row, int col) {
        return differential
                   ? _GetCornerDifferential(data->getDifferentials2D(row, col), cfg.Coding)
                   : _GetCornerVector(data->getVector2D(row, col), cfg.Coding, cfg.ConvertMode);
    };

    for (int row = 0; row + 1 < ny; row++) {
        for (int col = 0; col + 1 < nx; col++) {
            const PIV_VECTOR n0 = data->getVector2D(row, col);
            const PIV_VECTOR n1 = data->getVector2D(row + 1, col + 1);
            const int px = n0.ix - x0, py = n0.iy - y0;
            const int w = n1.ix - n0.ix, h = n1.iy - n0.iy;
            if (w <= 0 || h <= 0) continue;
            const float a = value(row, col), b = value(row, col + 1);
            const float c = value(row + 1, col), d = value(row + 1, col + 1);
            // The last cell of a row or column also paints its far edge.
            const int xEnd = col + 2 == nx ? w : w - 1, yEnd = row + 2 == ny ? h : h - 1;
            if (px < 0 || py < 0 || px + xEnd >= size.width || py + yEnd >= size.height) {
                DebugPrint("CreateScalarBitmap() - trying to address outside of image domain");
                return false;
            }
            for (int y = 0; y <= yEnd; y++) {
                const float v = static_cast<float>(y) / h;
                uint8_t* line = bits + static_cast<long>(py + y) * bytesPerLine + px;
                for (int x = 0; x <= xEnd; x++) {
                    const float u = static_cast<float>(x) / w;
                    const float lower = a + (b - a) * u, upper = c + (d - c) * u;
                    line[x] = static_cast<uint8_t>(s.index(lower + (upper - lower) * v));
                }
            }
        }
    }
    return true;
}

bool PIV_Data2D::createScalarImage(Image2D* image, const PIVPLOT::CONTOUR_CFG& cfg) {
    if (!image || isNull()) {
        DebugPrint("PIV_Data2D::createScalarImage() - no data");
        return false;
    }
    SIZE2D size{grid().imageSize.width, grid().imageSize.height};
    if (cfg.DataAreaOnly) {
        const PIV_VECTOR first = getVector2D(0, 0);
        const PIV_VECTOR last = getVector2D(grid().nodes.height - 1, grid().nodes.width - 1);
        size.width = last.ix - first.ix + 1;
        size.height = last.iy - first.iy + 1;
    }
    if (size.width < 1 || size.height < 1 || !image->resize(size, IMAGE_UINT8)) {
        DebugPrint("PIV_Data2D::createScalarImage() - no image of %d x %d", size.width,
                   size.height);
        return false;
    }
    if (PIVPLOT::NeedsDifferentials(cfg.Coding) && !isDifferentiated() && !differentiate())
        return false;
    return _CreateScalarBitmap(this, image->bits(), size, static_cast<int>(image->bytesPerLine()),
                               cfg);
}
