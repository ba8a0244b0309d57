// Shards of one series, run apart (an array job of a cluster) and their
// partial statistics merged afterwards into those of the whole series.
#pragma once

#include <string>

#include "eval_options.h"

namespace eval_tool {

// Block k of n contiguous blocks of `pairs`, the first pairs % n of them one
// pair longer: pairs [begin, end).
struct ShardBlock {
    int begin = 0, end = 0;
};
ShardBlock BlockOf(int pairs, int k, int n);

// "<stub>_shard<K>of<N>.nc".
std::string PartialName(const std::string& stub, int k, int n);

// Reads the partials of options.outputDir in block order, one at a time, and
// writes <stub>_avg.nc and <stub>_rms.nc. Every partial is checked before
// anything is written: a missing, doubled or foreign block, a damaged file or
// another grid leaves the folder as it was. The exit status, with the reason
// in `error` when not 0.
int MergeStats(const Options& options, std::string& error);

}  // namespace eval_tool
