// Drawing a field over a camera frame, as the window does: a 2560x2160
// 16-bit particle image, a 160x135 field of a vortex coloured by magnitude
// with filled heads, painted into a 1920x1080 view at fit and at 100 %.
// Set KELVANE_PLOT_SNAPSHOT to a folder to also save the two pictures the
// README shows.
#include <benchmark/benchmark.h>

#include <QGraphicsScene>
#include <QGraphicsView>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <memory>

#include "bench_app.h"
#include "axisitem.h"
#include "bitmap_lut.h"
#include "image2d.h"
#include "image2ditem.h"
#include "lutitem.h"
#include "piv_data2d.h"
#include "piv_plot.h"
#include "pivscalarmapitem.h"
#include "pivvectormapitem.h"
#include "synthetic_flows.h"
#include "synthetic_images.h"

namespace {

constexpr int kWidth = 2560, kHeight = 2160, kStep = 16;

// A vortex of 12 px at most, turning about the frame's centre.
const synth::LambOseenVortex& Vortex() {
    static const synth::LambOseenVortex flow(kWidth / 2.0, kHeight / 2.0,
                                             2 * 3.141592653589793 * 12 * 300, 300);
    return flow;
}

Image2D ParticleFrame() {
    synth::SynthParams p;
    p.width = kWidth;
    p.height = kHeight;
    p.particleDiameter = 3.0;
    p.particleDensity = 0.02;
    p.bitDepth = 12;
    p.noiseSigma = 0.01;
    const synth::SyntheticPair pair = synth::RenderPair(p, Vortex());
    Image2D img(kWidth, kHeight, IMAGE_UINT16);
    for (int y = 0; y < kHeight; y++) {
        uint16_t* row = img.scanLine<uint16_t>(static_cast<uint64_t>(y));
        for (int x = 0; x < kWidth; x++)
            row[x] = static_cast<uint16_t>(pair.a[size_t(y) * kWidth + x]);
    }
    return img;
}

// The vortex on a 160x135 grid, in pixels and, at 0.05 mm a pixel and
// 1 ms between the frames, in m/s; `scale` makes a second, different field.
void FillField(PIV_Data2D& field, double scale) {
    DATA_GRID4D g;
    g.nodes = SIZE3D{kWidth / kStep, kHeight / kStep, 1};
    g.timeSteps = 1;
    g.first = POINT3D{kStep / 2, kStep / 2, 0};
    g.step = SIZE3D{kStep, kStep, 1};
    g.imageSize = SIZE3D{kWidth, kHeight, 1};
    field.create(g);
    for (int r = 0; r < g.nodes.height; r++)
        for (int c = 0; c < g.nodes.width; c++) {
            PIV_VECTOR* v = field.pivVector(c, r);
            double dx = 0, dy = 0;
            synth::ExactDisplacement(Vortex(), v->ix, v->iy, dx, dy);
            v->dx = float(scale * dx);
            v->dy = float(-scale * dy);  // y up, as the field stores it
            v->x = float(v->ix * 0.05);
            v->y = float((kHeight - v->iy) * 0.05);
            v->u = v->dx * 0.05f;
            v->v = v->dy * 0.05f;
            v->flag = VECTOR_ENABLED;
        }
    field.setFlagRawData(true);
}

struct Plot {
    Image2D frame = ParticleFrame();
    PIV_Data2D field, other;
    PIVPLOT::PLOT_CFG cfg = PIVPLOT::DefaultPlotCfg();
    QGraphicsScene scene;
    QGraphicsView view;
    Image2DItem* image = new Image2DItem;
    PIVScalarMapItem* contours = new PIVScalarMapItem;
    PIVVectorMapItem* vectors = new PIVVectorMapItem;
    LutItem* bar = new LutItem;
    AxisItem* axes = new AxisItem;

