// The command line of kelvane-eval.
#pragma once

#include <string>
#include <vector>

class PIV_Parameters;

namespace eval_tool {

struct Options {
    std::string parFile;
    // Overrides of the parameter file; -1 leaves its value.
    int window = -1, step = -1, method = -1, passes = -1, deform = -1, fit = -1;
    int threads = 0;  // 0: all the machine has
    std::string mask;
    std::string output;  // one pair: the result file
    std::string first, second;
    // A series.
    bool series = false;
    std::string last;
    int increment = 1, separation = 1;
    std::string outputDir, stub = "series";
    std::vector<std::string> formats{".nc"};
    bool stats = false;
    bool velocity = false;
    bool quiet = false, verbose = false;
};

// 0 to run, 2 for a usage error (said in `error`), -1 when help or the
// version was printed.
int ParseOptions(int argc, char** argv, Options& options, std::string& error);

// The parameters of the run: defaults, the parameter file (a .par or a
// NetCDF data file), then the overrides. False with the reason in `error`.
bool ApplyParameters(const Options& options, PIV_Parameters& params, std::string& error);

extern const char* kUsageText;

}  // namespace eval_tool
