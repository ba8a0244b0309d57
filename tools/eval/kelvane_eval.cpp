// kelvane-eval: evaluates image pairs without the window. One pair goes to
// the file named by -o; a series goes to a folder, a result per pair, and
// the statistics of the series at the end.
#include <csignal>
#include <cstdio>
#include <string>

#include "eval_options.h"
#include "eval_run.h"
#include "piv_data2d_stats.h"
#include "piv_fft_plans.h"
#include "piv_filelist.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "piv_util.h"
#include "tool_args.h"

namespace {

extern "C" void OnInterrupt(int) { eval_tool::RequestStop(); }

int Usage(const std::string& why) {
    std::fprintf(stderr, "kelvane-eval: %s\n(kelvane-eval --help tells more)\n", why.c_str());
    return tool::kUsage;
}

void Progress(const eval_tool::Options& o, const std::string& name,
              const eval_tool::PairResult& r) {
    if (o.quiet) return;
    std::fprintf(stderr, "%s: %d nodes, %d valid, %d replaced, %.2f s\n", name.c_str(), r.nodes,
                 r.valid, r.replaced, r.seconds);
}

int OnePair(const eval_tool::Options& o, eval_tool::Evaluator& evaluator) {
    std::string second = o.second;
    if (second.empty()) {
        const char* found = PIV::GetSecondImageName(o.first.c_str(), o.separation);
        if (!found || !*found)
            return Usage("no second frame can be named after " + o.first +
                         " (give SECOND explicitly)");
        second = found;
    }
    const eval_tool::PairResult r = evaluator.evaluate(o.first, second);
    if (r.exit != tool::kOk) {
        std::fprintf(stderr, "kelvane-eval: %s\n", r.message.c_str());
        return r.exit;
    }
    Progress(o, o.first, r);
    std::string error;
    if (!evaluator.save(o.output, error)) {
        std::fprintf(stderr, "kelvane-eval: %s\n", error.c_str());
        return tool::kFailed;
    }
    return tool::kOk;
}

// <dir>/<name> with one slash between.
std::string InDir(const std::string& dir, const std::string& name) {
    return dir.empty() || dir.back() == '/' ? dir + name : dir + "/" + name;
}

int Series(const eval_tool::Options& o, eval_tool::Evaluator& evaluator) {
    if (!PIV::CheckDirectoryExistence(o.outputDir.c_str()) &&
        !PIV::MakeDirectory(o.outputDir.c_str()))
        return Usage("cannot create the output folder " + o.outputDir);
    FileList list;
    if (!list.buildList(o.first.c_str(), o.last.c_str(), o.increment, true) || list.count() == 0)
        return Usage("no numbered files from " + o.first + " to " + o.last);
    PIV_Data2D_Stats stats;
    int failed = 0, done = 0;
    for (int i = 0; i < list.count() && !eval_tool::StopRequested(); i++) {
        const std::string first = list.file(i);
        const char* found = PIV::GetSecondImageName(first.c_str(), o.separation);
        if (!found || !*found) {
            std::fprintf(stderr, "kelvane-eval: no second frame can be named after %s\n",
                         first.c_str());
            failed++;
            continue;
        }
        const eval_tool::PairResult r = evaluator.evaluate(first, found);
        if (r.exit != tool::kOk) {
            std::fprintf(stderr, "kelvane-eval: %s\n", r.message.c_str());
            failed++;
            continue;
        }
        Progress(o, first, r);
        const std::string base = InDir(o.outputDir, PIV::GetBaseNameFromPath(first.c_str()));
        const char* kind = o.velocity ? "_vel" : "_piv";
        bool saved = true;
        for (const std::string& ext : o.formats) {
            const std::string path = ext == ".nc" ? base + ext : base + kind + ext;
            std::string error;
            if (!evaluator.save(path, error)) {
                std::fprintf(stderr, "kelvane-eval: %s\n", error.c_str());
                saved = false;
            }
        }
        failed += saved ? 0 : 1;
        done++;
        if (o.stats && !stats.increment(&evaluator.result(), 0, 0))
            std::fprintf(stderr, "kelvane-eval: %s left out of the statistics: %s\n",
                         first.c_str(), stats.error().getLastError());
    }
    if (eval_tool::StopRequested()) {
        std::fprintf(stderr, "kelvane-eval: interrupted after %d of %d pairs\n", done,
                     list.count());
        return tool::kFailed;
    }
    if (o.stats && done > 0) {
        OUTPUT_CFG out;
        out.OutputFormat = 3;
        if (!stats.update() || !stats.avgData()->save(InDir(o.outputDir, o.stub + "_avg.nc").c_str(), 0, out) ||
            !stats.rmsData()->save(InDir(o.outputDir, o.stub + "_rms.nc").c_str(), 0, out)) {
            std::fprintf(stderr, "kelvane-eval: statistics not written: %s\n",
                         stats.error().getLastError());
            failed++;
        }
    }
    if (!o.quiet)
        std::fprintf(stderr, "%d of %d pairs evaluated, %d failed\n", done, list.count(), failed);
    return failed ? tool::kFailed : tool::kOk;
}

}  // namespace

int main(int argc, char** argv) {
    eval_tool::Options o;
    std::string error;
    const int parsed = eval_tool::ParseOptions(argc, argv, o, error);
    if (parsed < 0) return tool::kOk;
    if (parsed != tool::kOk) return Usage(error);
    EnableWarnings(o.verbose);
    // The correlators are made with the evaluator: the thread count first.
    if (o.threads > 0) PIV::SetMaxThreads(o.threads);
    // Estimated plans only, so that any run gives the same field.
    PIV::SetMeasuredFFTPlans(false);
    PIV_Parameters params;
    if (!eval_tool::ApplyParameters(o, params, error)) {
        std::fprintf(stderr, "kelvane-eval: %s\n", error.c_str());
        return tool::kUsage;
    }
    eval_tool::Evaluator evaluator(o, params);
    if (!evaluator.prepare(error)) {
        std::fprintf(stderr, "kelvane-eval: %s\n", error.c_str());
        return tool::kUsage;
    }
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    return o.series ? Series(o, evaluator) : OnePair(o, evaluator);
}