    Plot() {
        FillField(field, 1.0);
        FillField(other, 0.9);
        image->updateImage2D(&frame);
        image->setIntensityRange(0, 4095);
        image->setCacheMode(QGraphicsItem::DeviceCoordinateCache);

        cfg.vector.ColorCode = PIVPLOT::CC_MAGNITUDE;
        cfg.vector.MaxColor = 12;
        cfg.vector.Stretch = 1.5;
        cfg.vector.lut.Index = LUT_LONG_RAINBOW;
        BitmapLUT rainbow;
        rainbow.setLUT(LUT_LONG_RAINBOW);
        vectors->setVectorCfg(cfg.vector);
        vectors->setColorCfg(cfg.colors);
        vectors->setLUT(rainbow);
        vectors->setData(&field);

        cfg.contour.Show = true;
        cfg.contour.Coding = PIVPLOT::CC_VORTICITY;
        cfg.contour.ConvertMode = PIVPLOT::CONVERT_VELOCITY;
        cfg.contour.lut.PosX = kWidth + 40;
        cfg.contour.lut.PosY = 200;
        cfg.contour.lut.Length = 1200;
        cfg.contour.lut.Width = 60;
        cfg.contour.lut.LineWidth = 3;
        contours->setContourCfg(cfg.contour);
        contours->updateData(&field);  // computes the gradients
        // The colour range spans the field's vorticity, rounded up to a figure
        // with two digits, so the core shows in the table's full colours.
        float peak = 0;
        for (int r = 0; r < field.grid().nodes.height; r++)
            for (int c = 0; c < field.grid().nodes.width; c++)
                peak = std::max(peak, std::abs(_GetCornerDifferential(
                                          field.getDifferentials2D(r, c), PIVPLOT::CC_VORTICITY)));
        const double unit = std::pow(10.0, std::floor(std::log10(peak)) - 1);
        cfg.contour.lut.ValueMax = std::ceil(peak / unit) * unit;
        cfg.contour.lut.ValueMin = -cfg.contour.lut.ValueMax;
        cfg.contour.lut.ValueIncr = cfg.contour.lut.ValueMax / 2;
        contours->setContourCfg(cfg.contour);
        BitmapLUT blueRed;
        blueRed.setLUT(cfg.contour.lut.Index);
        bar->setConfig(cfg.contour.lut);
        bar->setLUT(blueRed);
        bar->setTitle("Vorticity");
        QFont big("Sans", 36);
        bar->setFont(big);
        bar->setPos(cfg.contour.lut.PosX, cfg.contour.lut.PosY);

        PIVPLOT::AXIS_CFG x = cfg.xAxis, y = cfg.yAxis;
        x.Show = y.Show = true;
        x.UsePhysUnit = y.UsePhysUnit = true;
        x.PhysIncr = y.PhysIncr = 20;
        x.LabelSize = y.LabelSize = x.TitleSize = y.TitleSize = 36;
        x.MajorTickSize = y.MajorTickSize = 24;
        x.MinorTickSize = y.MinorTickSize = 12;
        x.LineWidth = y.LineWidth = 3;
        axes->setConfig(x, y);
        axes->setFont(big);
        axes->setImageSize(kWidth, kHeight);
        axes->setPhysicalScaling(0.05, 0, 0, 0.05, 0, 0);

        image->setZValue(0);
        contours->setZValue(1);
        vectors->setZValue(2);
        for (QGraphicsItem* item :
             {static_cast<QGraphicsItem*>(image), static_cast<QGraphicsItem*>(contours),
              static_cast<QGraphicsItem*>(vectors), static_cast<QGraphicsItem*>(bar),
              static_cast<QGraphicsItem*>(axes)})
            scene.addItem(item);
        showContours(false);
        view.setScene(&scene);
        view.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        view.setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        view.setFrameShape(QFrame::NoFrame);
        view.resize(1920, 1080);
        view.show();
    }

