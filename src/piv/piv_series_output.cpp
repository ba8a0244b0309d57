#include "piv_series_output.h"

#include "piv_data2d_stats.h"

std::string PIV::SeriesPath(const std::string& dir, const std::string& name) {
    if (dir.empty()) return name;
    return dir.back() == '/' ? dir + name : dir + "/" + name;
}

std::string PIV::SeriesResultName(const std::string& base, const std::string& format,
                                  bool velocity) {
    if (format == "nc") return base + ".nc";
    if (format == "cf") return base + "_cf.nc";
    return base + (velocity ? "_vel." : "_piv.") + format;
}

std::string PIV::SeriesMeanName(const std::string& dir, const std::string& stub) {
    return SeriesPath(dir, stub + "_avg.nc");
}

std::string PIV::SeriesRmsName(const std::string& dir, const std::string& stub) {
    return SeriesPath(dir, stub + "_rms.nc");
}

PIV::ENSEMBLE_FILES PIV::EnsembleFiles(const std::string& dir, const std::string& stub) {
    return {SeriesMeanName(dir, stub), SeriesPath(dir, stub + "_corr.nc"),
            SeriesPath(dir, stub + "_corr.tif"), SeriesPath(dir, stub + "_autocorr.tif")};
}

std::string PIV::SeriesReynoldsName(const std::string& dir, const std::string& stub) {
    return SeriesPath(dir, stub + "_reyn.dat");
}

bool PIV::SaveSeriesStats(PIV_Data2D_Stats& stats, const std::string& meanPath,
                          const std::string& rmsPath, std::string& error) {
    OUTPUT_CFG out;
    out.OutputFormat = 3;
    const bool ok = stats.update() && stats.avgData()->save(meanPath.c_str(), 0, out) &&
                    stats.rmsData()->save(rmsPath.c_str(), 0, out);
    if (ok) return true;
    // The field that failed to save holds the reason, else the statistics.
    error = stats.getLastError();
    for (PIV_Data2D* field : {stats.avgData(), stats.rmsData()})
        if (field && *field->getLastError()) error = field->getLastError();
    for (size_t at = error.find('\n'); at != std::string::npos; at = error.find('\n', at))
        error.replace(at, 1, " - ");
    if (error.empty()) error = "no field to average";
    return false;
}
