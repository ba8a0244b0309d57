// Routing of all messages, the toolkit's and the library's, to the log window.
#pragma once

#include <QString>
#include <QStringList>

class QLogBuffer;

// Makes `log` the destination (a weak reference: messages are dropped once
// the window is gone) and installs both handlers. Null uninstalls them.
void InstallMessageRouting(QLogBuffer* log);
QLogBuffer* MessageLogWindow();

// While in scope, the library's errors and warnings are kept beside their
// usual way to the log: a load that fails names the file, and its box says
// why in the words of the reader that refused it. An inner scope reads what
// the outer one keeps.
class LibraryReport {
public:
    LibraryReport();
    ~LibraryReport();
    LibraryReport(const LibraryReport&) = delete;
    LibraryReport& operator=(const LibraryReport&) = delete;

    // The last error or warning, empty if none came.
    QString reason() const;
    // `text` with the reason on a line of its own, unless it says it already.
    QString explain(const QString& text) const;

private:
    bool m_active;
};
