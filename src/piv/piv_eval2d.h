// PIV_Eval2D: the evaluation of an image pair. It lays the grid over the
// images, builds the list of sample positions and hands it to its pool of
// correlators, one per worker thread.
#pragma once

#include <vector>

#include "image2d.h"
#include "image2d_deformation.h"
#include "piv_corr2d.h"
#include "piv_eval2d_base.h"

struct MULTIGRID_LEVEL;
class PIV_ImagePair;

class PIV_Eval2D : public PIV_Eval2D_Base {
public:
    // The number of correlators is PIV::MaxThreads() at construction.
    explicit PIV_Eval2D(PIV_Data2D* data = nullptr, PIV_Parameters* parameters = nullptr);
    ~PIV_Eval2D() override;

    // Display hooks for the probe and the live view; empty here.
    virtual void drawSamples(float* a, float* b, const SIZE2D& sizeA, const SIZE2D& sizeB,
                             int width, int index, bool fft);
    virtual void drawCorrelation(float* plane, const SIZE2D& size, const PIV_VECTOR& vector,
                                 int index);

    bool updateCorrelator(const PIVEVAL_CFG& cfg) override;

    // The images are not owned and must outlive the evaluation. Null images
    // give 37, images of different sizes 34.
    bool setPivImages(const Image2D* a, const Image2D* b, const Image2D* c, const Image2D* d);
    bool setPivImages(const Image2D* a, const Image2D* b) {
        return setPivImages(a, b, nullptr, nullptr);
    }
    bool setPivImagePair(PIV_ImagePair* pair);
    // Returns 1 when masks are in use, 0 when not (disabled, or no mask).
    int setMaskImages(const Image2D* maskA, const Image2D* maskB, bool enabled);
    bool isImagePairValid();
    bool isInterrogationPossible(bool checkMultiGrid);
    bool isMultiGridPossible();

    // The whole evaluation; true when the field holds raw data.
    bool interrogateImage(bool showProgress);
    // One window at `point`, with the display hooks called.
    bool interrogateAtPoint(const POINT2D& point, PIV_VECTOR* vector, int index);
    // Fills the first correlator's samples at `point` only.
    bool sampleAtPoint(const POINT2D& point);
    // Marks the vectors under the first mask as masked.
    bool applyMasks();

    PIV_Corr2D* correlationObj() { return m_corr.empty() ? nullptr : m_corr[0]; }
    int correlatorCount() const { return int(m_corr.size()); }
    void setFlagCrossPairCorrelation(bool on) { m_crossPairCorrelation = on; }

    // Correlates every enabled entry into data[k] on the workers; `good`
    // receives the number of windows that gave a vector.
    bool processSampleList(CORR_SAMPLE_POS* samples, int count, PIV_VECTOR* data,
                           const PIVEVAL_CFG& cfg, bool accumulate, const Image2D* a,
                           const Image2D* b, const Image2D* c, const Image2D* d,
                           const Image2D* maskA, const Image2D* maskB, int* good);
    // With an OpenCL device chosen and settings it takes (single pairs,
    // modes 0 and 1, no autocorrelation plane): the same list correlated
    // there, the peaks searched here. False when the list is left to the
    // CPU, after a failure too (reported; the run then stays on the CPU);
    // true when done, with processSampleList's answer in `result`.
    bool processSampleListOnDevice(CORR_SAMPLE_POS* samples, int count, PIV_VECTOR* data,
                                   bool accumulate, const Image2D* a, const Image2D* b,
                                   const Image2D* maskA, const Image2D* maskB, int* good,
                                   bool& result);
    // Shrinks the correlator's window at a node nearer to the image edge
    // than half a window; restores the full window elsewhere.
    void adjustSamplingWindow(int x, int y, PIV_Corr2D* correlator);

