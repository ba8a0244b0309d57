// Headerless raw files: the caller gives the geometry, so the first eight
// bytes of an input choose it (width, height, depth, offset) and the rest
// is the file.
#include "fuzz_input.h"
#include "image2d.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Quiet();
    if (size < 8) return 0;
    const int width = data[0] | (data[1] << 8);
    const int height = data[2] | (data[3] << 8);
    static const int kDepths[] = {8, 16, 32, 12, 1, 0};
    const int depth = kDepths[data[4] % 6];
    const long offset = static_cast<long>(data[5] | (data[6] << 8)) - (data[7] & 0x80 ? 1 : 0);
    const char* path = fuzz::WriteInput(data + 8, size - 8, ".raw");
    Image2D img;
    img.loadRaw(path, width, height, depth, offset);
    return 0;
}
