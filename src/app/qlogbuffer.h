// The log window: every message of the toolkit and of the library ends here.
#pragma once

#include <QFile>
#include <QString>
#include <QWidget>
#include <QtGlobal>

class QPlainTextEdit;

class QLogBuffer : public QWidget {
    Q_OBJECT
public:
    QLogBuffer(int debugLevel, const QString& applicationName, QWidget* parent = nullptr);

    // Safe to call from any thread: messages from worker threads are queued
    // to the window's thread.
    void outputMessage(QtMsgType type, const QString& text);
    void outputMessageLIBTORVO(const char* text);

    QString text() const;
    int debugLevel() const { return m_debugLevel; }

public slots:
    void appendLine(const QString& line);
    // Every line from now on also goes to "log.txt" in the working directory.
    void slotStartLogging(bool on);

private:
    QPlainTextEdit* m_view;
    int m_debugLevel;
    QFile m_file;
};
