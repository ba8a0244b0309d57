// kelvane-eval: evaluates image pairs without the window. One pair goes to
// the file named by -o; a series goes to a folder, a result per pair, and
// the statistics of the series at the end.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "eval_ensemble.h"
#include "eval_input.h"
#include "eval_options.h"
#include "eval_ptv.h"
#include "eval_run.h"
#include "eval_shards.h"
#include "piv_data2d_stats.h"
#include "piv_fft_plans.h"
#include "piv_filelist.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "piv_opencl.h"
#include "piv_params.h"
#include "piv_series_output.h"
#include "piv_util.h"
#include "tool_args.h"

namespace {

extern "C" void OnInterrupt(int) { eval_tool::RequestStop(); }

// The library's own reports are for --verbose: without it each failure is
// told once, by the tool, with the file it concerns.
extern "C" void DropLibraryMessage(const char*) {}

int Usage(const std::string& why) {
    std::fprintf(stderr, "kelvane-eval: %s\n(kelvane-eval --help tells more)\n", why.c_str());
    return tool::kUsage;
}

std::string OrElse(const std::string& text, const char* fallback) {
    return text.empty() ? fallback : text;
}

int Fail(int exit, const std::string& why) {
    std::fprintf(stderr, "kelvane-eval: %s\n", why.c_str());
    return exit;
}

std::string Seconds(double s) {
    char text[32];
    if (s < 100.0)
        std::snprintf(text, sizeof(text), "%.2f s", s);
    else if (s < 6000.0)
        std::snprintf(text, sizeof(text), "%d min %02d s", int(s) / 60, int(s) % 60);
    else
        std::snprintf(text, sizeof(text), "%d h %02d min", int(s) / 3600, int(s) / 60 % 60);
    return text;
}

// "[k/N] run0001a.tif: 3969 nodes, 3950 valid, 21 outliers, 19 replaced,
// 0.41 s, ETA 12.30 s"; without the counter and the ETA for one pair.
void Progress(const eval_tool::Options& o, const std::string& prefix, const std::string& label,
              const eval_tool::PairResult& r, const std::string& eta) {
    if (o.quiet) return;
    std::fprintf(stderr, "%s%s: %d nodes, %d valid, %d outliers, %d replaced, %s%s\n",
                 prefix.c_str(), label.c_str(), r.nodes, r.valid, r.outliers, r.replaced,
                 Seconds(r.seconds).c_str(), eta.c_str());
}

int OnePair(const eval_tool::Options& o, eval_tool::Evaluator& evaluator) {
    eval_tool::FrameRef a, b;
    std::string error;
    if (!eval_tool::ResolvePair(o, o.first, o.second, a, b, error))
        return Fail(tool::kUsage, error);
    const eval_tool::PairResult r = evaluator.evaluate(a, b);
    if (r.exit != tool::kOk) return Fail(r.exit, r.message);
    Progress(o, "", eval_tool::PairLabel(a, b), r, "");
    const std::string ext = tool::Extension(o.output);
    if (!evaluator.save(o.output, ext.substr(1), error)) return Fail(tool::kFailed, error);
    if (!o.cf.empty() && !evaluator.save(o.cf, "cf", error)) return Fail(tool::kFailed, error);
    std::string tracked;
    if (!o.ptv.empty() && !eval_tool::TrackParticles(evaluator, o.ptv, tracked, error))
        return Fail(tool::kFailed, error);
    if (!o.ptv.empty() && !o.quiet)
        std::fprintf(stderr, "%s: %s\n", o.ptv.c_str(), tracked.c_str());
    return tool::kOk;
}

// The file of one format for the result of a pair.
std::string ResultName(const eval_tool::Options& o, const std::string& base,
                       const std::string& format) {
    return PIV::SeriesResultName(base, format, o.velocity);
}

// A shard's pair is done when all its result files are there; with the
// statistics its field is read back from the .nc file. False when the pair
// must be evaluated (again).
bool AlreadyDone(const eval_tool::Options& o, const std::string& base, PIV_Data2D_Stats& stats,
                 const std::string& first) {
    for (const std::string& format : o.formats)
        if (!PIV::CheckFileExistence(ResultName(o, base, format).c_str())) return false;
    if (!o.stats) return true;
    PIV_Data2D field;
    field.error().setErrorHandling(PIVerror::ERROR_QUIET);
    if (!field.load(ResultName(o, base, "nc").c_str())) {
        Fail(0, ResultName(o, base, "nc") +
                    " is evaluated again: " + eval_tool::Reason(field.error()));
        return false;
    }
    if (!stats.increment(&field, 0, 0)) {
        Fail(0,
             first + " left out of the statistics: " +
                 OrElse(eval_tool::Reason(stats.error()), "it does not fit the fields before it"));
    }
    return true;
}

int Series(const eval_tool::Options& o, eval_tool::Evaluator& evaluator) {
    FileList list;
    // A shard lists by number: a frame missing on one node must not move
    // the blocks of the others; its pair fails as any other.
    const bool shard = o.shardCount > 0;
    if (!list.buildList(o.first.c_str(), o.last.c_str(), o.increment, !shard) || list.count() == 0)
        return Fail(tool::kUsage, "no series from " + o.first + " to " + o.last +
                                      ": no numbered files between them");
    const eval_tool::ShardBlock block =
        shard ? eval_tool::BlockOf(list.count(), o.shardIndex, o.shardCount)
              : eval_tool::ShardBlock{0, list.count()};
    const int count = block.end - block.begin;
    PIV_Data2D_Stats stats;
    int failed = 0, written = 0, done = 0, k = 0;
    const auto start = std::chrono::steady_clock::now();
    for (; k < count && !eval_tool::StopRequested(); k++) {
        const std::string first = list.file(block.begin + k);
        const std::string base =
            PIV::SeriesPath(o.outputDir, PIV::GetBaseNameFromPath(first.c_str()));
        if (shard && AlreadyDone(o, base, stats, first)) {
            done++;
            continue;
        }
        std::string error;
        eval_tool::FrameRef a, b;
        if (!eval_tool::ResolvePair(o, first, "", a, b, error)) {
            failed++;
            Fail(0, error);
            continue;
        }
        const eval_tool::PairResult r = evaluator.evaluate(a, b);
        if (r.exit != tool::kOk) {
            failed++;
            Fail(0, r.message);
            continue;
        }
        bool saved = true;
        for (const std::string& format : o.formats)
            if (!evaluator.save(ResultName(o, base, format), format, error)) {
                Fail(0, error);
                saved = false;
            }
        if (!saved) {
            failed++;
            continue;
        }
        written++;
        if (o.stats && !stats.increment(&evaluator.result(), 0, 0))
            Fail(0, first + " left out of the statistics: " +
                        OrElse(eval_tool::Reason(stats.error()),
                               "it does not fit the fields before it"));
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const std::string eta = ", ETA " + Seconds(elapsed / (k + 1) * (count - k - 1));
        Progress(o, "[" + std::to_string(k + 1) + "/" + std::to_string(count) + "] ",
                 eval_tool::PairLabel(a, b), r, eta);
    }
    bool statsFailed = false;
    if (o.stats && shard) {
        // A stopped shard leaves no partial: its rerun finishes the block.
        STATS_SHARD s;
        s.index = o.shardIndex;
        s.count = o.shardCount;
        if (count > 0) {
            PIV::CopyText(s.firstPair, list.file(block.begin));
            PIV::CopyText(s.lastPair, list.file(block.end - 1));
        }
        const std::string partial = PIV::SeriesPath(
            o.outputDir, eval_tool::PartialName(o.stub, o.shardIndex, o.shardCount));
        if (!eval_tool::StopRequested() && !stats.savePartial(partial.c_str(), s)) {
            Fail(0, "partial statistics not written: " +
                        OrElse(eval_tool::Reason(stats.error()), partial.c_str()));
            statsFailed = true;
        }
    } else if (o.stats && written > 0) {
        std::string why;
        if (!PIV::SaveSeriesStats(stats, PIV::SeriesMeanName(o.outputDir, o.stub),
                                  PIV::SeriesRmsName(o.outputDir, o.stub), why)) {
            Fail(0, "statistics not written: " + why);
            statsFailed = true;
        }
    }
    if (eval_tool::StopRequested())
        return Fail(tool::kFailed, "stopped after " + std::to_string(k) + " of " +
                                       std::to_string(count) + " pairs: interrupted");
    if (!o.quiet) {
        if (done > 0) std::fprintf(stderr, "%d pairs were done before and kept\n", done);
        std::fprintf(stderr, "%d of %d pairs evaluated and written, %d failed\n", written, count,
                     failed);
    }
    return failed || statsFailed ? tool::kFailed : tool::kOk;
}

// Results must have a place before the first pair is evaluated.
int CheckOutputs(const eval_tool::Options& o) {
    if (o.mergeStats) return tool::kOk;
    if (o.series) {
        if (!PIV::CheckDirectoryExistence(o.outputDir.c_str()) &&
            !PIV::MakeDirectory(o.outputDir.c_str()))
            return Fail(tool::kUsage, "cannot create the output folder " + o.outputDir + ": " +
                                          std::strerror(errno));
        const std::string why = eval_tool::UnwritableFolder(o.outputDir);
        return why.empty() ? tool::kOk : Fail(tool::kUsage, "cannot write results: " + why);
    }
    for (const std::string* path : {&o.output, &o.cf, &o.ptv}) {
        if (path->empty()) continue;
        const std::string why = eval_tool::UnwritablePath(*path);
        if (!why.empty()) return Fail(tool::kUsage, "cannot write " + *path + ": " + why);
    }
    return tool::kOk;
}

}  // namespace

