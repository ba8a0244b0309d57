#include "pivbatchdlg.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QSpinBox>
#include <QUrl>
#include <QVBoxLayout>

namespace {

QSpinBox* _spin(int low, int high) {
    auto* box = new QSpinBox;
    box->setRange(low, high);
    return box;
}

}  // namespace

PIVBatchDlg::PIVBatchDlg(MySettings* settings, int mode, QWidget* parent, Qt::WindowFlags flags)
    : QDialog(parent, flags), m_settings(settings), m_mode(mode) {
    setWindowTitle(mode == 0 ? tr("PIV batch processing") : tr("Image batch processing"));
    setAcceptDrops(true);
    if (mode == 1) m_options.fileStub = QStringLiteral("deform_");
    auto* top = new QVBoxLayout(this);

    auto* files = new QGroupBox(tr("Files"));
    auto* f = new QFormLayout(files);
    f->addRow(tr("Source directory"), m_sourceDir = new QLineEdit);
    f->addRow(tr("File type"), m_fileType = new QComboBox);
    m_fileType->addItems(BatchProcessOptions::fileTypes());
    f->addRow(tr("File filter"), m_filter = new QLineEdit);
    f->addRow(addCheck(tr("Sub-series"), &m_options.fileSubSet));
    f->addRow(tr("First file, step"), [&] {
        auto* row = new QHBoxLayout;
        row->addWidget(m_start = _spin(0, 1000000));
        row->addWidget(m_incr = _spin(1, 1000000));
        return row;
    }());
    f->addRow(m_available = new QLabel, m_selected = new QLabel);
    f->addRow(tr("Image pair offset"), m_separation = _spin(1, 9999));
    top->addWidget(files);

    auto* output = new QGroupBox(tr("Output"));
    auto* o = new QFormLayout(output);
    o->addRow(tr("File stub"), m_stub = new QLineEdit);
    o->addRow(addCheck(tr("Destination directory"), &m_options.dataDestDirEnable),
              m_destDir = new QLineEdit);
    o->addRow(addCheck(tr("Parameter file"), &m_options.parFileEnable), m_parFile = new QLineEdit);
    if (mode == 0) {
        o->addRow(addCheck(tr("Offset vector file"), &m_options.displFileEnable),
                  m_displFile = new QLineEdit);
        o->addRow(addCheck(tr("NetCDF"), &m_options.outputNetCDF));
        o->addRow(addCheck(tr("Other format"), &m_options.outputOther),
                  m_outputFormat = new QComboBox);
        m_outputFormat->addItems({tr("Tecplot text"), tr("Tecplot binary")});
        const struct {
            const char* label;
            bool* field;
        } stores[] = {
            {"Velocities", &m_options.storeVelocity},
            {"Magnitude", &m_options.storeMagnitude},
            {"Correlation coefficient", &m_options.storeCorrCoeff},
            {"Signal-to-noise ratio", &m_options.storeSNRData},
            {"Differentials", &m_options.storeDifferentials},
            {"Vorticity", &m_options.storeVorticity},
            {"Skip outliers", &m_options.outputSkipOutliers},
            {"Post-process each field", &m_options.doPostProcessing},
            {"Reynolds stresses", &m_options.doReynoldsStresses},
            {"Fluctuation files", &m_options.storeFluctuations},
            {"Show each result", &m_options.updateAutomatically},
            {"Hide image in plots", &m_options.plotHideImage},
        };
        for (const auto& s : stores) o->addRow(addCheck(tr(s.label), s.field));
        o->addRow(tr("Plot format (empty: none)"), m_plotFormat = new QLineEdit);

        auto* ensemble = new QGroupBox(tr("Ensemble correlation"));
        auto* e = new QFormLayout(ensemble);
        const struct {
            const char* label;
            bool* field;
        } flags[] = {
            {"Enable", &m_options.ensembleEnable},
            {"Save data", &m_options.ensembleSaveData},
            {"Display image", &m_options.ensembleDisplayImage},
            {"Save image", &m_options.ensembleSaveImage},
            {"Autocorrelation", &m_options.ensembleCalcAutocorr},
            {"Vary stride", &m_options.ensembleVaryStride},
        };
        for (const auto& s : flags) e->addRow(addCheck(tr(s.label), s.field));
        e->addRow(tr("Method"), m_ensMethod = _spin(0, 2));
        e->addRow(tr("Passes"), m_ensPasses = _spin(1, 10));
        e->addRow(tr("Minimum files"), m_ensMinFiles = _spin(1, 100000));
        top->addWidget(output);
        top->addWidget(ensemble);
    } else {
        m_displFile = m_plotFormat = nullptr;
        m_outputFormat = nullptr;
        const struct {
            const char* label;
            bool* field;
        } stats[] = {
            {"Minimum", &m_options.imageSeqCalcMinimum},
            {"Maximum", &m_options.imageSeqCalcMaximum},
            {"Average", &m_options.imageSeqCalcAverage},
            {"Modified average", &m_options.imageSeqCalcAverageMod},
            {"RMS", &m_options.imageSeqCalcRMS},
            {"Images to destination", &m_options.imageDestDirEnable},
            {"Files are pairs", &m_options.imageFilesArePairs},
        };
        for (const auto& s : stats) o->addRow(addCheck(tr(s.label), s.field));
        o->addRow(tr("Modified average offset"), m_modOffset = _spin(0, 100));
        top->addWidget(output);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &PIVBatchDlg::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    top->addWidget(buttons);
    for (QLineEdit* edit : {m_sourceDir, m_filter}) {
        connect(edit, &QLineEdit::editingFinished, this, &PIVBatchDlg::updateAvailableFiles);
        // Typing, not a drop filling the field, hands the choice back to the
        // folder and the filter.
        connect(edit, &QLineEdit::textEdited, this, [this] { m_options.droppedFiles.clear(); });
    }
    for (QSpinBox* spin : {m_start, m_incr})
        connect(spin, QOverload<int>::of(&QSpinBox::valueChanged), this,
                &PIVBatchDlg::updateAvailableFiles);
    connect(m_checks.first().box, &QCheckBox::toggled, this, &PIVBatchDlg::updateAvailableFiles);
    if (m_settings) registryIO(MySettings::READ);
    fillControls();
}

QCheckBox* PIVBatchDlg::addCheck(const QString& label, bool* field) {
    auto* box = new QCheckBox(label);
    m_checks.append({box, field});
    return box;
}

void PIVBatchDlg::fillControls() {
    BatchProcessOptions& o = m_options;
    for (const CheckBinding& c : qAsConst(m_checks)) {
        const QSignalBlocker quiet(c.box);
        c.box->setChecked(*c.field);
    }
    m_sourceDir->setText(o.sourceDir);
    m_fileType->setCurrentIndex(o.fileType);
    m_filter->setText(o.fileFilter);
    {
        const QSignalBlocker a(m_start), b(m_incr);
        m_start->setValue(o.fileIndexStart);
        m_incr->setValue(o.fileIndexIncr);
    }
    m_separation->setValue(o.imageFrameSeparation);
    m_stub->setText(o.fileStub);
    m_destDir->setText(o.destDir);
    m_parFile->setText(o.parFile);
    if (m_displFile) m_displFile->setText(o.displFile);
    if (m_plotFormat) m_plotFormat->setText(o.plotExportFormat);
    if (m_outputFormat) m_outputFormat->setCurrentIndex(o.outputFormat == 2 ? 1 : 0);
    if (m_modOffset) m_modOffset->setValue(o.imageSeqCalcAverageModOffset);
    if (m_ensMethod) {
        m_ensMethod->setValue(o.ensembleEvalMethod);
        m_ensPasses->setValue(o.ensembleEvalPasses);
        m_ensMinFiles->setValue(o.ensembleMinFiles);
    }
    updateAvailableFiles();
}

void PIVBatchDlg::readControls() {
    BatchProcessOptions& o = m_options;
    for (const CheckBinding& c : qAsConst(m_checks)) *c.field = c.box->isChecked();
    o.sourceDir = m_sourceDir->text();
    o.fileType = m_fileType->currentIndex();
    o.fileFilter = m_filter->text();
    o.fileIndexStart = m_start->value();
    o.fileIndexIncr = m_incr->value();
    o.imageFrameSeparation = m_separation->value();
    o.fileStub = m_stub->text();
    o.destDir = m_destDir->text();
    o.parFile = m_parFile->text();
    if (m_displFile) o.displFile = m_displFile->text();
    if (m_plotFormat) o.plotExportFormat = m_plotFormat->text();
    if (m_outputFormat) o.outputFormat = m_outputFormat->currentIndex() == 1 ? 2 : 1;
    if (m_modOffset) o.imageSeqCalcAverageModOffset = m_modOffset->value();
    if (m_ensMethod) {
        o.ensembleEvalMethod = m_ensMethod->value();
        o.ensembleEvalPasses = m_ensPasses->value();
        o.ensembleMinFiles = m_ensMinFiles->value();
    }
}

void PIVBatchDlg::updateAvailableFiles() {
    readControls();
    const int available = m_options.updateFileList();
    m_available->setText(tr("Available Files: %1").arg(available));
    m_selected->setText(tr("Selected Files: %1").arg(m_options.fileList.size()));
}

BatchProcessOptions PIVBatchDlg::getBatchOptions() {
    updateAvailableFiles();
    return m_options;
}

void PIVBatchDlg::setBatchOpts(const BatchProcessOptions& options) {
    m_options = options;
    fillControls();
}

void PIVBatchDlg::registryIO(MySettings::AccessMode mode) {
    if (!m_settings) return;
    if (mode == MySettings::WRITE) readControls();
    m_options.registryIO(*m_settings, mode,
                         m_mode == 0 ? QStringLiteral("PIVBatch") : QStringLiteral("ImageBatch"));
    if (mode == MySettings::READ && isVisible()) fillControls();
}

void PIVBatchDlg::accept() {
    updateAvailableFiles();
    registryIO(MySettings::WRITE);
    QDialog::accept();
}

void PIVBatchDlg::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void PIVBatchDlg::dropEvent(QDropEvent* event) {
    QStringList files;
    QString dir;
    for (const QUrl& url : event->mimeData()->urls()) {
        const QFileInfo info(url.toLocalFile());
        if (info.isDir()) {
            dir = info.absoluteFilePath();
            files.clear();
            break;
        }
        if (!info.isFile()) continue;
        if (files.isEmpty()) dir = info.absolutePath();
        files << info.absoluteFilePath();
    }
    if (dir.isEmpty()) return;
    m_options.droppedFiles = files;
    m_sourceDir->setText(dir);
    updateAvailableFiles();
    event->acceptProposedAction();
}
