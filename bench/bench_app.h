// The one QApplication of a window bench, on the offscreen platform and with
// the library's warnings off, so that only the figures reach the output.
#pragma once

#include <QApplication>

#include "piv_messages.h"

namespace bench {

inline QApplication* OffscreenApp() {
    static QApplication* app = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        EnableWarnings(false);
        static int argc = 1;
        static char name[] = "kelvane-bench";
        static char* argv[] = {name, nullptr};
        return new QApplication(argc, argv);
    }();
    return app;
}

}  // namespace bench
