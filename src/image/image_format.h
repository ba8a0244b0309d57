// Recognition of a file's format by its content. Extensions are never looked at.
#pragma once

#include "image_types.h"

namespace PIV {

// One of the PIV::FileFormat values: FORMAT_NOT_FOUND when the file cannot be
// opened, otherwise the first pattern of the first 256 bytes that fits. Any
// file that fits none of the others counts as a LaVision file, so a number
// does not prove that a loader will accept the file.
int GetFileFormat(const char* path);

}  // namespace PIV
