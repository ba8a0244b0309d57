// PCO b16 files, whole and as the two halves of a double image.
#include "fuzz_input.h"
#include "image2d.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Quiet();
    const char* path = fuzz::WriteInput(data, size, ".b16");
    for (int page : {0, 1, 2}) {
        Image2D img;
        img.loadPCO(path, page);
    }
    int w = 0, h = 0;
    Image2D::getPCOImageSizeInfo(path, w, h);
    return 0;
}
