// PGM and PBM files, plain and binary, through the reader itself and
// through the format detection of Image2D::load.
#include "fuzz_input.h"
#include "image2d.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Quiet();
    const char* path = fuzz::WriteInput(data, size, ".pgm");
    Image2D img;
    img.loadPGM(path);
    Image2D detected;
    detected.load(path);
    return 0;
}
