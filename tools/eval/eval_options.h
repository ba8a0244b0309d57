// The command line of kelvane-eval.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "piv_types.h"

class PIV_Parameters;

namespace eval_tool {

// Validation switches; an unset one leaves what the defaults or the
// parameter file say.
struct ValidationSwitches {
    bool off = false;
    bool noReplace = false;
    std::optional<double> median, noiseFloor, minSnr, minPeakRatio, maxDisplacement;
    std::optional<int> passes;
    bool any() const {
        return noReplace || median || noiseFloor || minSnr || minPeakRatio || maxDisplacement ||
               passes;
    }
};

struct CalibrationSwitches {
    std::optional<double> scale;  // pixels per mm
    std::optional<double> dt;     // microseconds
    std::optional<int> originX, originY;
};

struct Options {
    std::string parFile;
    // Overrides of the parameter file; -1 leaves its value.
    int window = -1, step = -1, method = -1, passes = -1, deform = -1, fit = -1;
    int correlation = -1, scanRange = -1;  // CorrelationMode 0..4, ScanRange
    int threads = 0;  // 0: all the machine has
    std::string device;  // where correlation runs: cpu, opencl, opencl:N; empty: the CPU
    std::string mask;
    std::string output;  // one pair: the result file
    std::string cf;      // one pair: the CF file beside it
    std::string ptv;     // one pair: the particle tracks
    std::string first, second;
    // Frames of multi-frame files, counted from 1; 0 when not chosen.
    int frameA = 0, frameB = 0;
    // A series.
    bool series = false;
    std::string last;
    int increment = 1, separation = 1;
    bool separationGiven = false;
    std::string outputDir, stub = "series";
    std::vector<std::string> formats{"nc"};
    bool stats = false;
    // One ensemble correlation over the series instead of a field per pair.
    bool ensemble = false;
    int ensembleMode = 0, ensemblePasses = 2, stride = 10;
    bool varyStride = false, savePlanes = false;
    // A shard: block shardIndex of shardCount of the series (0 when not one).
    int shardIndex = 0, shardCount = 0;
    // Merging the partial statistics of the shards in outputDir.
    bool mergeStats = false;
    bool velocity = false;
    bool quiet = false, verbose = false;
    ValidationSwitches validation;
    CalibrationSwitches calibration;
    std::string commandLine;  // as typed, for the files' history
};

// 0 to run, 2 for a usage error (said in `error`), -1 when help or the
// version was printed.
int ParseOptions(int argc, char** argv, Options& options, std::string& error);

// What a parameter file says of the calibration: a scale and a time step
// count as given only when the file names them.
struct Calibration {
    bool scaleGiven = false, dtGiven = false, originGiven = false;
    bool complete() const { return scaleGiven && dtGiven; }
};

// The parameters of the run: the tool's defaults (validation on), the
// parameter file (a .par or a NetCDF data file) as it stands, then the
// switches. False with the reason in `error`; `calibration` tells what the
// file and the switches gave.
bool ApplyParameters(const Options& options, PIV_Parameters& params, Calibration& calibration,
                     std::string& error);

// The evaluation and validation switches of `options` over `params`: the
// last step of ApplyParameters.
void ApplySwitches(const Options& options, PIV_Parameters& params);

// The validation the tool runs when nothing else is said: normalized median
// 2.0 over a noise floor of 0.1 px, other peaks tried, outliers replaced.
OUTLIER_CFG DefaultValidation();

extern const char* kUsageText;

}  // namespace eval_tool
