// The sample list on an OpenCL device: corners and mask test here, as the
// CPU correlator makes them, so that sliding and the masked windows match
// by construction; the planes and the peak search there, the fits here
// again. The fits that read more than a 3x3 neighbourhood get whole planes
// back and search them here.
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "piv_enums.h"
#include "piv_eval2d.h"
#include "piv_messages.h"
#include "piv_opencl.h"
#include "piv_opencl_batch.h"
#include "piv_opencl_context.h"
#include "piv_util.h"

bool PIV_Eval2D::deviceTakesSettings() const {
    if (m_crossPairCorrelation || m_corr.empty()) return false;
    PIV_Corr2D* first = m_corr[0];
    const PIVEVAL_CFG& cfg = first->pivEvalCfg();
    if (cfg.CorrelationMode != PIV::CORR_CROSS && cfg.CorrelationMode != PIV::CORR_PHASE_ONLY)
        return false;
    // The 2-D Gaussian fit stays here: a window whose peak fails the shape
    // check makes its correlator take the next window's autocorrelation,
    // which the device does not make, and which window that is depends on
    // the CPU's round-robin order of windows.
    if (cfg.MultiCorr || cfg.Type == PIV::PEAKFIT_NONLIN_GAUSS ||
        first->fft().keepsAutoCorrelation())
        return false;
    const SIZE2D size = first->getFFTSize();
    for (PIV_Corr2D* corr : m_corr) {
        const SIZE2D s = corr->getFFTSize();
        if (s.width != size.width || s.height != size.height) return false;
    }
    return size.width > 0 && size.height > 0;
}

