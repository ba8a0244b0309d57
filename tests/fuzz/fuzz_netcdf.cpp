// NetCDF data and parameter files: the vector field loader, the parameter
// reader and the file summary, all on the same input.
#include "fuzz_input.h"
#include "piv_data2d.h"
#include "piv_ncfile.h"
#include "piv_params.h"
#include "piv_params_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Quiet();
    const char* path = fuzz::WriteInput(data, size, ".nc");
    {
        PIV_Data2D field;
        field.load(path);
    }
    PIV_Parameters params;
    params.read(path, 0);
    PIV::IsParameterFile(path);
    PIV::FILE_INFO info;
    PIV::GetFileInformation(path, info);
    return 0;
}
