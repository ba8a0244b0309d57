// ASCII parameter files: the line reader with every typed lookup the
// parameter records make, and a write back of what was read.
#include "asciiparfile.h"
#include "fuzz_input.h"
#include "piv_params.h"
#include "piv_params_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Quiet();
    const char* path = fuzz::WriteInput(data, size, ".par");
    PIV_PARAMETERS params;
    IMAGE_CFG image;
    POSTPROCESS_CFG post;
    PIV::ReadParametersASCII(path, &params, &image, &post, 0);
    PIV::ReadParametersASCII(path, &params, &image, &post, 1);
    ASCIIParFile file(path, ASCIIParFile::READ);
    if (std::FILE* sink = std::fopen("/dev/null", "w")) {
        file.dumpList(sink);
        std::fclose(sink);
    }
    return 0;
}
