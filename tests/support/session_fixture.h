// A window's session without the window: data object, controller and engine
// over a scratch settings store, with a loaded synthetic pair, for tests that
// drive the controller's slots as the scene and the menus do.
#pragma once

#include <gtest/gtest.h>

#include <QMainWindow>
#include <QSignalSpy>
#include <QStringList>

#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "offscreen_app.h"
#include "piv_params.h"
#include "pivevalobj.h"
#include "scratch_files.h"
#include "synthetic_tiff.h"

class SessionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EnsureOffscreenApplication(); }

    // A pair of 128 px squared moving (dx, dy) image pixels, to be evaluated
    // in a single pass of 64 px windows on a 16 px grid, offset by the whole
    // pixels of the shift so that the peak fit sees only the fraction; no
    // validation.
    void loadPair(double dx, double dy) {
        const std::string a = dir.file("run0001a.tif"), b = dir.file("run0001b.tif");
        ASSERT_TRUE(test_support::WriteShiftedTiffPair(a, b, 128, dx, dy));
        ASSERT_TRUE(
            object.loadPivImage(QString::fromStdString(a), QString::fromStdString(b), false, 0));
        PIV_PARAMETERS rec = object.parameters(0)->pivParameters();
        rec.eval.Method = PIV::METHOD_SINGLE_PASS;
        rec.eval.SampleOffset = POINT3D{int(dx), int(dy), 0};
        rec.eval.SampleSize.width = rec.eval.SampleSize.height = 64;
        rec.eval.FFTSize = rec.eval.SampleSize;
        rec.outlier.Enable = false;
        object.setPivParameters(rec, rec);
        object.setKelvaneMode(MODE_DATA);
    }
    bool evaluate() {
        QSignalSpy finished(controller.engine(), &PIVevalEngine::signalEvaluationFinished);
        if (!controller.engine()->interrogateImage()) return false;
        return finished.wait(60000) && finished.at(0).at(0).toBool();
    }
    QStringList texts(const QSignalSpy& spy) const {
        QStringList list;
        for (const QList<QVariant>& args : spy) list << args.at(0).toString();
        return list;
    }

    test_support::ScratchDir dir;
    MySettings settings{QString::fromStdString(dir.file("store.ini")), QSettings::IniFormat};
    KelvaneState state;
    QMainWindow window;
    KelvaneDataObject object{&state, &settings};
    KelvaneData controller{&object, &window, &settings};
};
