// Making a mask from 50 objects (rectangles, ellipses and polygons) over a
// 2560x2160 camera frame, as the mask editor does on "Save mask". Set
// KELVANE_MASK_SNAPSHOT to a folder to also save the editor's picture the
// README shows: the mask in white over a particle image.
#include <benchmark/benchmark.h>

#include <QPixmap>
#include <cmath>
#include <cstdlib>

#include "bench_app.h"
#include "image2d.h"
#include "maskedit.h"
#include "synthetic_flows.h"
#include "synthetic_images.h"

namespace {

// `count` objects spread over a width x height frame, a third of each kind.
void AddObjects(MaskEdit& e, int count, double width, double height) {
    for (int i = 0; i < count; ++i) {
        const double x = width * (0.05 + 0.8 * std::fmod(i * 0.618, 1.0));
        const double y = height * (0.05 + 0.8 * std::fmod(i * 0.382, 1.0));
        const double s = 0.08 * std::min(width, height);
        if (i % 3 == 0) {
            e.addRectangle(QRectF(x, y, s, 0.6 * s));
        } else if (i % 3 == 1) {
            e.addEllipse(QRectF(x, y, 0.7 * s, s));
        } else {
            QPolygonF p;
            for (int k = 0; k < 6; ++k)
                p << QPointF(x + s * (0.5 + 0.5 * std::cos(k * M_PI / 3)),
                             y + s * (0.5 + 0.4 * std::sin(k * M_PI / 3)));
            e.addPolygon(p);
        }
    }
}

void BM_CreateMask50Objects(benchmark::State& state) {
    bench::OffscreenApp();
    MaskEdit e(true, nullptr);
    Image2D frame(2560, 2160, IMAGE_UINT16);
    frame.fill(100);
    e.updateImagePair(&frame, nullptr);
    AddObjects(e, 50, 2560, 2160);
    for (auto _ : state) benchmark::DoNotOptimize(e.createMask());
}
BENCHMARK(BM_CreateMask50Objects)->Unit(benchmark::kMillisecond);

// Not a timing: writes the README's picture once when asked.
struct Snapshot {
    Snapshot() {
        const char* folder = std::getenv("KELVANE_MASK_SNAPSHOT");
        if (!folder) return;
        bench::OffscreenApp();
        synth::SynthParams p;
        p.width = 480, p.height = 320;
        const synth::SyntheticPair pair = synth::RenderPair(p, synth::UniformFlow(0, 0));
        Image2D image(p.width, p.height, IMAGE_UINT8);
        for (int y = 0; y < p.height; ++y)
            for (int x = 0; x < p.width; ++x) image.setPixel(x, y, pair.pixelA(x, y));
        MaskEdit e(true, nullptr);
        e.resize(560, 420);
        e.updateImagePair(&image, nullptr);
        e.addRectangle(QRectF(20, 30, 120, 80));
        e.addEllipse(QRectF(200, 40, 150, 100));
        e.addPolygon(QPolygonF({QPointF(60, 300), QPointF(180, 160), QPointF(300, 290)}));
        e.addEllipse(QRectF(360, 180, 90, 120));
        e.show();
        e.slotToggleMask();
        QApplication::processEvents();
        e.grab().save(QString::fromLocal8Bit(folder) + "/maskedit.png");
        // The objects as drawn, before they become the mask.
        e.slotEditMode();
        QApplication::processEvents();
        e.grab().save(QString::fromLocal8Bit(folder) + "/maskedit_objects.png");
    }
} snapshot;

}  // namespace