int main(int argc, char** argv) {
    PIV::KeepFreedFramesInHeap();
    eval_tool::Options o;
    std::string error;
    const int parsed = eval_tool::ParseOptions(argc, argv, o, error);
    if (parsed < 0) return tool::kOk;
    if (parsed != tool::kOk) return Usage(error);
    EnableWarnings(o.verbose);
    if (!o.verbose) SetMessageHook(DropLibraryMessage);
    // The correlators are made with the evaluator: the thread count first.
    if (o.threads > 0) PIV::SetMaxThreads(o.threads);
    if (!o.device.empty()) {
        std::string why, devices = "cpu";
        if (!PIV::SetDevice(o.device, &why)) {
            for (const std::string& line : PIV::ListDevices()) devices += ", " + line;
            return Usage("--device " + o.device + ": " + why + "; the devices: " + devices);
        }
    }
    // Estimated plans only, so that any run gives the same field.
    PIV::SetMeasuredFFTPlans(false);
    if (o.mergeStats) {
        const int merged = eval_tool::MergeStats(o, error);
        return merged == tool::kOk ? merged : Fail(merged, error);
    }
    PIV_Parameters params;
    eval_tool::Calibration calibration;
    if (!eval_tool::ApplyParameters(o, params, calibration, error))
        return Fail(tool::kUsage, error);
    if (const int bad = CheckOutputs(o)) return bad;
    if (o.ensemble) {
        std::signal(SIGINT, OnInterrupt);
        std::signal(SIGTERM, OnInterrupt);
        const int ran = eval_tool::RunEnsemble(o, params, error);
        return ran == tool::kOk ? ran : Fail(ran, error);
    }
    eval_tool::Evaluator evaluator(o, params, calibration);
    if (!evaluator.prepare(error)) return Fail(tool::kUsage, error);
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    const int ran = o.series ? Series(o, evaluator) : OnePair(o, evaluator);
    // The user asked for the device: a fall back to the CPU is told even
    // when the library's own lines are not.
    if (PIV::DeviceIsOpenCL() != (!o.device.empty() && o.device != "cpu"))
        std::fprintf(stderr,
                     "kelvane-eval: correlation on %s failed and the run went on on the CPU "
                     "(--verbose tells why)\n",
                     o.device.c_str());
    return ran;
}