    void showContours(bool on) {
        contours->setVisible(on);
        bar->setVisible(on);
        axes->setVisible(on);
        image->setVisible(!on);
        vectors->setVisible(!on);
    }
    // Fit: the whole frame in the view; otherwise one image pixel a screen
    // pixel around the vortex.
    void zoom(bool fit) {
        view.resetTransform();
        if (fit) {
            view.fitInView(scene.itemsBoundingRect(), Qt::KeepAspectRatio);
        } else {
            view.centerOn(kWidth / 2.0, kHeight / 2.0);
        }
    }
    // What the window's next repaint does, into a picture of the screen's size.
    void paint() {
        QPainter painter(&screen);
        view.render(&painter);
    }
    QImage screen{1920, 1080, QImage::Format_ARGB32_Premultiplied};
};

Plot& ThePlot() {
    bench::OffscreenApp();
    static Plot* plot = new Plot;
    return *plot;
}

void SaveSnapshots() {
    const QByteArray dir = qgetenv("KELVANE_PLOT_SNAPSHOT");
    if (dir.isEmpty()) return;
    Plot& p = ThePlot();
    // A closer look than the timed views, every second vector, so that the
    // arrows and the particles under them can be told apart.
    PIVPLOT::VECTOR_CFG closer = p.cfg.vector;
    closer.SkipX = closer.SkipY = 2;
    closer.Stretch = 2.5;
    closer.LineWidth = 1.5f;
    p.vectors->setVectorCfg(closer);
    p.image->setIntensityRange(0, 2047);
    p.view.resize(720, 480);
    p.showContours(false);
    p.zoom(false);
    p.view.scale(1.5, 1.5);
    p.view.centerOn(kWidth / 2.0 - 150, kHeight / 2.0);
    p.view.grab().save(QString::fromLocal8Bit(dir) + "/plot_vectors.png");
    p.vectors->setVectorCfg(p.cfg.vector);
    p.image->setIntensityRange(0, 4095);
    p.showContours(true);
    p.view.resize(1280, 900);
    p.zoom(true);
    p.view.grab().save(QString::fromLocal8Bit(dir) + "/plot_contours.png");
    p.showContours(false);
    p.view.resize(1920, 1080);
}

// First, so that the pictures show the state before any timing.
void BM_SaveSnapshots(benchmark::State& state) {
    for (auto _ : state) SaveSnapshots();
}
BENCHMARK(BM_SaveSnapshots)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_PaintImageAndVectors(benchmark::State& state) {
    Plot& p = ThePlot();
    p.showContours(false);
    p.zoom(state.range(0) != 0);
    p.paint();
    for (auto _ : state) p.paint();
    state.SetLabel(state.range(0) ? "fit" : "100%");
}
BENCHMARK(BM_PaintImageAndVectors)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LutChangeAndPaint(benchmark::State& state) {
    Plot& p = ThePlot();
    p.showContours(false);
    p.zoom(true);
    p.paint();
    int choice = 0;
    for (auto _ : state) {
        choice = (choice + 1) % 12;
        p.image->setLUTChoice(choice);
        p.paint();
    }
}
BENCHMARK(BM_LutChangeAndPaint)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_NewFieldToPainted(benchmark::State& state) {
    Plot& p = ThePlot();
    p.showContours(false);
    p.zoom(true);
    p.paint();
    bool flip = false;
    for (auto _ : state) {
        flip = !flip;
        p.vectors->setData(flip ? &p.other : &p.field);
        p.paint();
    }
}
BENCHMARK(BM_NewFieldToPainted)->Unit(benchmark::kMillisecond)->UseRealTime();

// A new field each time, so its gradients are computed each time too.
void BM_VorticityContours(benchmark::State& state) {
    Plot& p = ThePlot();
    p.showContours(true);
    p.zoom(true);
    for (auto _ : state) {
        state.PauseTiming();
        auto* fresh = new PIV_Data2D;
        fresh->copy(p.field);
        state.ResumeTiming();
        p.contours->updateData(fresh);
        p.paint();
        fresh->release();  // the item keeps it until the next field
    }
    p.showContours(false);
}
BENCHMARK(BM_VorticityContours)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
