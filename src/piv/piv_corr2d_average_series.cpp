// An ensemble run over a list of pairs: pass after pass, each on its share
// of the pairs, each taking its window offsets from the field of the pass
// before.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "piv_corr2d_average.h"
#include "piv_data2d.h"
#include "piv_filelist.h"
#include "piv_image2d.h"
#include "piv_messages.h"
#include "piv_params.h"

namespace {

bool _fileExists(const char* path) {
    struct stat st;
    return path && path[0] && ::stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

double _seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The pass's settings on images binned by its desample factor.
PIVEVAL_CFG _passCfg(PIVEVAL_CFG cfg, const CORR_AVERAGE_PASS& pass) {
    const int d = std::max(1, pass.desample);
    cfg.SampleSize = SIZE3D{pass.window.width / d, pass.window.height / d, 1};
    cfg.FFTSize = cfg.SampleSize;
    cfg.ScanRange = SIZE3D{pass.scan.width / d, pass.scan.height / d, 0};
    cfg.grid.step = SIZE3D{std::max(1, pass.step.width / d), std::max(1, pass.step.height / d), 1};
    return cfg;
}

}  // namespace

bool PIV_Corr2D_Average::processImageSeries(const FilePairList* list) {
    const auto start = std::chrono::steady_clock::now();
    m_totalTime = 0.0;
    // The field of an earlier run must not pass for the result of this one.
    m_data->clear();
    m_data->setFlagRawData(false);
    if (!buildEnsembleCorrSteps(m_avg.printSteps)) return false;
    const PIVEVAL_CFG base = m_params->pivEvalCfg();
    const std::string stub = m_avg.workFile[0] ? m_avg.workFile : "enscorr";
    const std::string work = m_avg.workDir[0] ? std::string(m_avg.workDir) + "/" + stub : stub;
    const int passes = int(m_passes.size());
    bool ok = true;
    for (int pass = 0; pass < passes && ok; pass++) {
        const CORR_AVERAGE_PASS& p = m_passes[size_t(pass)];
        m_params->setPivEvalCfg(_passCfg(base, p), true);
        clearCorrPlanes();
        m_sampledOffGrid = false;
        // The offsets come in full-size pixels; a binned pass needs its own.
        PIV_Data2D* held = m_offsetData;
        if (held && !held->isNull() && p.desample > 1) {
            held->addRef();
            auto* scaled = new PIV_Data2D();
            *scaled = *held;
            scaled->scaleGridAndData(1.0f / float(p.desample));
            setOffsetData(scaled);
            scaled->release();
        } else {
            held = nullptr;
        }
        setFlagFinalPass(pass == passes - 1);
        ok = runPass(list, pass);
        if (held) {
            setOffsetData(held);
            held->release();
        }
        if (ok) ok = finishPass(pass);
        if (ok && pass < passes - 1) {
            // The next pass starts from this field, in full-size pixels.
            auto* next = new PIV_Data2D();
            *next = *m_data;
            next->scaleGridAndData(float(p.desample));
            if (m_avg.validateIntermediate) next->validate(m_params->outlierCfg(), true);
            next->postProcess(m_params, nullptr, true);
            setOffsetData(next);
            next->release();
            if (m_avg.saveIntermediate) {
                char name[2200];
                std::snprintf(name, sizeof(name), "%s_tmp%d", work.c_str(), pass + 1);
                const std::string field = std::string(name) + ".nc";
                if (m_data->saveNetCDF(field.c_str()))
                    DebugPrint(" Intermediate displacement data stored in '%s'", field.c_str());
                const std::string tif = std::string(name) + "_corr.tif";
                Image2D image;
                if (!createImage(&image, false, true))
                    showErrorMessage("could not create image of averaged cross-correlation maps!");
                else if (!image.save(tif.c_str()))
                    PrintWarning(
                        "could not store image of averaged cross-correlation maps in: '%s'",
                        tif.c_str());
                else
                    DebugPrint("\n Intermediate correlation image stored in '%s'", tif.c_str());
            }
        }
    }
    m_params->setPivEvalCfg(_passCfg(base, m_passes.back()), false);
    m_totalTime = _seconds(start);
    if (ok) DebugPrint(" Entire processing took %g seconds ", m_totalTime);
    return ok;
}

bool PIV_Corr2D_Average::runPass(const FilePairList* list, int pass) {
    const char* where = "processImageSeries()";
    const CORR_AVERAGE_PASS& p = m_passes[size_t(pass)];
    const int files = list ? list->count() : 0;
    const int stride = std::max(1, p.fileStride);
    const int wanted = (files + stride - 1) / stride;
    PIV_Image2D a(PIV_IMAGE_A), b(PIV_IMAGE_B);
    a.setImageCfg(m_imageCfg);
    b.setImageCfg(m_imageCfg);
    Image2D binA, binB;
    SIZE2D size{0, 0};
    int done = 0;
    for (int i = 0; i < files; i += stride) {
        if (wasCancelled()) {
            m_error.setMessage("processImageSeries() - cancelled in pass %d", pass + 1);
            return fail(PIVerror::OPERATION_FAILED, where);
        }
        const FILE_PAIR& pair = list->filePair(i);
        char text[4400];
        std::snprintf(text, sizeof(text), "Processing pass %d of %d -- ( %d of %d files) ",
                      pass + 1, int(m_passes.size()), done + 1, wanted);
        showStatusMessage(text);
        std::snprintf(text, sizeof(text), "  %s  %s", pair.fileA, pair.fileB);
        showProgressMessage2(text);
        const char* missing = !_fileExists(pair.fileA)   ? "  First image file not found: %s"
                              : !_fileExists(pair.fileB) ? "  Second image file not found: %s"
                                                         : nullptr;
        if (missing) {
            m_error.setMessage(missing, _fileExists(pair.fileA) ? pair.fileB : pair.fileA);
            return fail(PIVerror::FILE_NOT_FOUND, where);
        }
        for (PIV_Image2D* f : {&a, &b}) {
            const char* name = f == &a ? pair.fileA : pair.fileB;
            if (!f->load(name, false)) {
                m_error.setMessage("image could not be read: '%s'", name);
                return fail(PIVerror::FILE_READ_FAILED, where);
            }
            const SIZE2D s{int(f->width()), int(f->height())};
            if (size.width == 0) size = s;
            if (s.width != size.width || s.height != size.height) {
                m_error.setMessage("'%s' is %dx%d, the series %dx%d", name, s.width, s.height,
                                   size.width, size.height);
                return fail(PIVerror::IMAGE_SIZE_MISMATCH, where);
            }
        }
        if (!preProcessImages(&a, &b)) return false;
        const Image2D* fa = &a;
        const Image2D* fb = &b;
        if (p.desample > 1) {
            if (!binA.binning(a, p.desample) || !binB.binning(b, p.desample)) {
                m_error.setMessage("images could not be binned by %d", p.desample);
                return fail(PIVerror::OPERATION_FAILED, where);
            }
            fa = &binA;
            fb = &binB;
        }
        if (m_planes.empty() && !initializeGrid(int(fa->width()), int(fa->height()))) return false;
        if (!processImagePair(fa, fb)) return false;
        done++;
        if (m_progressEnabled) showProgressSeries(done, wanted);
    }
    return true;
}

bool PIV_Corr2D_Average::finishPass(int pass) {
    const char* where = "processImageSeries()";
    if (m_imagesProcessed == 0 || m_imagesProcessed < m_avg.minFiles) {
        m_error.setMessage("processImageSeries() - no images were processed!");
        return fail(PIVerror::OPERATION_FAILED, where);
    }
    const auto start = std::chrono::steady_clock::now();
    const bool final = pass == int(m_passes.size()) - 1;
    if (!computePivData(final ? m_avg.peakFitMethod : m_params->pivEvalCfg().Type, !final)) {
        m_error.setMessage("correlation data could not be extracted!");
        return fail(PIVerror::OPERATION_FAILED, where);
    }
    DebugPrint(" %g seconds\n Post-processing... ", _seconds(start));
    const auto post = std::chrono::steady_clock::now();
    m_data->postProcess(m_params, nullptr, true);
    DebugPrint("  %g seconds=", _seconds(post));
    m_data->setFlagSampledOffGrid(m_sampledOffGrid);
    return true;
}
