// Loading a camera-sized 16-bit frame (2560 x 2160) from the formats
// cameras write: TIFF (uncompressed and Deflate) and PCO b16. The figure
// is the rate of pixel bytes in MB/s; the files are written once, to the
// temporary directory, and read from the page cache.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <string>

#include "bench_frames.h"
#include "image2d.h"
#include "piv_imagepair.h"
#include "piv_util.h"

namespace {

constexpr int kWidth = 2560;
constexpr int kHeight = 2160;
constexpr int64_t kFrameBytes = int64_t(kWidth) * kHeight * 2;

// A file written by the library's own writer, removed when the run ends.
class FrameFile {
public:
    FrameFile(const char* suffix, int compression, int width = kWidth, int height = kHeight) {
        const char* tmp = std::getenv("TMPDIR");
        m_path = std::string(tmp && *tmp ? tmp : "/tmp") + "/bench_formats_" +
                 std::to_string(::getpid()) + suffix;
        Image2D frame = bench::CameraFrame(width, height);
        IMAGE_COMPRESSION c;
        c.mode = compression;
        frame.setCompression(c);
        m_ok = suffix[1] == 'b' ? frame.savePCO(m_path.c_str()) : frame.saveTIFF(m_path.c_str());
    }
    ~FrameFile() { std::remove(m_path.c_str()); }
    const char* path() const { return m_path.c_str(); }
    bool ok() const { return m_ok; }

private:
    std::string m_path;
    bool m_ok = false;
};

void LoadLoop(benchmark::State& state, const FrameFile& file) {
    if (!file.ok()) {
        state.SkipWithError("could not write the frame file");
        return;
    }
    Image2D img;
    for (auto _ : state) {
        if (!img.load(file.path())) {
            state.SkipWithError("load failed");
            break;
        }
        benchmark::DoNotOptimize(img.bits());
    }
    state.SetBytesProcessed(state.iterations() * kFrameBytes);
}

void BM_LoadTIFF16(benchmark::State& state) {
    static const FrameFile file(".tif", 0);
    LoadLoop(state, file);
}
BENCHMARK(BM_LoadTIFF16)->Unit(benchmark::kMillisecond);

void BM_LoadTIFF16Deflate(benchmark::State& state) {
    static const FrameFile file("_zip.tif", 3);
    LoadLoop(state, file);
}
BENCHMARK(BM_LoadTIFF16Deflate)->Unit(benchmark::kMillisecond);

void BM_LoadPCO(benchmark::State& state) {
    static const FrameFile file(".b16", 0);
    LoadLoop(state, file);
}
BENCHMARK(BM_LoadPCO)->Unit(benchmark::kMillisecond);

// The pair as the evaluation gets it: both 2048 x 2048 16-bit TIFF frames
// read, converted to float and their statistics taken; a pair kept from one
// iteration to the next (1), as a series keeps it, or a fresh one (0). The
// heap keeps freed frames, as kelvane-eval has it keep them.
void BM_LoadPairTIFF16(benchmark::State& state) {
    static const bool heapKeeps = PIV::KeepFreedFramesInHeap();
    static const FrameFile a("_a.tif", 0, 2048, 2048), b("_b.tif", 0, 2048, 2048);
    if (!heapKeeps || !a.ok() || !b.ok()) {
        state.SkipWithError(heapKeeps ? "could not write the frame files"
                                      : "the heap cannot be told to keep freed frames");
        return;
    }
    PIV_ImagePair kept;
    for (auto _ : state) {
        PIV_ImagePair fresh;
        PIV_ImagePair& pair = state.range(0) ? kept : fresh;
        if (!pair.loadPair(a.path(), b.path()) || pair.imgA()->mean() < 0.0) {
            state.SkipWithError("load failed");
            break;
        }
        benchmark::DoNotOptimize(pair.imgB()->bits());
    }
    state.SetBytesProcessed(state.iterations() * 2 * 2048 * 2048 * 2);
}
BENCHMARK(BM_LoadPairTIFF16)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

}  // namespace
