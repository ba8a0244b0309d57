// PIVBatchDlg: chooses the files of a batch and what it writes, and gives
// them back as BatchProcessOptions. Mode 0 serves the PIV batch (with the
// ensemble correlation), mode 1 the image batch (with its statistics images).
#pragma once

#include <QDialog>
#include <QVector>

#include "batchprocessoptions.h"
#include "mysettings.h"

class QCheckBox;
class QComboBox;
class QDragEnterEvent;
class QDropEvent;
class QLabel;
class QLineEdit;
class QSpinBox;

class PIVBatchDlg : public QDialog {
    Q_OBJECT
public:
    PIVBatchDlg(MySettings* settings, int mode, QWidget* parent = nullptr,
                Qt::WindowFlags flags = Qt::WindowFlags());

    // The options of the controls, with the file list of the selection.
    BatchProcessOptions getBatchOptions();
    void setBatchOpts(const BatchProcessOptions& options);
    OUTPUT_CFG outputCfg() { return getBatchOptions().outputCfg(); }
    // Lists the files of the source directory, the filter and the subset,
    // and shows their counts.
    void updateAvailableFiles();
    void registryIO(MySettings::AccessMode mode);
    int mode() const { return m_mode; }

public slots:
    void accept() override;

protected:
    // A directory dropped becomes the source; files dropped, from any
    // folders, are the list of the run until the folder or the filter is
    // edited. The source directory becomes the first file's folder, where
    // results go without a destination.
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void readControls();
    void fillControls();
    QCheckBox* addCheck(const QString& label, bool* field);

    MySettings* m_settings;
    int m_mode;
    BatchProcessOptions m_options;
    struct CheckBinding {
        QCheckBox* box;
        bool* field;
    };
    QVector<CheckBinding> m_checks;
    QLineEdit *m_sourceDir, *m_filter, *m_stub, *m_destDir, *m_displFile, *m_parFile, *m_plotFormat;
    QComboBox *m_fileType, *m_outputFormat;
    QSpinBox *m_start, *m_incr, *m_separation, *m_modOffset = nullptr, *m_ensMethod = nullptr,
                                               *m_ensPasses = nullptr, *m_ensMinFiles = nullptr;
    QLabel *m_available, *m_selected;
};
