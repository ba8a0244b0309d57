// TIFF files through libtiff: the first two pages, and the header summary
// the file lists use.
#include <tiffio.h>

#include "fuzz_input.h"
#include "image2d.h"
#include "image2d_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Quiet();
    static const bool quiet = [] {
        TIFFSetErrorHandler(nullptr);
        TIFFSetWarningHandler(nullptr);
        return true;
    }();
    (void)quiet;
    const char* path = fuzz::WriteInput(data, size, ".tif");
    for (int page : {0, 1}) {
        Image2D img;
        img.loadTIFF(path, page);
    }
    ImageType type;
    int w, h, frames;
    PIV::ImageFiles::TiffInfo(path, &type, &w, &h, &frames);
    return 0;
}
