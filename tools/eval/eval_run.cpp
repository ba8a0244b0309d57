#include "eval_run.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

#include "eval_cf.h"
#include "eval_validation.h"
#include "image_format.h"
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
    StoppableEval(PIV_Parameters* params, const std::function<bool()>& check)
        : PIV_Eval2D(nullptr, params), m_check(check) {}
    bool wasCancelled() override { return g_stop || (m_check && m_check()); }

private:
    const std::function<bool()>& m_check;
};

}  // namespace

std::string Reason(const PIVerror& e) {
    std::string why = e.getLastError();
    for (size_t at = why.find('\n'); at != std::string::npos; at = why.find('\n', at))
        why.replace(at, 1, " - ");
    return why;
}

bool KeptNode(int flag) {
    return (flag & VECTOR_ENABLED) &&
           !(flag & (VECTOR_INTERPOLATED | VECTOR_LOWER_PEAK | VECTOR_OUTLIER));
}

void RequestStop() { g_stop = true; }
bool StopRequested() { return g_stop; }

Evaluator::Evaluator(const Options& options, PIV_Parameters& params, const Calibration& calibration)
    : m_options(options),
      m_params(params),
      m_calibration(calibration),
      m_eval(new StoppableEval(&params, m_stopCheck)) {
    m_eval->error().setErrorHandling(PIVerror::ERROR_QUIET);
}

bool Evaluator::prepare(std::string& error) {
    if (m_options.mask.empty()) return true;
    const std::string why = UnreadableImage(m_options.mask);
    if (!why.empty() || !m_mask.load(m_options.mask.c_str()) || m_mask.isNull()) {
        error = "cannot read mask " + m_options.mask + ": " +
                (why.empty() ? Reason(m_mask.error()) : why);
        return false;
    }
    m_haveMask = true;
    return true;
}

namespace {

std::string Size(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height) + " px";
}

// A frame of a multi-frame file on its own: pages of a TIFF count from 0,
// the halves of a double image from 1.
bool LoadFrame(Image2D& image, const FrameRef& f) {
    const bool tiff = PIV::GetFileFormat(f.path.c_str()) == PIV::FORMAT_TIFF;
    return image.load(f.path.c_str(), f.frame == 0 ? 0 : tiff ? f.frame - 1 : f.frame);
}

// Only asked after a failure: a float frame of NaN or infinities.
bool HoldsNonFinite(const Image2D& image) {
    if (image.type() != IMAGE_FLOAT) return false;
    std::vector<float> row(image.width());
    for (uint64_t y = 0; y < image.height(); y++) {
        image.getRow(row.data(), int(y));
        for (float v : row)
            if (!std::isfinite(v)) return true;
    }
    return false;
}

}  // namespace

bool Evaluator::load(const FrameRef& a, const FrameRef& b, PairResult& r) {
    PIV_ImagePair& pair = m_pair;
    pair.clear();
    pair.setImageCfg(m_params.imageCfg());
    pair.setPCOMode(false);
    pair.setFrameSeparation(m_options.separation);
    const std::string what = "cannot read the pair " + PairLabel(a, b) + ": ";
    r.exit = tool::kUsage;
    bool ok;
    if (a.frame == 0 && b.frame == 0) {
        ok = pair.loadPair(a.path.c_str(), b.path.c_str());
    } else if (a.path == b.path && a.frame == 1 && b.frame == 2) {
        // The frames of one file load as a double image, companions and
        // pre-processing included.
        pair.setPCOMode(true);
        ok = pair.loadPair(a.path.c_str(), "");
    } else {
        if (pair.requiresImagePreProcessing()) {
            r.message = what +
                        "the parameter file's image pre-processing needs frames 1,2 of "
                        "one file or two files of one frame each";
            return false;
        }
        Image2D fa, fb;
        ok = LoadFrame(fa, a) && LoadFrame(fb, b) && pair.setImages(fa, fb);
        if (!ok) {
            r.message = what + Reason(fa.isNull() ? fa.error() : fb.error());
            return false;
        }
    }
    if (!ok || !pair.isPairLoaded()) {
        // The frame that failed keeps the reason; the pair only knows it failed.
        std::string why = Reason(pair.error());
        for (const Image2D* frame : {static_cast<const Image2D*>(pair.imgA()),
                                     static_cast<const Image2D*>(pair.imgB())})
            if (why.empty()) why = Reason(frame->error());
        r.message = what + (why.empty() ? std::string("unreadable image") : why);
        return false;
    }
    if (pair.sameFrameTwice()) {
        r.message = what + "both are the same frame, which gives a field of zeros";
        return false;
    }
    if (!pair.isSameSize()) {
        r.message = what + "the frames differ in size (" +
                    Size(int(pair.imgA()->width()), int(pair.imgA()->height())) + " and " +
                    Size(int(pair.imgB()->width()), int(pair.imgB()->height())) + ")";
        return false;
    }
    r.exit = tool::kOk;
    return true;
}

