// Test frames shared by the benchmarks.
#pragma once

#include <cstdint>

#include "image2d.h"

namespace bench {

// A camera-sized 16-bit frame of 12-bit noise from a fixed linear
// congruential sequence: the same pixels on every run.
inline Image2D CameraFrame(int width = 2560, int height = 2160) {
    Image2D img(width, height, IMAGE_UINT16);
    uint32_t s = 12345u;
    for (int y = 0; y < height; y++) {
        uint16_t* row = img.scanLine<uint16_t>(static_cast<uint64_t>(y));
        for (int x = 0; x < width; x++) {
            s = s * 1664525u + 1013904223u;
            row[x] = static_cast<uint16_t>(s >> 20);
        }
    }
    return img;
}

}  // namespace bench
