// Image deformation interrogation: warp both frames towards each other by
// the current field, measure what is left, add it, and repeat.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "image2d_deformation.h"
#include "piv_enums.h"
#include "piv_eval2d.h"
#include "piv_grid.h"
#include "piv_messages.h"

namespace {

// Intermediate passes may trade interpolation quality for speed.
bool FastIntermediate(const PIVEVAL_CFG& cfg, bool finalPass) {
    return (cfg.SpeedOptimization & 0x2000) && !finalPass;
}

// Mean, deviation and range of dx and dy over the enabled vectors.
struct ComponentStats {
    double mean[2] = {0, 0}, dev[2] = {0, 0}, low[2] = {0, 0}, high[2] = {0, 0};
};

ComponentStats Stats(const PIV_VECTOR* v, int n, const PIV_VECTOR* minus) {
    ComponentStats s;
    double sum[2] = {0, 0}, sum2[2] = {0, 0};
    int count = 0;
    for (int k = 0; k < n; k++) {
        if (!(v[k].flag & VECTOR_ENABLED)) continue;
        const double c[2] = {v[k].dx - (minus ? minus[k].dx : 0.0f),
                             v[k].dy - (minus ? minus[k].dy : 0.0f)};
        for (int i = 0; i < 2; i++) {
            if (count == 0 || c[i] < s.low[i]) s.low[i] = c[i];
            if (count == 0 || c[i] > s.high[i]) s.high[i] = c[i];
            sum[i] += c[i];
            sum2[i] += c[i] * c[i];
        }
        count++;
    }
    if (count == 0) return s;
    for (int i = 0; i < 2; i++) {
        s.mean[i] = sum[i] / count;
        s.dev[i] = std::sqrt(std::max(0.0, sum2[i] / count - s.mean[i] * s.mean[i]));
    }
    return s;
}

}  // namespace

const char* PIV_Eval2D::_getDeformationMethod(const PIVEVAL_CFG& cfg, bool finalPass, char* text,
                                              size_t size) {
    const IMAGEDEF_CFG& def = cfg.ImageMapping2D;
    const int method =
        FastIntermediate(cfg, finalPass) ? int(PIV::INTERPOLATE_BILINEAR) : def.Method;
    switch (method) {
        case PIV::INTERPOLATE_SHIFTED_LINEAR:
            std::snprintf(text, size, "Shifted Bilinear");
            break;
        case PIV::INTERPOLATE_GAUSS:
            std::snprintf(text, size, "Gaussian");
            break;
        case PIV::INTERPOLATE_BSPLINE:
            std::snprintf(text, size, "B-Spline, Degree=%d", getDeformOrder(def.Order, method));
            break;
        case PIV::INTERPOLATE_BILINEAR:
            std::snprintf(text, size, "Bilinear");
            break;
        case PIV::INTERPOLATE_POLYNOMIAL:
            std::snprintf(text, size, "Polynomial, Degree=%d", def.Order);
            break;
        default:
            std::snprintf(text, size, "Unsupported interpolator");
    }
    return text;
}

bool PIV_Eval2D_Base::deformImage(const Image2D* src, Image2D* dst, const Image2D* mask,
                                  Image2D_Deformation* deformer, PIV_Data2D* field, double factor,
                                  bool finalPass) {
    const DEFORM_FRAME frame{src, dst, mask, factor};
    return deformFrames(&frame, &deformer, 1, field, finalPass);
}

bool PIV_Eval2D_Base::deformImages(const DEFORM_FRAME& first, Image2D_Deformation* deformerA,
                                   const DEFORM_FRAME& second, Image2D_Deformation* deformerB,
                                   PIV_Data2D* field, bool finalPass) {
    const DEFORM_FRAME frames[2] = {first, second};
    Image2D_Deformation* deformers[2] = {deformerA, deformerB};
    return deformFrames(frames, deformers, 2, field, finalPass);
}

