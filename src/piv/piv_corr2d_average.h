// PIV_Corr2D_Average: ensemble correlation. Instead of a peak per pair it
// sums the correlation plane of every node over a series of pairs and looks
// for the peaks in the mean, where weak signals that no single pair shows
// stand out. It runs a series in one or more passes (each pass may bin the
// images and take its window offsets from the field of the pass before),
// extracts a field from the planes and keeps the planes in a NetCDF file
// for another fit later.
#pragma once

#include <cstdint>
#include <vector>

#include "image2d.h"
#include "piv_corr2d.h"
#include "piv_error.h"
#include "piv_record.h"
#include "piv_types.h"

class FilePairList;
class PIV_Data2D;
class PIV_Parameters;
class PIV_Image2D;

// The settings of an ensemble run; init() gives the defaults.
struct CORR_AVERAGE_PARAMS {
    int32_t peakFitMethod;  // PIV::PeakFitMethod of the final extraction
    int32_t minFiles;       // fewer pairs processed than this fails the run
    int32_t mode;           // 0 one pass, 1 several equal passes, 2 pyramid
    bool saveIntermediate;  // fields and plane images of the early passes
    bool printSteps;        // the pass list goes to standard output
    bool validateIntermediate;
    uint8_t pad0;
    int32_t passCount;     // passes of mode 1
    SIZE2D startWin;       // the pyramid's start window
    SIZE2D peakRoiSize;    // box of plane cells summed with the peak ROI
    SIZE2D imageTileSize;  // largest tile a plane takes in createImage
    int32_t varyStride;    // early passes take every stride-th pair only
    int32_t stride;        // files skipped in early passes
    int32_t maxLevels;     // a pyramid has no more levels than this
    float roiScale;        // the dialog's; the library reads peakRoiSize only
    bool peakRoiEnable;
    bool calcAutoCorr;  // sums the autocorrelation planes too
    bool saveData;
    bool saveImage;
    bool displayImage;
    uint8_t pad1[3];
    int32_t progressStep;  // nodes between two progress reports
    char workFile[2048];   // stub of working files; "enscorr" when empty
    char workDir[2048];    // their directory; the current one when empty

    CORR_AVERAGE_PARAMS() { init(); }
    void init();
};
KELVANE_ASSERT_RECORD(CORR_AVERAGE_PARAMS);

// One pass of a run. Sizes count pixels of the full-size images; a pass
// with desample k works on images binned by k.
struct CORR_AVERAGE_PASS {
    SIZE2D window;
    SIZE2D scan;
    SIZE2D step;
    int32_t desample;
    int32_t fileStride;

    CORR_AVERAGE_PASS() { PIV::ZeroRecord(*this); }
};
KELVANE_ASSERT_RECORD(CORR_AVERAGE_PASS);

// The sums of one node.
struct CORR_PLANE_DATA {
    POINT2D pos;
    POINT2D offset;
    SIZE3D size;  // of corrSum: width, height (1 and the cell count when packed), depth
    std::vector<float> corrSum;
    int32_t count = 0;  // pairs summed, failed windows included
    std::vector<float> autoSum;
    // Of the last extraction.
    float corr = 0.0f, rms = 0.0f, snr = 0.0f;
};

namespace PIV {
// The passes of a run for the window, scan range and grid step of `cfg`.
std::vector<CORR_AVERAGE_PASS> BuildEnsembleCorrSteps(const CORR_AVERAGE_PARAMS& params,
                                                      const PIVEVAL_CFG& cfg);
}  // namespace PIV

// sum / max(count, 1) into a plane of `cells` cells. With a mask (a byte a
// cell) the packed values go to its
// non-zero cells in row order and all others get the smallest of them;
// min, max, mean and rms are taken over the cells the values went to.
void _restoreCorrData(const float* sum, float* plane, const uint8_t* mask, int cells, int count,
                      float* min, float* max, float* mean, float* rms);
// Weights that lift the edges of a plane of N cells against its middle:
// 1 / (i / N + 0.5) up to N / 2, 1 / (1.5 - i / N) beyond.
void _createCorrelationWeights(float* w, int N);

class PIV_Corr2D_Average {
public:
    // Uses the field and parameters given (taking a reference) or its own.
    explicit PIV_Corr2D_Average(PIV_Data2D* data = nullptr, PIV_Parameters* parameters = nullptr);
    virtual ~PIV_Corr2D_Average();
    PIV_Corr2D_Average(const PIV_Corr2D_Average&) = delete;
    PIV_Corr2D_Average& operator=(const PIV_Corr2D_Average&) = delete;

    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();

    // ---- hooks, in this order; the application overrides them ---------------
    virtual void showErrorMessage(const char* text);
    virtual void showProgressMessage(const char* text, bool show);
    virtual void showProgressMessage2(const char* text);
    virtual bool wasCancelled();
    virtual void showProgress(int step, int steps);
    virtual void showProgressSeries(int step, int steps);
    virtual void showStatusMessage(const char* text);

