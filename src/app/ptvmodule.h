// PTVmodule: the window's side of particle tracking that is not the run
// itself: the tracker's settings and their dialog, the question where the
// tracks go, and whether the scene shows them.
#pragma once

#include <QObject>
#include <QString>

#include "mysettings.h"
#include "ptv_types.h"

class KelvaneDataObject;
class PTVParamsDlg;
class PTVoutputDlg;
class QWidget;

class PTVmodule : public QObject {
    Q_OBJECT
public:
    // Reads the settings, when there are any, into the data object.
    PTVmodule(KelvaneDataObject* dataObject, MySettings* settings, QWidget* window);

    // The data object's tracker settings under "/PTV/".
    void registryIO(MySettings::AccessMode mode);
    static void registryIO(MySettings& settings, MySettings::AccessMode mode, PTV_PARAMS& cfg);
    PTVParamsDlg* paramsDlg() const { return m_paramsDlg; }
    PTVoutputDlg* outputDlg() const { return m_outputDlg; }
    bool isShowingVectors() const { return m_showVectors; }

public slots:
    // "PTV parameters": the dialog filled from the session; "OK" applies.
    void slotPTV_Parameters();
    // "Show PTV vectors".
    void slotShowPTVVectors(bool on);
    // "Save PTV data": asks where, then signalSaveData.
    void slotSaveData();

signals:
    void signalShowPTVVectors(bool on);
    void signalSaveData(const QString& file);

private:
    KelvaneDataObject* m_dataObject;
    MySettings* m_settings;
    PTVParamsDlg* m_paramsDlg;
    PTVoutputDlg* m_outputDlg;
    bool m_showVectors = true;  // tracks show once a scan made them
};