bool PIV_Eval2D_Base::deformFrames(const DEFORM_FRAME* frames,
                                   Image2D_Deformation* const* deformers, int count,
                                   PIV_Data2D* field, bool finalPass) {
    const char* where = "deformImage()";
    if (!field || !field->haveRawData()) {
        m_error.setMessage("deformImage() - missing displacement data!");
        m_error.handleError(PIVerror::CORRUPT_DATA, where);
        return false;
    }
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    IMAGEDEF_CFG def = cfg.ImageMapping2D;
    if (FastIntermediate(cfg, finalPass)) {
        def.Method = PIV::INTERPOLATE_BILINEAR;
        def.Order = 2;
    }
    DEFORM_FRAME use[2];
    for (int i = 0; i < count; i++) {
        const DEFORM_FRAME& f = frames[i];
        if (!f.src || !f.dst || !deformers[i] || f.src->isNull()) {
            m_error.handleError(PIVerror::IMAGE_IS_NULL, where);
            return false;
        }
        deformers[i]->setImageDefCfg(def);
        deformers[i]->setFlagMirroring(false);
        if (!f.dst->resize(f.src->size2D(), IMAGE_FLOAT)) {
            m_error.setMessage("deformImage() - trouble creating image A\nReason: %s",
                               f.dst->error().getLastError());
            m_error.handleError(PIVerror::IMAGE_IS_NULL, where);
            return false;
        }
        use[i] = f;
        if (!finalPass) use[i].mask = nullptr;
        if (use[i].mask && use[i].mask->isZero()) {
            m_error.setMessage("deformImage() - mask A is all zero!");
            m_error.handleError(PIVerror::IMAGE_IS_NULL, where);
            return false;
        }
    }
    Image2D_Deformation& deformer = *deformers[0];
    bool ok;
    if (count == 2)
        ok = deformer.deformPairWithPivData(use[0], *deformers[1], use[1], *field);
    else if (use[0].mask)
        ok = deformer.deformWithMaskedPivData(*use[0].src, *use[0].dst, *use[0].mask, *field,
                                              use[0].factor);
    else
        ok = deformer.deformWithPivData(*use[0].src, *use[0].dst, *field, use[0].factor);
    if (!ok) {
        m_error.setMessage("deformImage() - trouble deforming image\n Reason: %s",
                           deformer.error().getLastError());
        m_error.handleError(PIVerror::OPERATION_FAILED, where);
        return false;
    }
    if (cancelRequested()) return true;
    for (int i = 0; i < count; i++)
        if (use[i].dst->isZero()) {
            m_error.setMessage("deformImage() - Deformed image contain no data");
            m_error.handleError(PIVerror::IMAGE_IS_NULL, where);
            return false;
        }
    return true;
}

bool PIV_Eval2D::deformImagePair(PIV_Data2D* field, bool finalPass) {
    if (!isImagePairValid()) return false;
    if (!field || !field->haveRawData()) {
        m_error.setMessage("deformImagePair() - missing displacement data!");
        m_error.handleError(PIVerror::CORRUPT_DATA, "deformImagePair()");
        return false;
    }
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    const Image2D* maskA = m_useMask ? m_pMaskA : nullptr;
    const Image2D* maskB = m_useMask ? (m_pMaskB ? m_pMaskB : m_pMaskA) : nullptr;
    char method[64], line[160];
    _getDeformationMethod(cfg, finalPass, method, sizeof(method));
    if (m_analysisMode == PIV::ANALYSIS_SPECKLE) {
        // Speckle images have a fixed reference: only the second one moves.
        if (!m_defImgA.resize(m_pImgA->size2D(), IMAGE_FLOAT)) return false;
        for (int j = 0; j < int(m_pImgA->height()); j++)
            m_pImgA->getRow(m_defImgA.scanLine<float>(uint64_t(j)), j);
        m_defImgA.doStatistics(true);
        return deformImage(m_pImgB, &m_defImgB, maskB, &m_deformB, field, -1.0, finalPass);
    }
    // Both frames in one pass, which samples the field once for the two.
    std::snprintf(line, sizeof(line), "  Deforming first image  (%s)", method);
    updateProgressDialog(line, true);
    std::snprintf(line, sizeof(line), "  Deforming second image (%s)", method);
    updateProgressDialog(line, true);
    return deformImages(DEFORM_FRAME{m_pImgA, &m_defImgA, maskA, 0.5}, &m_deformA,
                        DEFORM_FRAME{m_pImgB, &m_defImgB, maskB, -0.5}, &m_deformB, field,
                        finalPass);
}

