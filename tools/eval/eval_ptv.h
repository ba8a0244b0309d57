// Particle tracking of kelvane-eval (--ptv): the pair just evaluated,
// guided by its post-processed field, into a text table.
#pragma once

#include <string>

#include "eval_run.h"

namespace eval_tool {

// Tracks the particles of the evaluator's last pair under its result and
// writes the table to `path`. False with the reason in `error`; `summary`
// tells the counts.
bool TrackParticles(Evaluator& evaluator, const std::string& path, std::string& summary,
                    std::string& error);

}  // namespace eval_tool
