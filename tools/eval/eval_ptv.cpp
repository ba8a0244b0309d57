#include "eval_ptv.h"

#include "ptv_data2d.h"
#include "ptv_eval2d.h"

namespace eval_tool {

bool TrackParticles(Evaluator& evaluator, const std::string& path, std::string& summary,
                    std::string& error) {
    PIV_ImagePair& pair = evaluator.pair();
    PTV_Data2D tracks;
    PTV_Eval2D ptv(&tracks);
    // The tool's masks mark any non-zero pixel; the tracker masks 255.
    Image2D mask;
    if (const Image2D* m = evaluator.mask()) {
        if (!mask.alloc(m->width(), m->height(), IMAGE_UINT8)) {
            error = "particle tracking failed: no memory for the mask";
            return false;
        }
        for (int y = 0; y < int(m->height()); y++)
            for (int x = 0; x < int(m->width()); x++)
                mask.setPixel(x, y, m->pixel(x, y) != 0.0f ? 255.0f : 0.0f);
        ptv.setMaskImage(&mask);
    }
    if (!ptv.process(*pair.imgA(), *pair.imgB(), evaluator.result())) {
        const std::string why = Reason(ptv.error());
        error = "particle tracking failed: " + (why.empty() ? "no reason given" : why);
        return false;
    }
    if (!tracks.saveASCII(path.c_str())) {
        error = "writing " + path + " failed: " + Reason(tracks.error());
        return false;
    }
    summary = std::to_string(tracks.particleCount()) + " particles tracked, " +
              std::to_string(tracks.validCount()) + " valid pairs";
    return true;
}

}  // namespace eval_tool
