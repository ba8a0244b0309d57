// kelvane-eval --ensemble: one field from the correlation planes of a whole
// series, summed per node, instead of a field per pair.
#pragma once

#include <functional>
#include <string>

#include "eval_options.h"

class PIV_Parameters;

namespace eval_tool {

// Runs the series of the options as one ensemble and writes
// <stub>_avg.nc (the field) and <stub>_corr.nc (the summed planes) into the
// output folder; with --save-planes also <stub>_corr.tif and the files of
// the early passes. Nothing final is written unless the run completes;
// `stop` is asked between pairs (the tool's Ctrl+C by default). Returns
// the exit status, with the reason in `error`.
int RunEnsemble(const Options& options, PIV_Parameters& params, std::string& error,
                const std::function<bool()>& stop = {});

}  // namespace eval_tool
