#include "qptv_eval2d.h"

void QPTV_Eval2D::appendToLogFile(const char* text) {
    emit signalLogMessage(QString::fromLocal8Bit(text));
}

void QPTV_Eval2D::showStatusMessage(const char* text) {
    // The library's status text runs over lines; the status line shows the first.
    emit signalMessage(QString::fromLocal8Bit(text).section(QLatin1Char('\n'), 0, 0));
}

void QPTV_Eval2D::showNewPTVdata() {
    emit signalNewPTVdata();
}
