// One evaluation of kelvane-eval: load the pair, interrogate, run the
// post-processing chain, write the result in the format its name asks for.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "eval_input.h"
#include "eval_options.h"
#include "image2d.h"
#include "piv_data2d.h"
#include "piv_eval2d.h"
#include "piv_imagepair.h"
#include "piv_params.h"

namespace eval_tool {

// Asks the running evaluation to stop at its next check and the series not
// to start another pair; safe to call from a signal handler.
void RequestStop();
bool StopRequested();

// The library's error text on one line: its detail ("... declares
// 8589934592 bytes of pixel data but holds 2") follows a newline there.
std::string Reason(const PIVerror& e);

// A node measured and kept: enabled, neither rejected nor replaced.
bool KeptNode(int flag);

struct PairResult {
    int exit = 0;         // tool::Exit
    std::string message;  // what went wrong, naming the file, then why
    // Nodes outside the masks; of them those measured and kept, those the
    // validation rejected, and those of these that got a replacement.
    int nodes = 0, valid = 0, outliers = 0, replaced = 0;
    double seconds = 0.0;
    int code = 0;          // the library's PIVerror code, where it gave one
    std::string warnings;  // of the post-processing, one a line
};

class Evaluator {
public:
    // The evaluator's correlators are made here, after the thread count is set.
    Evaluator(const Options& options, PIV_Parameters& params, const Calibration& calibration);
    // Loads the mask of the options; false with the reason.
    bool prepare(std::string& error);
    PairResult evaluate(const FrameRef& a, const FrameRef& b);
    // The frames already in pair(), put there from memory, say; `a` and `b`
    // name them in messages and files. evaluate() loads the files and ends
    // here, so that both ways run one evaluation.
    PairResult evaluateLoaded(const FrameRef& a, const FrameRef& b);
    // Asked at every progress check of the evaluation, on the calling
    // thread, besides RequestStop: true stops the evaluation there.
    void setStopCheck(std::function<bool()> check) { m_stopCheck = std::move(check); }
    // `format`: "nc" NetCDF, "dat" Tecplot text, "plt" Tecplot binary, "txt"
    // the PIV Challenge table, "cf" CF-1.8 NetCDF. Written beside the target
    // and renamed. False with "writing PATH failed: why" in `error`.
    bool save(const std::string& path, const std::string& format, std::string& error);
    PIV_Data2D& result() { return m_result; }
    // The frames of the last evaluation and the mask; null for none.
    PIV_ImagePair& pair() { return m_pair; }
    const Image2D* mask() const { return m_haveMask ? &m_mask : nullptr; }

private:
    bool load(const FrameRef& a, const FrameRef& b, PairResult& r);
    PairResult run(const FrameRef& a, std::chrono::steady_clock::time_point start);

    const Options& m_options;
    PIV_Parameters& m_params;
    const Calibration m_calibration;
    FrameRef m_a, m_b;  // of the last evaluation
    std::function<bool()> m_stopCheck;  // the evaluator holds it: made before
    std::unique_ptr<PIV_Eval2D> m_eval;
    PIV_ImagePair m_pair;  // outlives the evaluation that points at its frames
    Image2D m_mask;
    bool m_haveMask = false;
    PIV_Data2D m_result;
};

}  // namespace eval_tool
