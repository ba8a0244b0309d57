#include "ptvmodule.h"

#include "imagecfg_settings.h"
#include "kelvanedataobject.h"
#include "ptvoutputdlg.h"
#include "ptvparamsdlg.h"

PTVmodule::PTVmodule(KelvaneDataObject* dataObject, MySettings* settings, QWidget* window)
    : QObject(window),
      m_dataObject(dataObject),
      m_settings(settings),
      m_paramsDlg(new PTVParamsDlg(window)),
      m_outputDlg(new PTVoutputDlg(window)) {
    if (m_settings) registryIO(MySettings::READ);
}

void PTVmodule::registryIO(MySettings& s, MySettings::AccessMode mode, PTV_PARAMS& cfg) {
    s.beginGroup(QStringLiteral("/PTV"));
    s.serializeDouble(mode, QStringLiteral("DetectThresh"), &cfg.DetectThresh);
    s.serializeInt(mode, QStringLiteral("PixelConnectivity"), &cfg.PixelConnectivity);
    s.serializeInt(mode, QStringLiteral("MaxRegionSize"), &cfg.MaxRegionSize);
    s.serializeDouble(mode, QStringLiteral("SearchRadius"), &cfg.SearchRadius);
    s.serializeDouble(mode, QStringLiteral("ValidRadius"), &cfg.ValidRadius);
    s.serializeInt(mode, QStringLiteral("SortBoxWidth"), &cfg.SortBoxWidth);
    s.serializeInt(mode, QStringLiteral("SortBoxHeight"), &cfg.SortBoxHeight);
    s.serializeBool(mode, QStringLiteral("LabelImagesSave"), &cfg.LabelImagesSave);
    s.serializeCharString(mode, QStringLiteral("LabelImagesPrefix"), cfg.LabelImagesPrefix,
                          int(sizeof cfg.LabelImagesPrefix));
    s.beginGroup(QStringLiteral("ImageFilt"));
    registryIOImageFilters(s, mode, cfg.imageCfg.filters);
    s.serializeBool(mode, QStringLiteral("Bkgd1Subtract"), &cfg.imageCfg.BkgdSubtract);
    s.serializeCharString(mode, QStringLiteral("Bkgd1File"), cfg.imageCfg.Bkgd,
                          int(sizeof cfg.imageCfg.Bkgd));
    s.endGroup();
    s.endGroup();
}

void PTVmodule::registryIO(MySettings::AccessMode mode) {
    if (!m_settings) return;
    PTV_PARAMS cfg = m_dataObject->ptvParameters();
    registryIO(*m_settings, mode, cfg);
    if (mode == MySettings::READ) m_dataObject->setPTVParameters(cfg);
}

void PTVmodule::slotPTV_Parameters() {
    m_paramsDlg->setRecord(m_dataObject->ptvParameters());
    if (m_paramsDlg->exec() == QDialog::Accepted)
        m_dataObject->setPTVParameters(m_paramsDlg->record());
}

void PTVmodule::slotShowPTVVectors(bool on) {
    m_showVectors = on;
    emit signalShowPTVVectors(on);
}

void PTVmodule::slotSaveData() {
    if (!m_dataObject->havePTVdata(-1)) return;
    if (m_outputDlg->exec() == QDialog::Accepted && !m_outputDlg->fileName().isEmpty())
        emit signalSaveData(m_outputDlg->fileName());
}
