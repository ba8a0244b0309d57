#include "eval_shards.h"

#include <dirent.h>

#include <algorithm>
#include <map>
#include <memory>

#include "eval_run.h"
#include "piv_data2d_stats.h"
#include "piv_series_output.h"
#include "tool_args.h"

namespace eval_tool {

ShardBlock BlockOf(int pairs, int k, int n) {
    const int size = pairs / n, longer = pairs % n;
    ShardBlock b;
    b.begin = k * size + std::min(k, longer);
    b.end = b.begin + size + (k < longer ? 1 : 0);
    return b;
}

std::string PartialName(const std::string& stub, int k, int n) {
    return stub + "_shard" + std::to_string(k) + "of" + std::to_string(n) + ".nc";
}

namespace {

// K and N of "<stub>_shard<K>of<N>.nc"; false for any other name.
bool ParsePartialName(const std::string& stub, const std::string& name, int& k, int& n) {
    const std::string head = stub + "_shard", tail = ".nc";
    if (name.size() <= head.size() + tail.size() || name.compare(0, head.size(), head) != 0 ||
        name.compare(name.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    const std::string middle = name.substr(head.size(), name.size() - head.size() - tail.size());
    const size_t of = middle.find("of");
    return of != std::string::npos && tool::ParseInt(middle.substr(0, of).c_str(), 0, 999999, &k) &&
           tool::ParseInt(middle.substr(of + 2).c_str(), 1, 1000000, &n);
}

}  // namespace

int MergeStats(const Options& o, std::string& error) {
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(o.outputDir.c_str()), closedir);
    if (!dir) return error = "cannot read the folder " + o.outputDir, tool::kUsage;
    // Block number to file name; the count of blocks from the first name.
    std::map<int, std::string> partials;
    int count = 0;
    std::string countFrom;
    while (const dirent* e = readdir(dir.get())) {
        int k = 0, n = 0;
        const std::string name = e->d_name;
        if (!ParsePartialName(o.stub, name, k, n)) continue;
        if (count == 0) count = n, countFrom = name;
        if (n != count)
            return error =
                       "partials of different shard counts: " + PIV::SeriesPath(o.outputDir, name) +
                       " is one of " + std::to_string(n) + ", " + countFrom + " one of " +
                       std::to_string(count),
                   tool::kUsage;
        if (k >= n)
            return error = "partial " + PIV::SeriesPath(o.outputDir, name) + ": block " +
                           std::to_string(k) + " of " + std::to_string(n) + " does not exist",
                   tool::kUsage;
        const auto [at, added] = partials.emplace(k, name);
        if (!added)
            return error = "block " + std::to_string(k) +
                           " twice: " + PIV::SeriesPath(o.outputDir, at->second) + " and " +
                           PIV::SeriesPath(o.outputDir, name),
                   tool::kUsage;
    }
    if (partials.empty())
        return error = "no partial statistics " + o.stub + "_shard*of*.nc in " + o.outputDir,
               tool::kUsage;
    for (int k = 0; k < count; k++)
        if (!partials.count(k))
            return error = "block " + std::to_string(k) + " of " + std::to_string(count) +
                           " is missing: no " +
                           PIV::SeriesPath(o.outputDir, PartialName(o.stub, k, count)),
                   tool::kUsage;
    PIV_Data2D_Stats total, part;
    total.error().setErrorHandling(PIVerror::ERROR_QUIET);
    part.error().setErrorHandling(PIVerror::ERROR_QUIET);
    for (const auto& [k, name] : partials) {
        const std::string path = PIV::SeriesPath(o.outputDir, name);
        STATS_SHARD shard;
        if (!part.loadPartial(path.c_str(), shard))
            return error = "cannot read partial " + path + ": " + Reason(part.error()),
                   tool::kUsage;
        if (shard.index != k || shard.count != count)
            return error = "partial " + path + " holds block " + std::to_string(shard.index) +
                           " of " + std::to_string(shard.count) + ", not the one of its name",
                   tool::kUsage;
        if (!total.merge(part))
            return error = "partial " + path +
                           " does not fit the ones before it: " + Reason(total.error()),
                   tool::kUsage;
    }
    if (total.dataSetCount() == 0)
        return error = "no statistics: the " + std::to_string(count) + " partials hold no field",
               tool::kFailed;
    std::string why;
    if (!PIV::SaveSeriesStats(total, PIV::SeriesMeanName(o.outputDir, o.stub),
                              PIV::SeriesRmsName(o.outputDir, o.stub), why))
        return error = "statistics not written: " + why, tool::kFailed;
    return tool::kOk;
}

}  // namespace eval_tool
