// Plain types shared by the image classes, their file readers and writers.
#pragma once

#include <cstdint>

// The pixel depth in bits; float sits one above 32 so that the value alone
// tells the storage.
enum ImageType {
    IMAGE_UNDEFINED = 0,  // an image without a block
    IMAGE_UINT8 = 8,
    IMAGE_UINT16 = 16,
    IMAGE_UINT32 = 32,
    IMAGE_FLOAT = 33,
};

// Settings handed to the writers. The field layout is four 32-bit words.
struct IMAGE_COMPRESSION {
    int32_t mode = 0;           // 0 none, 1 CCITT RLE, 2 JPEG, 3 Deflate, 4 LZW, 5 PackBits
    int32_t jpegQuality = -1;   // mode 2
    int32_t deflateLevel = -1;  // mode 3, used when above 0
    int32_t predictor = 1;      // modes 3 and 4, used when not 0
};
static_assert(sizeof(IMAGE_COMPRESSION) == 16, "IMAGE_COMPRESSION is four 32-bit fields");

// What the directory of a TIFF tells.
struct TIFF_INFO {
    char fileName[2048];
    ImageType type;
    uint32_t width, height;
    uint32_t pages;
    uint16_t samplesPerPixel, bitsPerSample;
    // 32 bits: libtiff's "all rows in one strip" is 2^32 - 1.
    uint32_t rowsPerStrip;
    uint16_t photometric;
    uint32_t scanlineSize, stripCount, stripSize;
};

// Which half of a double-frame PCO file a load keeps.
enum PCO_SplitMode {
    PCO_SPLIT_NONE = 0,
    PCO_SPLIT_FIRST = 1,
    PCO_SPLIT_SECOND = 2,
};

namespace PIV {

enum InterpolationMethod {
    INTERPOLATE_SHIFTED_LINEAR = 0,
    INTERPOLATE_GAUSS = 1,
    INTERPOLATE_BSPLINE = 2,
    INTERPOLATE_BILINEAR = 3,
    INTERPOLATE_SINC = 4,
    INTERPOLATE_POLYNOMIAL = 5,
};

// Identifiers returned by GetFileFormat. They travel as plain int, so any
// function taking or returning a format uses int.
enum FileFormat : int {
    FORMAT_NOT_FOUND = -2,  // the file cannot be opened
    FORMAT_UNKNOWN = -1,
    FORMAT_TECPLOT = 2,
    FORMAT_NETCDF = 3,
    FORMAT_PARFILE = 5,
    FORMAT_TIFF = 100,
    FORMAT_PCO = 101,
    FORMAT_B32 = 102,  // known by its magic only
    FORMAT_BMP = 103,
    FORMAT_JPEG = 104,  // recognised, not loaded
    FORMAT_PNG = 105,   // recognised, not loaded
    FORMAT_PGM = 106,   // PGM or PBM
    FORMAT_LAVISION_0 = 1000,
    FORMAT_LAVISION_1 = 1001,
    FORMAT_LAVISION_2 = 1002,
    FORMAT_LAVISION_3 = 1003,
    FORMAT_LAVISION_4 = 1004,
    FORMAT_LAVISION_5 = 1005,
    FORMAT_LAVISION_6 = 1006,
    FORMAT_LAVISION_7 = 1007,
};

}  // namespace PIV
