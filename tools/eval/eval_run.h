// One evaluation of kelvane-eval: load the pair, interrogate, run the
// post-processing chain, write the result in the format its name asks for.
#pragma once

#include <memory>
#include <string>

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

struct PairResult {
    int exit = 0;         // tool::Exit
    std::string message;  // what went wrong, naming the file
    int nodes = 0, valid = 0, replaced = 0;
    double seconds = 0.0;
};

class Evaluator {
public:
    // The evaluator's correlators are made here, after the thread count is set.
    Evaluator(const Options& options, PIV_Parameters& params);
    // Loads the mask of the options; false with the reason.
    bool prepare(std::string& error);
    PairResult evaluate(const std::string& first, const std::string& second);
    // By extension: .nc NetCDF, .dat Tecplot text, .plt Tecplot binary, .txt
    // the PIV Challenge table. Written beside the target and renamed.
    bool save(const std::string& path, std::string& error);
    PIV_Data2D& result() { return m_result; }

private:
    const Options& m_options;
    PIV_Parameters& m_params;
    std::unique_ptr<PIV_Eval2D> m_eval;
    PIV_ImagePair m_pair;  // outlives the evaluation that points at its frames
    Image2D m_mask;
    bool m_haveMask = false;
    PIV_Data2D m_result;
};

}  // namespace eval_tool
