// LaVision IMX, IMG, VC7 and IM7 files: the buffer reader with its
// attribute list, and the image loader on top of it.
#include "fuzz_input.h"
#include "image2d.h"
#include "image2d_files.h"
#include "lavision_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Quiet();
    const char* path = fuzz::WriteInput(data, size, ".im7");
    {
        IMX_BUFFER_TYPE buffer{};
        AttributeList attributes;
        ReadIM7(path, &buffer, &attributes);
        DestroyBuffer(&buffer);
    }
    for (int page : {0, 1}) {
        Image2D img;
        img.loadLavVC7(path, page);
    }
    int w, h, frames;
    PIV::ImageFiles::LaVisionInfo(path, &w, &h, &frames);
    return 0;
}
