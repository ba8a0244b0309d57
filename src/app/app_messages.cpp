#include "app_messages.h"

#include <QPointer>
#include <QtGlobal>

#include "piv_messages.h"
#include "qlogbuffer.h"

namespace {

QPointer<QLogBuffer> g_log;

void myMessageOutput(QtMsgType type, const QMessageLogContext&, const QString& text) {
    if (QLogBuffer* log = g_log.data()) log->outputMessage(type, text);
}

void libraryMessage(const char* text) {
    if (QLogBuffer* log = g_log.data()) log->outputMessageLIBTORVO(text);
}

}  // namespace

void InstallMessageRouting(QLogBuffer* log) {
    g_log = log;
    if (log) {
        qInstallMessageHandler(myMessageOutput);
        SetMessageHook(libraryMessage);
    } else {
        qInstallMessageHandler(nullptr);
        SetMessageHook(nullptr);
    }
}

QLogBuffer* MessageLogWindow() {
    return g_log.data();
}