    // ---- image deformation (piv_eval2d_imagedef.cpp) -------------------------
    // Warps the first image by +half and the second by -half of the field
    // (speckle data: the first stays, the second takes all of it).
    bool deformImagePair(PIV_Data2D* field, bool finalPass);
    // Correlates the deformed images at the field's nodes and adds what
    // they still show to the field.
    bool processDeformedImages(PIV_Data2D* field);
    bool copyImagesToDeformedImages();
    const Image2D& deformedImageA() const { return m_defImgA; }
    const Image2D& deformedImageB() const { return m_defImgB; }

    // ---- outliers after a multi-grid run (piv_eval2d_multipass.cpp) ----------
    // Correlates again, with windows of `size`, every node of `data` flagged
    // outlier or interpolated; the new result plus `oldVectors` at the node
    // (when `nodes` matches the field; null counts as zero) replaces it.
    // Returns how many were re-evaluated.
    int reevaluateDisabledVectors(const Image2D* a, const Image2D* b, PIV_Data2D* data,
                                  const PIVEVAL_CFG& cfg, const SIZE2D& size,
                                  const PIV_VECTOR* oldVectors, int nodes);

protected:
    // Entry k after its correlation (failed with `code`, or 0): the vector
    // from the correlator's plane (or the scan of a plane made elsewhere),
    // or the failure noted. True for a vector.
    bool finishWindow(PIV_Corr2D* corr, int k, CORR_SAMPLE_POS& s, PIV_VECTOR& v, POINT2D pos,
                      int code, bool accumulate, const PIV_PEAK_SCAN* planeScan = nullptr);
    bool deviceTakesSettings() const;
    const Image2D* postProcessMask() const override { return m_useMask ? m_pMaskA : nullptr; }
    bool evalSinglePass();
    bool evalMultiPass(bool deformLastPass);
    bool evalMultiGrid();
    bool evalImageDef();
    // One level of a multi-grid run; false ends the run.
    bool multiGridLevel(const MULTIGRID_LEVEL& level, int index, int count, PIV_PARAMETERS& params,
                        PIV_Data2D& coarse, std::vector<PIV_VECTOR>& predictor);
    // The sample list of a grid in node order, offsets zero.
    bool buildSampleList(const DATA_GRID4D& grid, std::vector<CORR_SAMPLE_POS>& samples,
                         const char* where);
    void setIntermediateProcessing(bool on);
    // The name of the interpolation a deformation pass uses, for the status
    // lines: the fast intermediate setting where it applies.
    static const char* _getDeformationMethod(const PIVEVAL_CFG& cfg, bool finalPass, char* text,
                                             size_t size);
    // Stores the deformed pair as "<prefix>_<pass>_1.tif" and "_2.tif", in
    // 8 or 16 bits as the largest value of the input needs.
    void saveDeformedImagePair(const char* prefix, int pass, double maximum);
    // The masks as a sample list wants them: none unless in use, and the
    // second only when it is a mask of its own.
    const Image2D* listMaskA() const { return m_useMask ? m_pMaskA : nullptr; }
    const Image2D* listMaskB() const { return m_useMask && m_useSecondMask ? m_pMaskB : nullptr; }

    std::vector<PIV_Corr2D*> m_corr;
    std::vector<SIZE2D> m_window;  // the current window of each correlator
    const Image2D* m_pImgA = nullptr;
    const Image2D* m_pImgB = nullptr;
    const Image2D* m_pImgC = nullptr;
    const Image2D* m_pImgD = nullptr;
    const Image2D* m_pMaskA = nullptr;
    const Image2D* m_pMaskB = nullptr;
    bool m_useSecondMask = false;
    bool m_crossPairCorrelation = false;

    // Between passes of a multi-pass run: the last result and the offsets
    // its windows were taken with, one per node.
    std::vector<PIV_VECTOR> m_tmpData;
    std::vector<POINT2D> m_tmpOffset;
    // The warped pair and one deformer per frame, whose spline
    // coefficients of the source stay between passes.
    Image2D m_defImgA, m_defImgB;
    Image2D_Deformation m_deformA, m_deformB;
};
