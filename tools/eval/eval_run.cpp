#include "eval_run.h"

#include <atomic>
#include <chrono>
#include <cstdio>

#include "piv_enums.h"
#include "piv_filename.h"
#include "piv_imagepair.h"
#include "piv_postprocess.h"
#include "tool_args.h"

namespace eval_tool {

namespace {

std::atomic<bool> g_stop{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

// The evaluator, stoppable between its windows' lists and passes.
class StoppableEval : public PIV_Eval2D {
public:
    explicit StoppableEval(PIV_Parameters* params) : PIV_Eval2D(nullptr, params) {}
    bool wasCancelled() override { return g_stop; }
};

}  // namespace

// The library's error text on one line: its detail ("... declares
// 8589934592 bytes of pixel data but holds 2") follows a newline there.
static std::string Reason(const PIVerror& e) {
    std::string why = e.getLastError();
    for (size_t at = why.find('\n'); at != std::string::npos; at = why.find('\n', at))
        why.replace(at, 1, " - ");
    return why;
}

void RequestStop() { g_stop = true; }
bool StopRequested() { return g_stop; }

Evaluator::Evaluator(const Options& options, PIV_Parameters& params)
    : m_options(options), m_params(params), m_eval(new StoppableEval(&params)) {
    m_eval->error().setErrorHandling(PIVerror::ERROR_QUIET);
}

bool Evaluator::prepare(std::string& error) {
    if (m_options.mask.empty()) return true;
    if (!m_mask.load(m_options.mask.c_str()) || m_mask.isNull()) {
        error = "cannot read mask " + m_options.mask + ": " + Reason(m_mask.error());
        return false;
    }
    m_haveMask = true;
    return true;
}

PairResult Evaluator::evaluate(const std::string& first, const std::string& second) {
    PairResult r;
    const auto start = std::chrono::steady_clock::now();
    for (const std::string* f : {&first, &second}) {
        if (!PIV::CheckFileExistence(f->c_str())) {
            r.exit = tool::kUsage;
            r.message = "cannot read " + *f + ": no such file";
            return r;
        }
    }
    PIV_ImagePair& pair = m_pair;
    pair.clear();
    pair.setImageCfg(m_params.imageCfg());
    pair.setFrameSeparation(m_options.separation);
    if (!pair.loadPair(first.c_str(), second.c_str()) || !pair.isPairLoaded()) {
        r.exit = tool::kUsage;
        // The frame that failed keeps the reason; the pair only knows it failed.
        std::string why = Reason(pair.error());
        for (const Image2D* frame : {static_cast<const Image2D*>(pair.imgA()),
                                     static_cast<const Image2D*>(pair.imgB())})
            if (why.empty()) why = Reason(frame->error());
        r.message = "cannot read the pair " + first + " / " + second + ": " +
                    (why.empty() ? std::string("unreadable image") : why);
        return r;
    }
    m_eval->setPivEvalCfg(m_params.pivEvalCfg());
    if (!m_eval->setPivImages(pair.imgA(), pair.imgB())) {
        r.exit = tool::kUsage;
        r.message = "cannot evaluate " + first + " / " + second + ": " + Reason(m_eval->error());
        return r;
    }
    if (m_haveMask) {
        if (m_mask.width() != pair.imgA()->width() || m_mask.height() != pair.imgA()->height()) {
            r.exit = tool::kUsage;
            char text[160];
            std::snprintf(text, sizeof(text), " is %dx%d px, the images %dx%d px",
                          int(m_mask.width()), int(m_mask.height()), pair.width(), pair.height());
            r.message = "mask " + m_options.mask + text;
            return r;
        }
        m_eval->setMaskImages(&m_mask, nullptr, true);
    }
    if (!m_eval->interrogateImage(false)) {
        r.exit = tool::kFailed;
        r.message = "evaluation of " + first + " failed: " + Reason(m_eval->error());
        return r;
    }
    PIV_Data2D& raw = *m_eval->data();
    const PIV::PostProcessResult post =
        PIV::PostProcessData(raw, m_result, m_params.postProcessCfg(), &m_params);
    if (!m_options.quiet && !post.warnings.empty())
        std::fprintf(stderr, "kelvane-eval: %s: %s", first.c_str(), post.warnings.c_str());
    if (!post.ok) {
        r.exit = tool::kFailed;
        r.message = "post-processing of " + first + " failed: " + post.reason;
        return r;
    }
    r.nodes = m_result.nodeCount();
    for (int k = 0; k < r.nodes; k++) {
        const int flag = m_result.data()[k].flag;
        if (flag & VECTOR_INTERPOLATED)
            r.replaced++;
        else if ((flag & VECTOR_ENABLED) && !(flag & VECTOR_OUTLIER))
            r.valid++;
    }
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return r;
}

bool Evaluator::save(const std::string& path, std::string& error) {
    OUTPUT_CFG out;
    out.StoreRawData = !m_options.velocity;
    out.StoreVelocity = m_options.velocity;
    const std::string ext = tool::Extension(path);
    bool ok;
    if (ext == ".txt") {
        m_result.setOutputCfg(out);
        ok = m_result.savePivChallengeData(path.c_str(), 0);
    } else {
        out.OutputFormat = ext == ".nc" ? 3 : ext == ".dat" ? 0 : 2;
        ok = m_result.save(path.c_str(), 0, out);
    }
    if (!ok) error = "cannot write " + path + ": " + Reason(m_result.error());
    return ok;
}

}  // namespace eval_tool