    // ---- settings --------------------------------------------------------------
    void setEnsembleCorrParams(const CORR_AVERAGE_PARAMS& params) { m_avg = params; }
    const CORR_AVERAGE_PARAMS& ensembleCorrParams() const { return m_avg; }
    void setPivParameters(const PIV_PARAMETERS& params);
    void setPostProcessCfg(const POSTPROCESS_CFG& cfg);
    void setImagePreProcessing(const IMAGE_CFG& cfg) { m_imageCfg = cfg; }
    // An 8-bit mask whose non-zero pixels are blanked in both frames; an
    // empty or missing name, or !enable, removes it.
    bool setMaskImage(const char* path, bool enable);
    // Blanks the masked pixels of both frames; false for frames of sizes
    // other than the mask's (34).
    bool preProcessImages(Image2D* a, Image2D* b);
    // The offsets of the next initializeGrid; null removes them.
    void setOffsetData(PIV_Data2D* field);
    void setPeakThreshold(double threshold) { m_peakThreshold = threshold; }
    void setFlagAutoCorrEnabled(bool on) { m_autoCorrEnabled = on; }
    void setFlagFinalPass(bool on) { m_finalPass = on; }
    void setFlagProgressEnabled(bool on) { m_progressEnabled = on; }

    // ---- the run -------------------------------------------------------------------
    // Builds the pass list from the ensemble and evaluation settings.
    bool buildEnsembleCorrSteps(bool print);
    const std::vector<CORR_AVERAGE_PASS>& passes() const { return m_passes; }
    bool processImageSeries(const FilePairList* list);
    // Grid, planes and correlators for images of this size under the
    // current evaluation settings. Refuses (7, before allocating) planes
    // larger than the machine's memory.
    bool initializeGrid(int width, int height);
    // Adds the planes of one pair. A window that fails adds nothing, yet its
    // count rises: the node's mean is diluted by its failures.
    bool processImagePair(const Image2D* a, const Image2D* b);
    // The field from the mean planes, with this fit.
    bool computePivData(int fit, bool intermediate);
    // 1 when the vector was found, 0 otherwise (the vector then failed).
    int computePivVector(int index, PIV_VECTOR* vector, int correlator);

    // ---- files -----------------------------------------------------------------------
    bool saveCorrelationPlanes(const char* fileName);
    // Replaces the planes only when the whole file reads.
    bool loadCorrelationPlanes(const char* fileName);
    bool saveSingleCorrelationPlane(int index, const char* fileName);
    bool saveAsTecplot(int index, const char* fileName) {
        return saveSingleCorrelationPlane(index, fileName);
    }
    // The mean planes side by side in the grid's layout, zero displacement
    // in the middle of each tile; `autoCorr` for the autocorrelations.
    bool createImage(Image2D* image, bool autoCorr, bool normalize);

    // ---- access ------------------------------------------------------------------------
    const CORR_PLANE_DATA* correlationData(int index) const;
    // The mean plane of a node, unfolded for display, into the first
    // correlator's plane; null when there is none.
    float* restoreCorrelationPlane(int index, bool autoCorr);
    int nearestCorrPlaneIndex(int x, int y, bool onlyValid) const;
    int corrPlaneCount() const { return int(m_planes.size()); }
    SIZE2D corrPlaneSize() const { return m_planeSize; }
    int imagesProcessed() const { return m_imagesProcessed; }
    double totalProcessingTime() const { return m_totalTime; }
    bool haveAutoCorrelationData() const { return m_haveAuto; }
    bool isSampledOffGrid() const { return m_sampledOffGrid; }
    bool isPeakRoiActive() const { return m_roiCells > 0; }
    void clear();
    void clearCorrPlanes();
    PIV_Data2D* pivData() { return m_data; }
    PIV_Parameters* pivParameters() { return m_params; }
    int analysisMode() const { return m_analysisMode; }
    void setAnalysisMode(int mode) { m_analysisMode = mode; }
    PIVerror& error() { return m_error; }
    const char* getLastError() const { return m_error.getLastError(); }
    int getLastErrorCode() const { return m_error.getLastErrorCode(); }

protected:
    bool fail(PIVerror::ErrorType code, const char* where);
    void createCorrelators();
    void buildPeakRoi(const SIZE2D& planeSize);
    // The box a peak ROI of roiSize packs a plane to; {0, 0} where it would
    // be too small to fit a peak or would hold the whole plane.
    static SIZE2D peakRoiBox(const SIZE2D& roiSize, const SIZE2D& planeSize);
    // Adds a plane to a sum, packed to the peak ROI when it is active.
    void addPlane(const float* plane, float* sum) const;
    bool runPass(const FilePairList* list, int pass);
    bool finishPass(int pass);
    int planeCells() const;

    uint32_t m_refCount = 1;
    std::vector<PIV_Corr2D*> m_corr;
    CORR_AVERAGE_PARAMS m_avg;
    PIV_Parameters* m_params;
    PIV_Data2D* m_data;
    PIV_Data2D* m_offsetData = nullptr;
    std::vector<CORR_PLANE_DATA> m_planes;
    std::vector<CORR_AVERAGE_PASS> m_passes;
    IMAGE_CFG m_imageCfg;
    Image2D m_mask;
    std::vector<uint8_t> m_peakRoi;  // a byte a plane cell; non-zero cells are summed
    int m_roiCells = 0;
    SIZE2D m_roiBox{0, 0};
    SIZE2D m_planeSize{0, 0};
    int m_analysisMode = 1;
    int m_imagesProcessed = 0;
    double m_totalTime = 0.0;
    double m_peakThreshold = 0.5;
    bool m_autoCorrEnabled = true;
    bool m_progressEnabled = true;
    bool m_finalPass = true;
    bool m_sampledOffGrid = false;
    bool m_haveAuto = false;
    PIVerror m_error;
};