PairResult Evaluator::evaluate(const FrameRef& a, const FrameRef& b) {
    PairResult r;
    const auto start = std::chrono::steady_clock::now();
    m_a = a;
    m_b = b;
    if (!load(a, b, r)) return r;
    return run(a, start);
}

PairResult Evaluator::evaluateLoaded(const FrameRef& a, const FrameRef& b) {
    m_a = a;
    m_b = b;
    return run(a, std::chrono::steady_clock::now());
}

PairResult Evaluator::run(const FrameRef& a, std::chrono::steady_clock::time_point start) {
    PairResult r;
    PIV_ImagePair& pair = m_pair;
    const std::string label = a.label();
    const PIVEVAL_CFG cfg = m_params.pivEvalCfg();
    if (cfg.SampleSize.width > pair.width() || cfg.SampleSize.height > pair.height()) {
        r.exit = tool::kUsage;
        r.message = "cannot evaluate " + label + ": the " +
                    Size(cfg.SampleSize.width, cfg.SampleSize.height) +
                    " window is larger than the " + Size(pair.width(), pair.height()) + " image";
        return r;
    }
    // A scan reads the window widened by the scan range on each side.
    const int scanW = cfg.SampleSize.width + 2 * cfg.ScanRange.width + 1,
              scanH = cfg.SampleSize.height + 2 * cfg.ScanRange.height + 1;
    if (cfg.CorrelationMode >= PIV::CORR_MQD && (scanW > pair.width() || scanH > pair.height())) {
        r.exit = tool::kUsage;
        r.message = "cannot evaluate " + label + ": the " + Size(scanW, scanH) +
                    " scan area (window and scan range) is larger than the " +
                    Size(pair.width(), pair.height()) + " image";
        return r;
    }
    if (!m_calibration.originGiven) {
        // Physical y points up from the lower left corner, as the pixel y of
        // the result files does.
        PIVCONVERT_CFG convert = m_params.pivConvertCfg();
        convert.ImageOrigin = POINT3D{0, pair.height(), 0};
        m_params.setPivConvertCfg(convert);
    }
    m_eval->setPivEvalCfg(cfg);
    if (!m_eval->setPivImages(pair.imgA(), pair.imgB())) {
        r.exit = tool::kUsage;
        const std::string why = Reason(m_eval->error());
        r.message = "cannot evaluate " + label + ": " +
                    (why.empty() ? "the images do not fit the settings (window " +
                                       Size(cfg.SampleSize.width, cfg.SampleSize.height) +
                                       ", image " + Size(pair.width(), pair.height()) + ")"
                                 : why);
        return r;
    }
    if (m_haveMask) {
        if (m_mask.width() != pair.imgA()->width() || m_mask.height() != pair.imgA()->height()) {
            r.exit = tool::kUsage;
            r.message = "cannot use mask " + m_options.mask + ": it is " +
                        Size(int(m_mask.width()), int(m_mask.height())) + ", the images " +
                        Size(pair.width(), pair.height());
            return r;
        }
        m_eval->setMaskImages(&m_mask, nullptr, true);
    }
    // Without a parameter file the tool validates the finished field itself
    // (see eval_validation.h); a parameter file's validation runs as written.
    const OUTLIER_CFG wanted = m_params.outlierCfg();
    const bool ownValidation = m_options.parFile.empty() && wanted.Enable;
    if (ownValidation) m_params.setOutlierCfg(DuringEvaluation(wanted));
    const bool interrogated = m_eval->interrogateImage(false);
    m_params.setOutlierCfg(wanted);
    if (!interrogated) {
        r.exit = tool::kFailed;
        r.code = m_eval->error().getLastErrorCode();
        const std::string why = Reason(m_eval->error());
        r.message = "evaluation of " + label + " failed: " +
                    (StopRequested() || m_eval->isCancelled() ? "interrupted"
                     : why.empty()                            ? "the evaluator gave no reason"
                                                              : why);
        return r;
    }
    PIV_Data2D& raw = *m_eval->data();
    if (ownValidation) ValidateField(raw, wanted);
    const PIV::PostProcessResult post =
        PIV::PostProcessData(raw, m_result, m_params.postProcessCfg(), &m_params);
    r.warnings = post.warnings;
    if (!m_options.quiet && !post.warnings.empty())
        std::fprintf(stderr, "kelvane-eval: %s: %s", label.c_str(), post.warnings.c_str());
    if (!post.ok) {
        r.exit = tool::kFailed;
        r.message = "post-processing of " + label + " failed: " + post.reason;
        return r;
    }
    constexpr int kReplacement = VECTOR_INTERPOLATED | VECTOR_LOWER_PEAK;
    for (int k = 0; k < m_result.nodeCount(); k++) {
        const int flag = m_result.data()[k].flag;
        if (flag & VECTOR_MASKED) continue;
        r.nodes++;
        if (flag & (kReplacement | VECTOR_OUTLIER)) r.outliers++;
        if ((flag & VECTOR_ENABLED) && (flag & kReplacement)) r.replaced++;
        if (KeptNode(flag)) r.valid++;
    }
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (r.valid == 0) {
        r.exit = tool::kFailed;
        std::string why = "no valid vector among " + std::to_string(r.nodes) + " nodes";
        const char* names[] = {"first", "second"};
        bool explained = false;
        for (int i = 0; i < 2 && !explained; i++) {
            PIV_Image2D* frame = i ? pair.imgB() : pair.imgA();
            if (HoldsNonFinite(*frame)) {
                why += std::string(": the ") + names[i] +
                       " frame holds pixels that are not numbers (NaN or infinity)";
                explained = true;
            } else if (frame->isConstant(false)) {
                char value[32];
                std::snprintf(value, sizeof(value), "%g", frame->minimum());
                why += std::string(": the ") + names[i] + " frame is uniform (every pixel " +
                       value + ")";
                explained = true;
            }
        }
        if (!explained && r.nodes < 9)
            why += ": too few nodes for the validation to compare (the window covers the image)";
        r.message = "evaluation of " + label + " failed: " + why;
    }
    return r;
}

bool Evaluator::save(const std::string& path, const std::string& format, std::string& error) {
    std::string why = UnwritablePath(path);
    bool ok = why.empty();
    if (ok && format == "cf") {
        CfInfo info;
        info.history = m_options.commandLine;
        info.imageA = m_a.label();
        info.imageB = m_b.label();
        info.calibrated = m_calibration.complete();
        if (!WriteCF(m_result, info, path, error)) return false;
        return true;
    }
    if (ok) {
        OUTPUT_CFG out;
        out.StoreRawData = !m_options.velocity;
        out.StoreVelocity = m_options.velocity;
        if (format == "txt") {
            m_result.setOutputCfg(out);
            ok = m_result.savePivChallengeData(path.c_str(), 0);
        } else {
            m_result.setFileAttributes({{"history", m_options.commandLine},
                                        {"image_a", m_a.label()},
                                        {"image_b", m_b.label()}});
            out.OutputFormat = format == "nc" ? 3 : format == "dat" ? 0 : 2;
            ok = m_result.save(path.c_str(), 0, out);
        }
        if (!ok) why = Reason(m_result.error());
    }
    if (!ok) error = "writing " + path + " failed: " + (why.empty() ? "no reason given" : why);
    return ok;
}

}  // namespace eval_tool
