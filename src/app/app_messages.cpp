#include "app_messages.h"

#include <QPointer>

#include <QtGlobal>
#include <cstdio>
#include <mutex>

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

// The report in scope; the library may speak from its worker threads.
std::mutex g_reportMutex;
QStringList* g_report = nullptr;
PIVMessageHook g_reportForward = nullptr;

void reportMessage(const char* text) {
    PIVMessageHook forward = nullptr;
    {
        const std::lock_guard<std::mutex> lock(g_reportMutex);
        forward = g_reportForward;
        const QString line = QString::fromLocal8Bit(text).trimmed();
        if (g_report &&
            (line.startsWith(QLatin1String("ERROR")) || line.startsWith(QLatin1String("Warning"))))
            *g_report << line;
    }
    // Without a hook of its own the library writes to the console.
    if (forward)
        forward(text);
    else
        std::fprintf(stderr, "%s\n", text);
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

LibraryReport::LibraryReport() {
    const std::lock_guard<std::mutex> lock(g_reportMutex);
    m_active = !g_report;
    if (!m_active) return;
    g_report = new QStringList;
    g_reportForward = MessageHook();
    SetMessageHook(reportMessage);
}

LibraryReport::~LibraryReport() {
    if (!m_active) return;
    SetMessageHook(g_reportForward);
    const std::lock_guard<std::mutex> lock(g_reportMutex);
    delete g_report;
    g_report = nullptr;
}

QString LibraryReport::reason() const {
    const std::lock_guard<std::mutex> lock(g_reportMutex);
    return g_report && !g_report->isEmpty() ? g_report->last() : QString();
}

QString LibraryReport::explain(const QString& text) const {
    const QString why = reason();
    if (why.isEmpty() || text.contains(why)) return text;
    return text + QLatin1Char('\n') + why;
}
