// What the format readers tell Image2D::GetImageInfo from their headers
// alone. Each returns false when the file is not of its kind or cannot be
// read; the out-values are then unspecified.
#pragma once

#include "image_types.h"

namespace PIV {
namespace ImageFiles {

// All directories count as frames; size and type are the first page's.
// Sends libtiff's warnings nowhere for the rest of the run.
void QuietTiffWarnings();
bool TiffInfo(const char* path, ImageType* type, int* width, int* height, int* frames);
bool BmpInfo(const char* path, int* width, int* height);
bool LaVisionInfo(const char* path, int* width, int* height, int* frames);

}  // namespace ImageFiles
}  // namespace PIV
