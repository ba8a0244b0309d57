// Particle tracking under a PIV field: the particle images of both frames are
// found and each of the first is paired with the nearest particle of the
// second around the position the field predicts.
#pragma once

#include <cstdint>
#include <vector>

#include "image2d.h"
#include "piv_data2d.h"
#include "piv_error.h"
#include "ptv_data2d.h"
#include "ptv_particle2d.h"
#include "ptv_types.h"

class PTV_Eval2D {
public:
    PTV_Eval2D();
    explicit PTV_Eval2D(PTV_Data2D* data);
    virtual ~PTV_Eval2D();
    PTV_Eval2D(const PTV_Eval2D&) = delete;
    PTV_Eval2D& operator=(const PTV_Eval2D&) = delete;

    // Hooks of a user interface; the library's own print to the message sink.
    virtual void appendToLogFile(const char* text);
    virtual void showStatusMessage(const char* text);
    // Seconds since the last call with `restart` set.
    virtual double getTime(bool restart);
    virtual void showNewPTVdata();

    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();

    void setParameters(const PTV_PARAMS& params) { m_params = params; }
    const PTV_PARAMS& parameters() const { return m_params; }
    void setProgressFlag(bool on) { m_progress = on; }
    void setLabelImageSaveFlag(bool on) { m_params.LabelImagesSave = on; }
    // Not owned; null for none. Its pixels of 255 are masked.
    void setMaskImage(Image2D* mask) { m_mask = mask; }
    void setData(PTV_Data2D* data) { m_data = data; }
    PTV_Data2D* data() { return m_data; }

    // The particles of one image in a new array the caller frees with
    // delete[]; on failure none is left allocated.
    bool extractParticles(Image2D& image, PARTICLE** particles, unsigned int* count);
    // extractParticles into `out`, with the image size.
    bool detectParticles(Image2D& image, PTV_Particle2D* out);
    // Both frames and the pairing under `guide` (dy upwards) into the data.
    bool process(Image2D& first, Image2D& second, PIV_Data2D& guide);
    // A check of the valid pairs of the data: the window at the midpoint of
    // each, offset by its rounded displacement, is correlated with the
    // settings of setPivEvalCfg; each difference is printed at level 1 and
    // their RMS kept (correlationCheckRms; -1 when no pair could be checked).
    bool doCorrelationMatching(Image2D& first, Image2D& second);
    void setPivEvalCfg(const PIVEVAL_CFG& cfg) { m_pivCfg = cfg; }
    double correlationCheckRms() const { return m_checkRms; }

    // Counts of the last extraction.
    struct ExtractionCounts {
        int regions, gaussFits, threePointFits, tooLarge;
    };
    const ExtractionCounts& lastCounts() const { return m_counts; }
    PIVerror& error() { return m_error; }

private:
    void extractOrThrow(Image2D& image, std::vector<PARTICLE>& out);
    void prepareWorkImage(const Image2D& image, Image2D& work);
    void locateGroups(std::vector<PixelGroup>& groups, const Image2D& values);
    void matchOrThrow(const std::vector<PARTICLE>& a, const std::vector<PARTICLE>& b,
                      const PIV_Data2D& guide, int width, int height);

    PTV_PARAMS m_params;
    PTV_Data2D* m_data;
    bool m_progress;
    Image2D* m_mask;
    char m_text[1024];
    PIVerror m_error;
    uint32_t m_refCount;
    ExtractionCounts m_counts;
    double m_clock;
    PIVEVAL_CFG m_pivCfg;
    double m_checkRms;
};
