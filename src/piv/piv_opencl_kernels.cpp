#include "piv_opencl_context.h"

#if defined(KELVANE_HAVE_OPENCL)

// The steps of the CPU correlator around its transforms, window by window
// of a batch: the same arithmetic in the same order where the results
// depend on it (weights in float before the double sums, means rounded to
// float, the |a| of the phase-only filter).
const char* const PIV::OpenCL::kKernelSource = R"CLC(
#pragma OPENCL EXTENSION cl_khr_fp64 : enable
#define GROUP 64

// The work group's partial sums of two quantities, summed into element 0 of
// each; every work item of the group must call it.
void sum_pair(__local double* partA, __local double* partB, int lid) {
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int s = GROUP / 2; s > 0; s >>= 1) {
        if (lid < s) {
            partA[lid] += partA[lid + s];
            partB[lid] += partB[lid + s];
        }
        barrier(CLK_LOCAL_MEM_FENCE);
    }
}

// One work group per window. corners: ax, ay, bx, by. The samples land in
// rows of `stride` floats, the in-place layout of the real transform.
__kernel __attribute__((reqd_work_group_size(GROUP, 1, 1)))
void sample_windows(__global const float* imgA, __global const float* imgB, int imgWidth,
                    __global const int* corners, __global const float* weights, int useWeights,
                    int w, int h, int stride, __global float* sa, __global float* sb,
                    __global float* norms) {
    const int win = get_group_id(0);
    const int lid = get_local_id(0);
    __local double partA[GROUP], partB[GROUP];
    const int ax = corners[4 * win], ay = corners[4 * win + 1];
    const int bx = corners[4 * win + 2], by = corners[4 * win + 3];
    __global float* a = sa + (size_t)win * stride * h;
    __global float* b = sb + (size_t)win * stride * h;
    const int n = w * h;
    double sumA = 0.0, sumB = 0.0;
    for (int c = lid; c < n; c += GROUP) {
        const int x = c % w, y = c / w;
        float va = imgA[(size_t)(ay + y) * imgWidth + ax + x];
        if (useWeights) va *= weights[y * stride + x];
        const float vb = imgB[(size_t)(by + y) * imgWidth + bx + x];
        a[y * stride + x] = va;
        b[y * stride + x] = vb;
        sumA += va;
        sumB += vb;
    }
    partA[lid] = sumA;
    partB[lid] = sumB;
    sum_pair(partA, partB, lid);
    const float meanA = (float)(partA[0] / (double)n), meanB = (float)(partB[0] / (double)n);
    barrier(CLK_LOCAL_MEM_FENCE);
    double sqA = 0.0, sqB = 0.0;
    for (int c = lid; c < n; c += GROUP) {
        const int i = (c / w) * stride + c % w;
        const float va = a[i] - meanA, vb = b[i] - meanB;
        a[i] = va;
        b[i] = vb;
        sqA += va * va;
        sqB += vb * vb;
    }
    partA[lid] = sqA;
    partB[lid] = sqB;
    sum_pair(partA, partB, lid);
    if (lid == 0) norms[win] = sqrt((float)partA[0] * (float)partB[0]);
}

// One work item per complex cell; the cross power replaces the spectrum of A.
__kernel void cross_power(__global float2* specA, __global const float2* specB, int w, int h,
                          float scale, int phaseOnly, int nyquist) {
    const size_t g = get_global_id(0);
    const int hc = w / 2 + 1;
    const int cell = (int)(g % (size_t)(hc * h));
    const float2 A = specA[g], B = specB[g];
    float re = (A.x * B.x + A.y * B.y) * scale;
    float im = (A.x * B.y - A.y * B.x) * scale;
    if (phaseOnly) {
        // |a|, not |a|^2: the filter of the CPU correlator, asymmetric on purpose.
        const float den = sqrt((B.x * B.x + B.y * B.y) * sqrt(A.x * A.x + A.y * A.y));
        if (den != 0.0f) {
            re /= den;
            im /= den;
        }
    }
    if (nyquist) {
        const int k = (h / 2) * hc - 1;
        if (cell == k || cell == k - 1 || cell == k - hc || cell == k - hc - 1 ||
            cell == k + hc || cell == k + hc - 1)
            re = im = 0.0f;
    }
    specA[g] = (float2)(re, im);
}

