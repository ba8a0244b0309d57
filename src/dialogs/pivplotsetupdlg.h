// The plot settings: one control for every field of the plot record, the
// plot file, and the record's place in the settings store.
#pragma once

#include <QDialog>

#include "mysettings.h"
#include "piv_plot.h"
#include "recordform.h"

class QFormLayout;
class QTabWidget;

class PIVPlotSetupDlg : public QDialog {
    Q_OBJECT
public:
    explicit PIVPlotSetupDlg(QWidget* parent = nullptr);

    // The record the plot shows; the controls follow it.
    void setRecord(const PIVPLOT::PLOT_CFG& cfg);
    const PIVPLOT::PLOT_CFG& record() const { return m_cfg; }
    // What the controls hold now, applied or not.
    PIVPLOT::PLOT_CFG controlsRecord() const;

    // READ takes each stored key over the record (absent keys keep their
    // values) and refreshes the controls; WRITE stores the record.
    void registryIO(MySettings& settings, MySettings::AccessMode mode);

    // The plot file; loading fills the controls, which the user then applies.
    bool loadPlotFile(const QString& fileName);
    bool savePlotFile(const QString& fileName) const;

    // The controls, one for every field of the record.
    const RecordForm& form() const { return m_form; }

    static void _serializeLUT(MySettings& s, MySettings::AccessMode mode, const QString& group,
                              PIVPLOT::LUT_CFG* cfg);
    static void _serializeOpacity(MySettings& s, MySettings::AccessMode mode, const QString& group,
                                  PIVPLOT::OPACITY_CFG* cfg);
    static void _serializeAnnotation(MySettings& s, MySettings::AccessMode mode,
                                     const QString& group, PIVPLOT::ANNOTATION_CFG* cfg);
    static void _serializeAxis(MySettings& s, MySettings::AccessMode mode, const QString& group,
                               PIVPLOT::AXIS_CFG* cfg);

signals:
    // The applied record changed; `record()` holds it.
    void signalApply();

public slots:
    void slotApply();
    void accept() override;
    void reject() override;

private slots:
    void slotLoadFile();
    void slotSaveFile();

private:
    QFormLayout* addPage(QTabWidget* tabs, const QString& title);
    QFormLayout* addGroup(QFormLayout* page, const QString& title);
    void addLut(QFormLayout* page, const QString& title, const PIVPLOT::LUT_CFG* lut);
    void addOpacity(QFormLayout* page, const QString& title, const PIVPLOT::OPACITY_CFG* opacity);
    void addAnnotation(QFormLayout* page, const QString& title, const PIVPLOT::ANNOTATION_CFG* a);
    void addAxis(QFormLayout* page, const QString& title, const PIVPLOT::AXIS_CFG* axis);

    PIVPLOT::PLOT_CFG m_cfg;
    RecordForm m_form{&m_cfg};
};
