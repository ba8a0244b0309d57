// Records of particle tracking: the settings, one particle image, the pixel
// list of a detected region and the bins of the partner search.
#pragma once

#include <cstdint>
#include <vector>

#include "piv_types.h"

struct PTV_PARAMS {
    double DetectThresh;        // grey value removed before regions are sought
    int32_t PixelConnectivity;  // 4 or 8
    int32_t MaxRegionSize;      // pixels; a larger region is no particle
    double SearchRadius;        // pixels around the expected position
    double ValidRadius;         // a pair closer than this to its expectation is valid
    int32_t SortBoxWidth, SortBoxHeight;
    IMAGE_CFG imageCfg;  // filters and background of the working copy
    bool LabelImagesSave;
    char LabelImagesPrefix[2048];

    PTV_PARAMS();
};

// One particle image; twelve 32-bit words.
struct PARTICLE {
    int32_t id;  // index in detection order, -1 when unset
    float x, y, z;
    float xPhys, yPhys, zPhys;
    float value;  // brightness
    float reserved[2];
    int32_t size;    // pixels of the region
    int32_t status;  // PARTICLE_STATUS
};
static_assert(sizeof(PARTICLE) == 48, "PARTICLE is twelve 32-bit words");

enum PARTICLE_STATUS {
    PARTICLE_GAUSSFIT = 1,
    PARTICLE_CENTROID = 2,   // centroid or 3-point fit
    PARTICLE_TOO_LARGE = 3,  // excluded from matching
};

struct PIXEL_VALUE {
    int32_t x, y;
    float value;
};

// How a region's position was found.
enum BLOB_METHOD { BLOB_3POINT = 1, BLOB_CENTROID = 3, BLOB_GAUSSFIT = 6 };

// The pixels of one labelled region and what was found from them.
struct PixelGroup {
    double cx = 0.0, cy = 0.0;                         // centroid weighted by value
    int32_t left = 0, top = 0, right = 0, bottom = 0;  // bounding box, inclusive
    int32_t count = 0;
    std::vector<PIXEL_VALUE> pixels;
    float minimum = 0.0f, maximum = 0.0f;
    double mean = 0.0;
    bool valid = false;
    // amplitude, offset, centre x, centre y, width x, width y, rotation
    double fit[7] = {0, 0, 0, 0, 0, 0, 0};
    int32_t method = 0;  // BLOB_METHOD

    int width() const { return right - left + 1; }
    int height() const { return bottom - top + 1; }
};

struct PARTICLE_BIN {
    int32_t x, y, width, height;
    std::vector<int> particles;  // indices into the particle array
};
