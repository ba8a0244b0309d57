// PIV_Eval2D_Base: the evaluator's state around one field and its
// parameters, and the hooks through which an application follows a run.
// The base hooks report through the library's message functions or do
// nothing; the application's evaluator overrides them.
#pragma once

#include <atomic>

#include "piv_data2d.h"
#include "piv_error.h"
#include "piv_params.h"
#include "piv_types.h"

class Image2D;
class Image2D_Deformation;
struct DEFORM_FRAME;

class PIV_Eval2D_Base {
public:
    // Uses the field and parameters given (taking a reference on each) or
    // makes its own.
    explicit PIV_Eval2D_Base(PIV_Data2D* data = nullptr, PIV_Parameters* parameters = nullptr);
    virtual ~PIV_Eval2D_Base();
    PIV_Eval2D_Base(const PIV_Eval2D_Base&) = delete;
    PIV_Eval2D_Base& operator=(const PIV_Eval2D_Base&) = delete;

    // ---- hooks --------------------------------------------------------------
    // Hands new settings to the correlators; true when they changed.
    virtual bool updateCorrelator(const PIVEVAL_CFG& cfg);
    // Validation, conversion, statistics of the new field.
    virtual bool doPostProcessing(bool force);
    // step -1 ends the progress.
    virtual void showProgress(int step, int steps);
    virtual void showStatusMessage(const char* text);
    virtual void appendToLogFile(const char* text);
    virtual bool wasCancelled();
    virtual void updateProgressDialog(const char* text, bool show);
    virtual void showNewPivData();

    // Lays grid and field for an image of this size; false (and cleared)
    // for a size above 20000 or no nodes.
    bool updateEvalGrid(int width, int height);
    // Takes new settings, laying a new grid when they need one.
    bool updatePivEvalCfg(const PIVEVAL_CFG& cfg);
    bool setPivEvalCfg(const PIVEVAL_CFG& cfg) { return updatePivEvalCfg(cfg); }
    void setOutlierCfg(const OUTLIER_CFG& cfg) { m_params->setOutlierCfg(cfg); }
    bool setPivConvertCfg(const PIVCONVERT_CFG& cfg) { return m_params->setPivConvertCfg(cfg); }
    // Sets the region of interest in the parameters (clipped to the image)
    // and lays grid and field anew; a field read from a file keeps its grid.
    // True when the effective region changed.
    bool setROI(const RECT3D& roi);
    // Brings grid, field and correlators in step with parameters that their
    // owner changed in place.
    bool updatePIVparameters();
    // Takes the conversion; a field with results is converted again at once.
    // True when the conversion changed.
    bool updatePivConvertCfg(const PIVCONVERT_CFG& cfg);
    // Takes the differentiation; differentials already formed are formed again.
    void updateFDiffCfg(const DIFFERENTIATE_CFG& cfg);
    // The library's message level ("-dbg<n>").
    void setDebug(int level);
    // New images make the field's vectors stale: they are cleared, unless the
    // field was read from a file, which no evaluation can replace.
    void setFlagNewImage(bool on);
    bool isNewImage() const { return m_newImage; }
    // Reports the field's statistics through showStatusMessage.
    void showStats();
    // Empties the field's results, keeping its nodes. False without a field.
    bool clearData();
    void clear();

    PIV_Data2D* data() { return m_data; }
    PIV_Parameters* parameters() { return m_params; }
    int analysisMode() const { return m_analysisMode; }
    void setAnalysisMode(int mode);
    bool isEvaluationRunning() const { return m_evaluationRunning; }
    bool haveRawData() const { return m_data && m_data->haveRawData(); }
    bool isFileData() const { return m_data && m_data->isFileData(); }
    void setFlagLiveEvaluation(bool on) { m_showLiveEvaluation = on; }
    bool showLiveEvaluation() const { return m_showLiveEvaluation; }
    // Vectors stay on their nodes (true) or move with windows that slid
    // inward at the image edge.
    void setKeepNodePositions(bool keep) { m_keepNodePositions = keep; }
    // May come from any thread: every worker of a running sample list stops
    // at its next window, and the evaluation ends without raw data.
    void cancel() { m_cancelled = true; }
    bool isCancelled() const { return m_cancelled; }
    const char* statusText() const { return m_status; }
    double processingTime() const { return m_processTime; }
    const char* getLastError() const { return m_error.getLastError(); }
    int getLastErrorCode() const { return m_error.getLastErrorCode(); }
    PIVerror& error() { return m_error; }

    // Warps `src` into `dst` by `factor` times the field (see
    // Image2D_Deformation); with a mask on the final pass, masked pixels keep
    // their value.
    bool deformImage(const Image2D* src, Image2D* dst, const Image2D* mask,
                     Image2D_Deformation* deformer, PIV_Data2D* field, double factor,
                     bool finalPass);
    // Both frames of a pair at once, `first` with `deformerA` and `second`
    // with `deformerB`: each as deformImage would warp it.
    bool deformImages(const DEFORM_FRAME& first, Image2D_Deformation* deformerA,
                      const DEFORM_FRAME& second, Image2D_Deformation* deformerB, PIV_Data2D* field,
                      bool finalPass);

protected:
    // One frame or a pair (count 1 or 2), each frame with its deformer.
    bool deformFrames(const DEFORM_FRAME* frames, Image2D_Deformation* const* deformers, int count,
                      PIV_Data2D* field, bool finalPass);
    // A cancel asked for through cancel() or the wasCancelled hook; called
    // on the thread that drives the evaluation.
    bool cancelRequested() {
        if (!m_cancelled && wasCancelled()) m_cancelled = true;
        return m_cancelled;
    }
    // The mask whose nodes post-processing marks; none in the base.
    virtual const Image2D* postProcessMask() const { return nullptr; }

    PIV_Data2D* m_data;
    PIV_Parameters* m_params;
    int m_analysisMode = 1;
    bool m_useMask = false;
    bool m_evaluationRunning = false;
    bool m_newValidation = false;
    std::atomic<bool> m_cancelled{false};
    bool m_newImage = false;
    bool m_showLiveEvaluation = false;
    bool m_keepNodePositions = true;
    bool m_showProgress = false;
    char m_status[1024];
    double m_processTime = 0.0;
    PIVerror m_error;
};
