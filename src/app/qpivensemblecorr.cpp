#include "qpivensemblecorr.h"

void QPIVensembleCorr::showErrorMessage(const char* text) {
    if (text) emit signalLogMessage(QString::fromLocal8Bit(text));
}

void QPIVensembleCorr::showProgressMessage(const char* text, bool show) {
    if (text && show) emit signalMessage(QString::fromLocal8Bit(text));
}

void QPIVensembleCorr::showProgressMessage2(const char* text) {
    if (text) emit signalMessage2(QString::fromLocal8Bit(text));
}

void QPIVensembleCorr::showStatusMessage(const char* text) {
    if (text) emit signalMessage(QString::fromLocal8Bit(text));
}