bool PIV_Eval2D::copyImagesToDeformedImages() {
    if (!isImagePairValid()) return false;
    const Image2D* src[2] = {m_pImgA, m_pImgB};
    Image2D* dst[2] = {&m_defImgA, &m_defImgB};
    for (int i = 0; i < 2; i++) {
        if (!dst[i]->resize(src[i]->size2D(), IMAGE_FLOAT)) return false;
        for (int j = 0; j < int(src[i]->height()); j++)
            src[i]->getRow(dst[i]->scanLine<float>(uint64_t(j)), j);
        dst[i]->doStatistics(true);
    }
    return true;
}

void PIV_Eval2D::setIntermediateProcessing(bool on) {
    for (PIV_Corr2D* corr : m_corr) corr->setIntermediateProcessing(on);
}

bool PIV_Eval2D::buildSampleList(const DATA_GRID4D& grid, std::vector<CORR_SAMPLE_POS>& samples,
                                 const char* where) {
    const int nx = std::max(grid.nodes.width, 0), ny = std::max(grid.nodes.height, 0);
    try {
        samples.assign(size_t(nx) * size_t(ny), CORR_SAMPLE_POS());
    } catch (...) {
        m_error.setMessage("%s", where);
        m_error.handleError(PIVerror::ALLOCATION_FAILED, where);
        return false;
    }
    for (int j = 0, k = 0; j < ny; j++)
        for (int i = 0; i < nx; i++, k++) {
            CORR_SAMPLE_POS& s = samples[size_t(k)];
            const POINT3D p = PIV::GridNodePosition(grid, i, j);
            s.pos = POINT2D{p.x, p.y};
            s.offset = POINT2D{0, 0};
            s.enabled = true;
        }
    return true;
}

bool PIV_Eval2D::processDeformedImages(PIV_Data2D* field) {
    DebugPrint("PIV_Eval2D::processDeformedImages()");
    updateProgressDialog("PIV evaluation of deformed image", true);
    if (!field || field->isNull()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, "processDeformedImages()");
        return false;
    }
    setIntermediateProcessing(false);
    std::vector<CORR_SAMPLE_POS> samples;
    if (!buildSampleList(field->grid(), samples, "failed allocating list of samples")) return false;
    if (int(samples.size()) > field->nodeCount()) {
        m_error.handleError(PIVerror::GRID_MISMATCH, "processDeformedImages()");
        return false;
    }
    int good = 0;
    return processSampleList(samples.data(), int(samples.size()), field->data(),
                             m_params->pivEvalCfg(), true, &m_defImgA, &m_defImgB, nullptr, nullptr,
                             listMaskA(), listMaskB(), &good);
}

