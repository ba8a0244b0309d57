#include "qlogbuffer.h"

#include <QMetaObject>
#include <QPlainTextEdit>
#include <QThread>
#include <QVBoxLayout>

QLogBuffer::QLogBuffer(int debugLevel, const QString& applicationName, QWidget* parent)
    : QWidget(parent, Qt::Window), m_view(new QPlainTextEdit(this)), m_debugLevel(debugLevel) {
    (void)applicationName;
    setWindowTitle(tr("Log Window"));
    m_view->setReadOnly(true);
    m_view->setMaximumBlockCount(20000);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);
    resize(640, 400);
}

void QLogBuffer::outputMessage(QtMsgType type, const QString& text) {
    QString line = text;
    switch (type) {
        case QtWarningMsg:
            line.prepend(QStringLiteral("Warning: "));
            break;
        case QtCriticalMsg:
        case QtFatalMsg:
            line.prepend(QStringLiteral("Error: "));
            break;
        default:
            break;
    }
    if (QThread::currentThread() == thread())
        appendLine(line);
    else
        QMetaObject::invokeMethod(this, "appendLine", Qt::QueuedConnection, Q_ARG(QString, line));
}

void QLogBuffer::outputMessageLIBTORVO(const char* text) {
    if (!text) return;
    QString line = QString::fromLocal8Bit(text);
    while (line.endsWith(QLatin1Char('\n'))) line.chop(1);
    outputMessage(QtInfoMsg, line);
}

void QLogBuffer::appendLine(const QString& line) {
    m_view->appendPlainText(line);
    if (m_file.isOpen()) {
        m_file.write(line.toLocal8Bit() + '\n');
        m_file.flush();
    }
}

void QLogBuffer::slotStartLogging(bool on) {
    m_file.close();
    if (!on) return;
    m_file.setFileName(QStringLiteral("log.txt"));
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        appendLine(tr("Cannot write the log file %1").arg(m_file.fileName()));
}

QString QLogBuffer::text() const {
    return m_view->toPlainText();
}