bool PIV_Eval2D::processSampleListOnDevice(CORR_SAMPLE_POS* samples, int count, PIV_VECTOR* data,
                                           bool accumulate, const Image2D* a, const Image2D* b,
                                           const Image2D* maskA, const Image2D* maskB, int* good,
                                           bool& result) {
    if (!deviceTakesSettings() || !a || !b) return false;
    // The device samples both frames with one width and pixel type.
    const SIZE2D sizeA = a->size2D(), sizeB = b->size2D();
    if (sizeA.width != sizeB.width || sizeA.height != sizeB.height || a->type() != b->type())
        return false;
    const int workers = std::max(1, std::min(int(m_corr.size()), PIV::MaxThreads()));
    // The list and field change only when the device got through: a failure
    // halfway leaves the CPU a list as it came (accumulate adds to it).
    std::vector<CORR_SAMPLE_POS> list(samples, samples + count);
    std::vector<PIV_VECTOR> out(data, data + count);
    std::vector<POINT2D> placed(size_t(count), POINT2D{0, 0});
    std::vector<int> code(size_t(count), 0);
    std::vector<int> corners(4 * size_t(count), 0);
    // An exception may not leave a parallel loop: a worker notes it here, as
    // on the CPU path, and the list fails once the loop is done.
    std::atomic<int> failure{PIVerror::NO_ERROR};
    auto guarded = [&failure](auto&& work) {
        try {
            work();
        } catch (const std::bad_alloc&) {
            failure = PIVerror::ALLOCATION_FAILED;
        } catch (...) {
            failure = PIVerror::INTERNAL_ERROR;
        }
    };
#pragma omp parallel for num_threads(workers) schedule(static)
    for (int k = 0; k < count; k++) {
        if (!list[size_t(k)].enabled) continue;
        guarded([&] {
            PIV_Corr2D* corr = m_corr[size_t(omp_get_thread_num())];
            POINT2D pos = list[size_t(k)].pos, pa{0, 0}, pb{0, 0};
            if (!corr->placeWindows(a, maskA, maskB, &pos, list[size_t(k)].offset, pa, pb))
                code[size_t(k)] = corr->lastErrorCode() ? corr->lastErrorCode()
                                                        : int(PIVerror::CORRELATION_FAILED);
            placed[size_t(k)] = pos;
            const int c[4] = {pa.x, pa.y, pb.x, pb.y};
            std::memcpy(&corners[4 * size_t(k)], c, sizeof c);
        });
    }
    if (failure != PIVerror::NO_ERROR) return false;  // the CPU path meets it again
    int total = 0;
    std::vector<int> index;
    std::vector<int> sent;
    for (int k = 0; k < count; k++) {
        if (!list[size_t(k)].enabled) continue;
        if (code[size_t(k)] != 0) {
            finishWindow(m_corr[0], k, list[size_t(k)], out[size_t(k)], placed[size_t(k)],
                         code[size_t(k)], accumulate);
            continue;
        }
        index.push_back(k);
        sent.insert(sent.end(), &corners[4 * size_t(k)], &corners[4 * size_t(k)] + 4);
    }

    PIV_Corr2D* first = m_corr[0];
    const PIVEVAL_CFG& cfg = first->pivEvalCfg();
    const SIZE2D size = first->getFFTSize();
    PIV::DEVICE_CORR_JOB job{};
    job.a = a;
    job.b = b;
    job.width = size.width;
    job.height = size.height;
    job.correlationMode = cfg.CorrelationMode;
    job.nyquist = cfg.CorrFilter_Nyquist;
    job.weights =
        cfg.CorrFilter_WindowType != PIV::FFTWINDOW_NONE ? first->fft().weights() : nullptr;
    job.corners = sent.data();
    job.count = int(index.size());
    job.scanPeaks = !PIV::PeakFitNeedsPlane(cfg.Type);
    job.peakMode = first->peakSearchMode();
    job.localSearch = cfg.ROI;
    const SIZE2D half = PIV::PeakSearchHalf(cfg, size);
    job.searchHalfX = half.width;
    job.searchHalfY = half.height;
    const size_t cells = size_t(size.width) * size_t(size.height);
    const int steps = 100;
    auto sink = [&](int from, int n, const float* planes, const PIV_PEAK_SCAN* scans,
                    const float* norms) {
        int mine = 0;
#pragma omp parallel for num_threads(workers) schedule(static) reduction(+ : mine)
        for (int i = 0; i < n; i++) {
            guarded([&] {
                PIV_Corr2D* corr = m_corr[size_t(omp_get_thread_num())];
                const int k = index[size_t(from + i)];
                int why = 0;
                if (!(norms[i] > 0.0f))
                    why = PIVerror::CORRELATION_FAILED;  // an empty window, as the CPU fails it
                else if (planes)
                    std::memcpy(corr->fft().corr(), planes + size_t(i) * cells,
                                cells * sizeof(float));
                if (finishWindow(corr, k, list[size_t(k)], out[size_t(k)], placed[size_t(k)], why,
                                 accumulate, scans ? scans + i : nullptr))
                    mine++;
            });
        }
        total += mine;
        if (failure != PIVerror::NO_ERROR) return false;
        showProgress(int(long(from + n) * steps / std::max<long>(1, long(index.size()))), steps);
        return !cancelRequested();
    };
    std::string why;
    if (!index.empty() && !PIV::CorrelateOnDevice(job, sink, why)) {
        PrintWarning("OpenCL correlation failed (%s); the evaluation continues on the CPU",
                     why.c_str());
        // The device's memory goes back too: the process carries on without it.
        PIV::OpenCL::FallBackToCPU();
        showProgress(-1, steps);
        return false;
    }
    showProgress(-1, steps);
    if (failure != PIVerror::NO_ERROR) {
        m_error.setMessage("processSampleListOnDevice() - a worker stopped");
        m_error.handleError(failure, "processSampleListOnDevice()");
        result = false;
        return true;
    }
    std::copy(list.begin(), list.end(), samples);
    std::copy(out.begin(), out.end(), data);
    if (good) *good = total;
    result = !m_cancelled;
    return true;
}
