// The one QApplication of the test program, on the offscreen platform and
// with the toolkit's test paths, so that no test touches the user's settings.
#pragma once

#include <QApplication>
#include <QStandardPaths>

inline void EnsureOffscreenApplication() {
    if (QCoreApplication::instance()) return;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QStandardPaths::setTestModeEnabled(true);
    static int argc = 1;
    static char name[] = "test_app";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);
}
