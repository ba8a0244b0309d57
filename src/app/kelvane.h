// Kelvane: the main window of the program.
#pragma once

#include <QMainWindow>
#include <QString>

#include "kelvanestate.h"

class KelvaneData;
class KelvaneDataObject;
class MySettings;
class QSplashScreen;

class Kelvane : public QMainWindow {
    Q_OBJECT
public:
    Kelvane(bool isMainInstance, bool unused, MySettings* settings, QSplashScreen* splash,
            QWidget* parent = nullptr, Qt::WindowFlags flags = Qt::WindowFlags());

    // The splash and canvas image, from the program's resources.
    static QString logoPath();

    // Reads the options of the process's command line.
    void processCommandLine();

    // The session's mode, held by the data object.
    int analysisMode() const;
    void setAnalysisMode(int mode);
    KelvaneDataObject* dataObject() const { return m_dataObject; }
    KelvaneData* data() const { return m_data; }
    // The last file argument of the command line, empty if none.
    QString commandLineFile() const { return m_commandLineFile; }

signals:
    void signalKelvaneExiting();
    void signalChangedAnalysisMode();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void createMenus();

    MySettings* m_settings;
    KelvaneState m_state;
    KelvaneDataObject* m_dataObject;
    KelvaneData* m_data;
    QString m_commandLineFile;
};
