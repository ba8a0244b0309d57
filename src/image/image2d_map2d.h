// Image2D_Map2D: resamples a recorded image onto the regular grid of the
// dewarped (object plane) image through a MAPPING_FXN_2D: destination pixel
// (i, j) takes the value of the source at the mapped point, read with the
// interpolation method of the base class.
#pragma once

#include "image2d_interp.h"
#include "mapping_fxn2d.h"

class Image2D_Map2D : public Image2D_Interpolation {
public:
    Image2D_Map2D();

    void setMappingFunction(const MAPPING_FXN_2D& map) { m_map = map; }
    const MAPPING_FXN_2D& mappingFunction() const { return m_map; }

    // `dest` becomes a float image of the mapping's destination size. With
    // `mask`, destination pixels whose source lies outside are 255 (masked);
    // otherwise 0. With `mirror` the source is read mirrored beyond its edges.
    bool mapImage(const Image2D& source, Image2D& dest, bool mask, bool mirror);
    // The same, and `mask` becomes the 8-bit mask of the destination pixels
    // that see no source pixel.
    bool mapImageAndCreateMask(const Image2D& source, Image2D& dest, Image2D& mask, bool mirror);
    // An 8-bit mask of the destination size: 255 where the mapped point falls
    // outside a source of `sourceSize`, 0 inside; `invert` swaps the two.
    bool createMask(Image2D& mask, const SIZE2D& sourceSize, bool invert);

private:
    MAPPING_FXN_2D m_map;
};
