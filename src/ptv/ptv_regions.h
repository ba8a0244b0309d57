// Connected regions of an 8-bit image and the pixel lists of their labels.
#pragma once

#include "image2d.h"
#include "piv_error.h"
#include "ptv_types.h"

namespace PIV {

// Labels the pixels above `threshold` (a negative one counts as 0) by their
// connected region, 4- or 8-connected, into a 32-bit image of the source's
// size: 0 background, regions 1..count in raster order of their first pixel.
// Failures are reported through `owner` when given.
bool LabelRegions(const Image2D* source, Image2D& labels, int* count, int threshold,
                  int connectivity, PIVerror* owner = nullptr);

// Fills groups[0..count-1] with the pixels of labels 1..count: their
// coordinates and the values of `source`, bounding box, range, mean and the
// value-weighted centroid. `source` may be of any pixel type.
bool ExtractBlobs(const Image2D& source, const Image2D* labels, PixelGroup* groups, int count,
                  PIVerror* owner = nullptr);

}  // namespace PIV
