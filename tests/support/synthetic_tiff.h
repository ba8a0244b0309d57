// A synthetic particle pair of a known uniform shift, written as two 8-bit
// TIFF frames, for tests that load images the way a user does.
#pragma once

#include <string>

#include "image2d.h"
#include "synthetic_flows.h"
#include "synthetic_images.h"

namespace test_support {

// Frames of `size` squared whose particles move (dx, dy) image pixels, y down.
inline bool WriteShiftedTiffPair(const std::string& fileA, const std::string& fileB, int size,
                                 double dx, double dy) {
    synth::SynthParams p;
    p.width = p.height = size;
    const synth::SyntheticPair pair = synth::RenderPair(p, synth::UniformFlow(dx, dy));
    for (int frame : {0, 1}) {
        Image2D image(size, size, IMAGE_UINT8);
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x)
                image.setPixel(x, y, frame ? pair.pixelB(x, y) : pair.pixelA(x, y));
        if (!image.save((frame ? fileB : fileA).c_str())) return false;
    }
    return true;
}

}  // namespace test_support
