// The plot scene of the window, offscreen, at 1920 x 1080: a 2560 x 2160
// 16-bit pair under a 160 x 135 field.
//
// redraw_ms: slotRedrawAll and a paint of the view; budget 16 ms.
//   paint_without_vectors_ms: the same paint with the vector map hidden,
//   which tells what the 21,600 arrows cost.
// zoom_ms: one zoom step in and its paint; budget 33 ms.
// scene_bytes: the bitmaps the scene of the pair keeps (index images and
//   their colour tables); budget one 8-bit image of the frame's size and
//   one table of 256 colours, index_budget_bytes.
// Release build; the counters count, not the time per iteration.
#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QGraphicsItem>
#include <QGraphicsScene>
#include <QTemporaryDir>

#include <algorithm>

#include "bench_app.h"
#include "bench_frames.h"
#include "imageitem.h"
#include "kelvane.h"
#include "kelvanedataobject.h"
#include "kelvanedataview.h"
#include "kelvanedataview_bmpitems.h"
#include "kelvanesceneview.h"
#include "mysettings.h"
#include "piv_data2d.h"
#include "piv_messages.h"

namespace {

constexpr int kWidth = 2560, kHeight = 2160, kStep = 16;

struct Session {
    QTemporaryDir dir;
    MySettings settings{dir.filePath("store.ini"), QSettings::IniFormat};
    Kelvane* window = nullptr;

    Session() {
        settings.setValue("/Prefs/ShowExitPrompt", true);
        settings.setValue("/Prefs/AlwaysSaveSettings", false);
        const QString a = dir.filePath("cam0001a.tif"), b = dir.filePath("cam0001b.tif");
        const Image2D frame = bench::CameraFrame(kWidth, kHeight);
        frame.save(a.toLocal8Bit().constData(), PIV::FORMAT_TIFF);
        frame.save(b.toLocal8Bit().constData(), PIV::FORMAT_TIFF);
        window = new Kelvane(true, false, &settings, nullptr);
        window->show();
        window->loadFile(a);
        // The view itself at 1920 x 1080, whatever the bars around it take.
        QWidget* port = view()->viewport();
        window->resize(window->size() + QSize(1920, 1080) - port->size());
        QApplication::processEvents();
        KelvaneDataObject* o = window->dataObject();
        DATA_GRID4D g;
        g.nodes = SIZE3D{kWidth / kStep, kHeight / kStep, 1};
        g.timeSteps = 1;
        g.first = POINT3D{kStep / 2, kStep / 2, 0};
        g.step = SIZE3D{kStep, kStep, 1};
        g.imageSize = SIZE3D{kWidth, kHeight, 1};
        PIV_Data2D* field = o->data(0);
        field->create(g);
        for (int r = 0; r < g.nodes.height; r++)
            for (int c = 0; c < g.nodes.width; c++) {
                PIV_VECTOR* v = field->pivVector(c, r);
                v->dx = float(3.0 * (r - 67) / 67.0);
                v->dy = float(3.0 * (c - 80) / 80.0);
                v->flag = VECTOR_ENABLED;
            }
        field->setFlagRawData(true);
        emit o->signalHaveNewData(0);
    }
    KelvaneDataView* plot() const { return window->dataView(); }
    KelvaneSceneView* view() const { return plot()->view(0); }
};

Session& TheSession() {
    bench::OffscreenApp();
    static Session session;
    return session;
}

void BM_FullRedraw(benchmark::State& state) {
    Session& s = TheSession();
    double worst = 0.0;
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        s.plot()->slotRedrawAll();
        s.view()->viewport()->repaint();
        worst = std::max(worst, clock.nsecsElapsed() / 1e6);
    }
    state.counters["redraw_ms"] = worst;
    QGraphicsItem* vectors = s.plot()->items(0)->item(KelvaneBmpItems::ITEM_VECTORS);
    vectors->hide();
    QElapsedTimer clock;
    clock.start();
    s.view()->viewport()->repaint();
    state.counters["paint_without_vectors_ms"] = clock.nsecsElapsed() / 1e6;
    vectors->show();
    state.counters["vectors"] = s.plot()->isVectorMapVisible();
    state.counters["view_w"] = s.view()->viewport()->width();
    state.counters["view_h"] = s.view()->viewport()->height();
}
BENCHMARK(BM_FullRedraw)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();

void BM_ZoomStep(benchmark::State& state) {
    Session& s = TheSession();
    double worst = 0.0;
    int index = 5;
    for (auto _ : state) {
        // From 50 % to 400 % and back: each step one paint.
        index = index >= 11 ? 5 : index + 1;
        QElapsedTimer clock;
        clock.start();
        s.plot()->slotSetZoom(index);
        s.view()->viewport()->repaint();
        worst = std::max(worst, clock.nsecsElapsed() / 1e6);
    }
    s.plot()->slotSetZoom(KelvaneSceneView::kZoomOne);
    state.counters["zoom_ms"] = worst;
}
BENCHMARK(BM_ZoomStep)->Unit(benchmark::kMillisecond)->Iterations(12)->UseRealTime();

void BM_SceneMemory(benchmark::State& state) {
    Session& s = TheSession();
    double bytes = 0;
    for (auto _ : state) {
        bytes = 0;
        for (QGraphicsItem* item : s.plot()->scene(0)->items()) {
            if (item->type() < ImageItem::Type || item->type() > ImageItem::Type + 4) continue;
            const QImage& image = static_cast<ImageItem*>(item)->indexImage();
            bytes += double(image.sizeInBytes()) + image.colorCount() * 4.0;
        }
    }
    state.counters["scene_bytes"] = bytes;
    state.counters["index_budget_bytes"] = double(kWidth) * kHeight + 256 * 4;
}
BENCHMARK(BM_SceneMemory)->Iterations(1);

}  // namespace
