// The command line of the OpenCL benchmarks: Google Benchmark's flags,
// then --device=opencl[:N] (the first device by default) or
// --list-devices.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "piv_opencl.h"

namespace bench {

// The device the OpenCL rows run on, as PIV::SetDevice takes it.
inline std::string& DeviceName() {
    static std::string name = "opencl";
    return name;
}

inline int RunOpenCLBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; i++) {
        const std::string arg = argv[i];
        if (arg == "--list-devices") {
            for (const std::string& line : PIV::ListDevices()) std::printf("%s\n", line.c_str());
            if (PIV::ListDevices().empty()) std::printf("no OpenCL device\n");
            return 0;
        }
        if (arg.compare(0, 9, "--device=") != 0) {
            std::fprintf(stderr, "%s: unknown argument %s (--device=opencl[:N], --list-devices)\n",
                         argv[0], argv[i]);
            return 2;
        }
        DeviceName() = arg.substr(9);
    }
    std::string why;
    if (!PIV::SetDevice(DeviceName(), &why)) std::fprintf(stderr, "%s\n", why.c_str());
    PIV::SetDevice("cpu");
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench
