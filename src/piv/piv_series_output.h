// The names a series of evaluations writes under, and its mean and rms
// fields: one rule for the batch of the window and for kelvane-eval --series,
// so that a folder written by either reads the same.
#pragma once

#include <string>

#include "piv_types.h"

class PIV_Data2D_Stats;

namespace PIV {

// `name` inside `dir`; an empty `dir` leaves `name` as it is.
std::string SeriesPath(const std::string& dir, const std::string& name);

// The result of one pair under `base` (directory and base name) in one
// format: "nc" NetCDF, "cf" CF NetCDF, else "_vel." or "_piv." and the format.
std::string SeriesResultName(const std::string& base, const std::string& format, bool velocity);

// The statistics files of a series: `stub` + "_avg.nc" / "_rms.nc" /
// "_reyn.dat" inside `dir`.
std::string SeriesMeanName(const std::string& dir, const std::string& stub);
std::string SeriesRmsName(const std::string& dir, const std::string& stub);
std::string SeriesReynoldsName(const std::string& dir, const std::string& stub);

// The files of an ensemble run inside `dir`: `stub` + "_avg.nc" (the mean
// field), "_corr.nc" (the averaged planes), "_corr.tif" (their image) and
// "_autocorr.tif" (the image of the autocorrelation planes).
struct ENSEMBLE_FILES {
    std::string field, planes, planesImage, autoPlanesImage;
};
ENSEMBLE_FILES EnsembleFiles(const std::string& dir, const std::string& stub);

// Updates the sums and writes the mean and rms fields in NetCDF, each beside
// its target and renamed. False with the reason in `error` (the statistics'
// own text, or "no field to average").
bool SaveSeriesStats(PIV_Data2D_Stats& stats, const std::string& meanPath,
                     const std::string& rmsPath, std::string& error);

}  // namespace PIV
