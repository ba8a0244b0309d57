#include "ptv_regions.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "piv_messages.h"

namespace {

// Union-find over provisional labels; the smaller root wins, so that the
// final numbering follows the raster order of first pixels.
struct Equivalences {
    std::vector<uint32_t> parent{0};
    uint32_t make() {
        parent.push_back(uint32_t(parent.size()));
        return uint32_t(parent.size() - 1);
    }
    uint32_t find(uint32_t a) {
        while (parent[a] != a) a = parent[a] = parent[parent[a]];
        return a;
    }
    void join(uint32_t a, uint32_t b) {
        a = find(a);
        b = find(b);
        if (a < b)
            parent[b] = a;
        else if (b < a)
            parent[a] = b;
    }
};

}  // namespace

namespace PIV {

bool LabelRegions(const Image2D* source, Image2D& labels, int* count, int threshold,
                  int connectivity, PIVerror* owner) {
    PIVerror local("PIV");
    PIVerror& error = owner ? *owner : local;
    return Guarded(error, "LabelRegions()", [&] {
        if (!source || source->isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (source->type() != IMAGE_UINT8) {
            error.setMessage("LabelRegions() - only supports 8-bit images");
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        const int w = int(source->width()), h = int(source->height());
        if (!labels.alloc(w, h, IMAGE_UINT32) || !labels.erase()) {
            error.setMessage("LabelRegions() - failed creating label image");
            throw PIVerror::ALLOCATION_FAILED;
        }
        const int level = std::max(threshold, 0);
        const bool eight = connectivity == 8;
        Equivalences eq;
        for (int y = 0; y < h; y++) {
            const uint8_t* src = source->scanLine<uint8_t>(y);
            uint32_t* lab = labels.scanLine<uint32_t>(y);
            const uint32_t* up = y > 0 ? labels.scanLine<uint32_t>(y - 1) : nullptr;
            for (int x = 0; x < w; x++) {
                if (src[x] <= level) continue;
                uint32_t seen[4];
                int n = 0;
                if (x > 0 && lab[x - 1]) seen[n++] = lab[x - 1];
                if (up) {
                    if (up[x]) seen[n++] = up[x];
                    if (eight && x > 0 && up[x - 1]) seen[n++] = up[x - 1];
                    if (eight && x + 1 < w && up[x + 1]) seen[n++] = up[x + 1];
                }
                if (n == 0) {
                    lab[x] = eq.make();
                    continue;
                }
                lab[x] = *std::min_element(seen, seen + n);
                for (int i = 0; i < n; i++) eq.join(lab[x], seen[i]);
            }
        }
        // Renumber the roots 1..n without gaps.
        std::vector<uint32_t> final(eq.parent.size(), 0);
        uint32_t next = 0;
        for (uint32_t l = 1; l < eq.parent.size(); l++) {
            const uint32_t r = eq.find(l);
            final[l] = r == l ? ++next : final[r];
        }
        for (int y = 0; y < h; y++) {
            uint32_t* lab = labels.scanLine<uint32_t>(y);
            for (int x = 0; x < w; x++) lab[x] = final[lab[x]];
        }
        if (count) *count = int(next);
        DebugPrintExt(1, "LabelRegions() - %d-connectivity: found %d blobs at threshold %d",
                      eight ? 8 : 4, int(next), level);
    });
}

bool ExtractBlobs(const Image2D& source, const Image2D* labels, PixelGroup* groups, int count,
                  PIVerror* owner) {
    PIVerror local("PIV");
    PIVerror& error = owner ? *owner : local;
    return Guarded(error, "ExtractBlobs()", [&] {
        if (!labels || labels->isNull() || labels->type() != IMAGE_UINT32 ||
            !labels->isSameSize(source, false)) {
            error.setMessage("ExtractBlobs() - missing label image ");
            throw PIVerror::IMAGE_IS_NULL;
        }
        if (!groups || count < 0) {
            error.setMessage("ExtractBlobs() - missing blob list");
            throw PIVerror::INVALID_POINTER;
        }
        const int w = int(labels->width()), h = int(labels->height());
        std::vector<int> pixels(size_t(count) + 1, 0);
        for (int y = 0; y < h; y++) {
            const uint32_t* lab = labels->scanLine<uint32_t>(y);
            for (int x = 0; x < w; x++)
                if (lab[x] > 0 && lab[x] <= uint32_t(count)) pixels[lab[x]]++;
        }
        for (int i = 0; i < count; i++) {
            PixelGroup& g = groups[i];
            g = PixelGroup();
            g.pixels.reserve(size_t(pixels[size_t(i) + 1]));
            g.left = w;
            g.top = h;
            g.right = g.bottom = -1;
        }
        std::vector<float> row(static_cast<size_t>(w));
        for (int y = 0; y < h; y++) {
            const uint32_t* lab = labels->scanLine<uint32_t>(y);
            source.getRow(row.data(), y);
            for (int x = 0; x < w; x++) {
                if (lab[x] == 0 || lab[x] > uint32_t(count)) continue;
                PixelGroup& g = groups[lab[x] - 1];
                g.pixels.push_back(PIXEL_VALUE{x, y, row[size_t(x)]});
                g.left = std::min(g.left, x);
                g.right = std::max(g.right, x);
                g.top = std::min(g.top, y);
                g.bottom = std::max(g.bottom, y);
            }
        }
        for (int i = 0; i < count; i++) {
            PixelGroup& g = groups[i];
            g.count = int(g.pixels.size());
            if (g.count == 0) continue;
            double sum = 0.0, sx = 0.0, sy = 0.0, px = 0.0, py = 0.0;
            g.minimum = g.maximum = g.pixels[0].value;
            for (const PIXEL_VALUE& p : g.pixels) {
                sum += p.value;
                sx += double(p.value) * p.x;
                sy += double(p.value) * p.y;
                px += p.x;
                py += p.y;
                g.minimum = std::min(g.minimum, p.value);
                g.maximum = std::max(g.maximum, p.value);
            }
            g.mean = sum / g.count;
            // Without weight (all values 0) the plain mean position serves.
            g.cx = sum > 0.0 ? sx / sum : px / g.count;
            g.cy = sum > 0.0 ? sy / sum : py / g.count;
            g.method = BLOB_CENTROID;
            g.valid = true;
        }
    });
}

}  // namespace PIV