bool PIV_Eval2D::evalImageDef() {
    const char* where = "evalImageDef()";
    if (m_analysisMode == PIV::ANALYSIS_AUTO_CORRELATION) {
        m_error.setMessage(
            "evalImageDef() - Image deformation PIV not possible with double-exposed images");
        m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, where);
        return false;
    }
    if (m_analysisMode == PIV::ANALYSIS_SPECKLE) {
        m_error.setMessage(
            "evalImageDef() - Image deformation PIV not possible for disparity map calculation");
        m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, where);
        return false;
    }
    const PIV_PARAMETERS base = m_params->pivParameters();
    const PIVEVAL_CFG& cfg = base.eval;
    PIV_Data2D curData;
    if (!curData.create(cfg.grid)) {
        m_error.setMessage("evalImageDef() - failed creating intermediate data set");
        m_error.handleError(PIVerror::ALLOCATION_FAILED, where);
        return false;
    }
    PIV_Data2D prevData;
    prevData = *m_data;
    DebugPrint("initial image offset: %d %d", cfg.SampleOffset.x, cfg.SampleOffset.y);
    m_data->initShift(float(cfg.SampleOffset.x), float(cfg.SampleOffset.y), 0.0f);
    m_data->setFlagRawData(true);
    m_data->setFlagIntermediateData(true);
    m_deformA.clearSplineCoeffs();
    m_deformB.clearSplineCoeffs();
    const double maximum = std::max(const_cast<Image2D*>(m_pImgA)->maximum(),
                                    const_cast<Image2D*>(m_pImgB)->maximum());
    const int passes = std::max(cfg.Passes, 1);
    int kernel = 2 * passes - 1;
    char method[64];
    std::vector<CORR_SAMPLE_POS> samples;

    for (int pass = 1; pass <= passes; pass++) {
        const bool final = pass == passes;
        DebugPrint("========== ImageDef PASS %d of %d ==============", pass, passes);
        _getDeformationMethod(cfg, final, method, sizeof(method));
        std::snprintf(m_status, sizeof(m_status),
                      "Image deformation pass %d of %d  - Deforming Images (%s)", pass, passes,
                      method);
        updateProgressDialog(m_status, true);
        m_data->setFlagIntermediateData(!final);
        if (!final && m_showProgress) showNewPivData();
        if (!deformImagePair(m_data, final)) {
            if (cancelRequested()) return false;
            std::snprintf(m_status, sizeof(m_status), "Image Deformation failed\nReason: %.900s",
                          getLastError());
            return false;
        }
        if (cfg.ImageMapping2D.StoreAll || (final && cfg.ImageMapping2D.StoreFinal))
            saveDeformedImagePair(cfg.ImageMapping2D.FilePrefix, pass, maximum);

        // This pass's settings: the images are already moved, so no offset,
        // and a validation that fills what it rejects until the last pass.
        PIV_PARAMETERS p = base;
        p.eval.SampleOffset = POINT3D{0, 0, 0};
        p.eval.grid.imageSize = SIZE3D{int(m_defImgA.width()), int(m_defImgA.height()), 1};
        OUTLIER_CFG& o = p.outlier;
        o.Enable = true;
        o.CheckMedian = true;
        o.CheckDisplacement = o.CheckDifference = o.CheckDynMean = false;
        if (cfg.Method != PIV::METHOD_SINGLE_PASS) {
            o.MaxDifference = 4.0f;
            o.NormalizedMedianThreshold = 4.0f;
        }
        if (!final) {
            o.InterpolateOutliers = true;
            o.TryOtherPeaks = false;
        }
        PIV::CreateDataGrid4D(p.eval.grid, p.eval.SampleSize);
        if (!final)
            p.eval.Type = (cfg.SpeedOptimization & 0x1000) ? int(PIV::PEAKFIT_GAUSS_3X3)
                                                           : std::min(p.eval.Type, 4);
        if (final && cfg.FinalROI) {
            p.eval.ROI_Size.width = std::min(p.eval.ROI_Size.width, cfg.FinalROI_Size.width);
            p.eval.ROI_Size.height = std::min(p.eval.ROI_Size.height, cfg.FinalROI_Size.height);
            DebugPrintExt(1, "Reducing peak search area on final pass: +/-%d px",
                          p.eval.ROI_Size.width);
        }
        updateCorrelator(p.eval);
        setIntermediateProcessing(!final);

        if (!curData.create(p.eval.grid)) {
            m_error.setMessage("evalImageDef() - failed creating final interrogation grid");
            m_error.handleError(PIVerror::OPERATION_FAILED, where);
            return false;
        }
        if (curData.nodeCount() != m_data->nodeCount()) {
            DebugPrint("grid size mismatch...");
            m_error.handleError(PIVerror::GRID_MISMATCH, where);
            return false;
        }
        curData.setPivParameters(p);
        curData.setAnalysisMode(m_analysisMode);
        std::snprintf(m_status, sizeof(m_status), "  PIV interrogation... (Pass %d of %d)", pass,
                      passes);
        updateProgressDialog(m_status, true);
        if (!buildSampleList(p.eval.grid, samples, "evalImageDef() - sample list")) return false;
        int good = 0;
        if (!processSampleList(samples.data(), int(samples.size()), curData.data(), p.eval, false,
                               &m_defImgA, &m_defImgB, nullptr, nullptr, listMaskA(), listMaskB(),
                               &good))
            return false;
        if (cfg.SelfCorrelation_Eliminate) {
            int disabled = 0;
            PIV_VECTOR* c = curData.data();
            const PIV_VECTOR* m = m_data->data();
            for (int k = 0; k < curData.nodeCount(); k++)
                disabled +=
                    PIV::EliminateZeroPeak(c[k], m[k].dx, m[k].dy, cfg.SelfCorrelation_Radius);
            DebugPrintExt(2, "  disabled %d self-correlation vectors", disabled);
        }
        curData.setFlagRawData(true);
        curData.setFlagMultiplePeaks(true);
        curData.doStatistics();
        curData.validate(o, true);
        if (!final) {
            const int size = pass == passes - 1 ? 3 : (kernel < 6 ? kernel : 5);
            const double overlap =
                std::max(1.0 - double(p.eval.grid.step.width) / p.eval.SampleSize.width,
                         1.0 - double(p.eval.grid.step.height) / p.eval.SampleSize.height);
            const double sigma = 0.5 + overlap;
            DebugPrintExt(2, "pass %d - smoothing(%g)  median(%d)  sample overlap(%g)", pass, sigma,
                          size, overlap);
            curData.setFlagMedianFiltered(false);
            curData.setFlagSmoothed(false);
            curData.medianFilter(size, false);
            curData.smoothGauss(sigma, 0.05, false);
            PIV_VECTOR* c = curData.data();
            for (int k = 0; k < curData.nodeCount(); k++)
                c[k].peak[0] = PIV_PEAK{c[k].dx, c[k].dy, c[k].peak[0].value};
        }
        m_data->updateShift(curData, true, PIV::INTERPOLATE_BILINEAR);
        applyMasks();
        m_data->validate(o, true);
        applyMasks();
        m_data->doStatistics();

        // The status: where the field stands and how much this pass moved it.
        const int n = m_data->nodeCount();
        const ComponentStats now = Stats(m_data->data(), n, nullptr);
        const ComponentStats diff = prevData.nodeCount() == n
                                        ? Stats(m_data->data(), n, prevData.data())
                                        : ComponentStats();
        if (prevData.nodeCount() != n)
            PrintWarning("_formatIntermediateResult() - mismatched grid");
        std::snprintf(m_status, sizeof(m_status),
                      "%s - Iteration %d of %d\n  Displacements:\n"
                      "    Dx = %8.3f +/- %7.3f (Range %8.3f %8.3f)\n"
                      "    Dy = %8.3f +/- %7.3f (Range %8.3f %8.3f)\n  Current differences:\n"
                      "    Dx = %8.4f +/- %7.4f (Range %8.3f %8.3f)\n"
                      "    Dy = %8.4f +/- %7.4f (Range %8.3f %8.3f)\n",
                      "Image deformation PIV", pass, passes, now.mean[0], now.dev[0], now.low[0],
                      now.high[0], now.mean[1], now.dev[1], now.low[1], now.high[1], diff.mean[0],
                      diff.dev[0], diff.low[0], diff.high[0], diff.mean[1], diff.dev[1],
                      diff.low[1], diff.high[1]);
        prevData = *m_data;
        showStatusMessage(m_status);
        kernel -= 2;
    }
    updateCorrelator(cfg);
    return true;
}

void PIV_Eval2D::saveDeformedImagePair(const char* prefix, int pass, double maximum) {
    const int bits = maximum > 255.0 ? 16 : 8;
    const Image2D* images[2] = {&m_defImgA, &m_defImgB};
    for (int i = 0; i < 2; i++) {
        Image2D copy;
        if (!copy.copy(*images[i])) continue;
        copy.clipRange(0.0, maximum > 0.0 ? maximum : 255.0);
        if (!copy.convertToType(bits == 8 ? IMAGE_UINT8 : IMAGE_UINT16)) {
            PrintWarning("unsupported image depth (%d) for storage of deformed image\n", bits);
            continue;
        }
        char name[2200];
        std::snprintf(name, sizeof(name), "%s_%d_%d.%s", prefix && prefix[0] ? prefix : "deform_",
                      pass, i + 1, "tif");
        if (!copy.save(name, PIV::FORMAT_TIFF)) PrintWarning("could not store %s", name);
    }
}