// After the Nyquist cells: their column x = w/2 is no longer Hermitian, and
// what an inverse real transform makes of such a column is the transform's
// own choice. FFTW's, that of the CPU correlator, is the real part of the
// column's inverse, i.e. the inverse of its Hermitian part: that part is
// what every transform reads alike. One work item per window.
__kernel void hermitian_column(__global float2* spectra, int w, int h) {
    const int hc = w / 2 + 1;
    __global float2* col = spectra + (size_t)get_global_id(0) * hc * h + w / 2;
    for (int y = 0; y <= h / 2; y++) {
        const int p = (h - y) % h;
        const float2 a = col[(size_t)y * hc], b = col[(size_t)p * hc];
        const float2 m = (float2)(0.5f * (a.x + b.x), 0.5f * (a.y - b.y));
        col[(size_t)y * hc] = m;
        col[(size_t)p * hc] = (float2)(m.x, -m.y);
    }
}

// The planes, compact and divided by their norm factors.
__kernel void normalize_planes(__global const float* real, __global const float* norms,
                               int w, int h, int stride, __global float* planes) {
    const size_t g = get_global_id(0);
    const size_t n = (size_t)w * h;
    const size_t win = g / n;
    const int c = (int)(g % n);
    const float f = norms[win];
    const float v = real[win * stride * h + (size_t)(c / w) * stride + c % w];
    planes[g] = f != 0.0f ? v / f : v;
}
// The peak search of the CPU detector over the planes, one work item per
// window, in the CPU's order: rows top to bottom, each left to right, so
// that of equal candidates the first found ranks ahead, as there. Records
// laid out as PIV_PEAK_SCAN. A candidate of the multiple search is strictly
// above its four periodic neighbours; the single search takes every cell. A
// local search keeps to the cells within hx columns and hy rows of zero
// displacement.
typedef struct {
    float min, max, meanSquare;
    int count;
    int row[3], col[3];
    float value[27];
} peak_scan;

__kernel void peak_scan_planes(__global const float* planes, int w, int h, int multiple,
                               int nearZero, int hx, int hy, int windows,
                               __global peak_scan* scans) {
    const int win = get_global_id(0);
    if (win >= windows) return;
    __global const float* p = planes + (size_t)win * w * h;
    const int keep = multiple ? 3 : 1;
    float lo = p[0], hi = p[0];
    double sq = 0.0;
    float top[3];
    int topRow[3], topCol[3];
    int count = 0;
    // The single search starts from the cell at zero displacement.
    if (!multiple) {
        top[0] = p[0];
        topRow[0] = topCol[0] = 0;
        count = 1;
    }
    for (int y = 0; y < h; y++) {
        __global const float* line = p + y * w;
        __global const float* up = p + (y == 0 ? h - 1 : y - 1) * w;
        __global const float* down = p + (y == h - 1 ? 0 : y + 1) * w;
        const bool rowIn = !nearZero || y <= hy || y >= h - hy;
        for (int x = 0; x < w; x++) {
            const float v = line[x];
            lo = v < lo ? v : lo;
            hi = v > hi ? v : hi;
            sq += (double)v * (double)v;
            if (!rowIn || (nearZero && !(x <= hx || x >= w - hx))) continue;
            if (count == keep && !(v > top[keep - 1])) continue;
            if (multiple && !(v > line[x == 0 ? w - 1 : x - 1] && v > line[x == w - 1 ? 0 : x + 1] &&
                              v > up[x] && v > down[x]))
                continue;
            int place = 0;
            while (place < count && !(v > top[place])) place++;
            for (int k = min(count, keep - 1); k > place; k--) {
                top[k] = top[k - 1];
                topRow[k] = topRow[k - 1];
                topCol[k] = topCol[k - 1];
            }
            top[place] = v;
            topRow[place] = y;
            topCol[place] = x;
            count = min(count + 1, keep);
        }
    }
    __global peak_scan* s = scans + win;
    s->min = lo;
    s->max = hi;
    s->meanSquare = (float)(sq / (double)(w * h));
    s->count = count;
    // The neighbourhoods in the order of CORR_PEAK_DATA::value.
    const int dRow[9] = {0, -1, 1, 0, 0, -1, 1, -1, 1};
    const int dCol[9] = {0, 0, 0, 1, -1, -1, -1, 1, 1};
    for (int k = 0; k < 3; k++) {
        s->row[k] = k < count ? topRow[k] : 0;
        s->col[k] = k < count ? topCol[k] : 0;
        for (int m = 0; m < 9; m++) {
            float v = 0.0f;
            if (k < count) {
                const int y = (topRow[k] + dRow[m] + h) % h, x = (topCol[k] + dCol[m] + w) % w;
                v = p[y * w + x];
            }
            s->value[9 * k + m] = v;
        }
    }
}
)CLC";

#endif
