// Windows bitmaps; the page picks the colour channel of 24-bit files.
#include "fuzz_input.h"
#include "image2d.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Quiet();
    const char* path = fuzz::WriteInput(data, size, ".bmp");
    Image2D img;
    img.loadBMP(path, 0);
    img.loadBMP(path, 2);
    return 0;
}
