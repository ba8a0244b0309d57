#include "eval_ensemble.h"

#include "eval_input.h"
#include "eval_run.h"
#include "piv_corr2d_average.h"
#include "piv_data2d.h"
#include "piv_filelist.h"
#include "piv_params.h"
#include "piv_series_output.h"
#include "tool_args.h"

namespace eval_tool {

namespace {

// The run's hooks: the stop request ends it between pairs, and its status
// lines are for --verbose.
class ToolEnsemble : public PIV_Corr2D_Average {
public:
    ToolEnsemble(const std::function<bool()>& stop, bool verbose)
        : m_stop(stop), m_verbose(verbose) {}
    bool wasCancelled() override { return m_stop ? m_stop() : StopRequested(); }
    void showStatusMessage(const char* text) override {
        if (m_verbose && text) std::fprintf(stderr, "%s\n", text);
    }

private:
    std::function<bool()> m_stop;
    bool m_verbose;
};

}  // namespace

int RunEnsemble(const Options& o, PIV_Parameters& params, std::string& error,
                const std::function<bool()>& stop) {
    FileList files;
    if (!files.buildList(o.first.c_str(), o.last.c_str(), o.increment, true) ||
        files.count() == 0) {
        error = "no series from " + o.first + " to " + o.last + ": no numbered files between them";
        return tool::kUsage;
    }
    FilePairList pairs;
    for (int i = 0; i < files.count(); i++) {
        FrameRef a, b;
        if (!ResolvePair(o, files.file(i), "", a, b, error)) return tool::kUsage;
        if (a.frame || b.frame) {
            error = "--ensemble takes pairs of separate files; " + a.label() + " holds both frames";
            return tool::kUsage;
        }
        pairs.append(FILE_PAIR(a.path.c_str(), b.path.c_str()));
    }
    ToolEnsemble avg(stop, o.verbose);
    avg.setPivParameters(params.pivParameters());
    avg.setPostProcessCfg(params.postProcessCfg());
    CORR_AVERAGE_PARAMS p;
    p.mode = o.ensembleMode;
    p.passCount = o.ensemblePasses;
    p.stride = o.stride;
    p.varyStride = o.varyStride ? 1 : 0;
    p.peakFitMethod = params.pivEvalCfg().Type;
    p.saveIntermediate = o.savePlanes;
    PIV::CopyText(p.workDir, o.outputDir.c_str());
    PIV::CopyText(p.workFile, o.stub.c_str());
    avg.setEnsembleCorrParams(p);
    if (!o.mask.empty() && !avg.setMaskImage(o.mask.c_str(), true)) {
        error = "mask " + o.mask + ": " + Reason(avg.error());
        return tool::kUsage;
    }
    if (!o.quiet)
        std::fprintf(stderr, "ensemble correlation of %d pairs, %d passes\n", pairs.count(),
                     int(PIV::BuildEnsembleCorrSteps(p, params.pivEvalCfg()).size()));
    if (!avg.processImageSeries(&pairs)) {
        const bool stopped = stop ? stop() : StopRequested();
        error =
            "ensemble not written: " + (stopped ? std::string("interrupted") : Reason(avg.error()));
        return tool::kFailed;
    }
    OUTPUT_CFG out;
    out.OutputFormat = 3;
    const PIV::ENSEMBLE_FILES names = PIV::EnsembleFiles(o.outputDir, o.stub);
    const std::string& field = names.field;
    const std::string& planes = names.planes;
    if (!avg.pivData()->save(field.c_str(), 0, out)) {
        error = "writing " + field + " failed: " + Reason(avg.pivData()->error());
        return tool::kFailed;
    }
    if (!avg.saveCorrelationPlanes(planes.c_str())) {
        error = "writing " + planes + " failed: " + Reason(avg.error());
        return tool::kFailed;
    }
    if (o.savePlanes) {
        Image2D image;
        const std::string& tif = names.planesImage;
        if (!avg.createImage(&image, false, true) || !image.save(tif.c_str())) {
            error = "writing " + tif + " failed: " + Reason(avg.error());
            return tool::kFailed;
        }
    }
    if (!o.quiet)
        std::fprintf(stderr, "%d pairs in %.2f s: %s, %s\n", avg.imagesProcessed(),
                     avg.totalProcessingTime(), field.c_str(), planes.c_str());
    return tool::kOk;
}

}  // namespace eval_tool
