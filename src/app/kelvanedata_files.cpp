// Loading and saving through the window: the file dialogs, the boxes that
// say why a file was refused, and the names the results go under.
#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>

#include "app_messages.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "loadpairdlg.h"
#include "outputdlg.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_ncfile.h"
#include "piv_params.h"
#include "qpiv_imagepair.h"

namespace {

constexpr int kRawData = 0x100;
constexpr int kParameters = 0x2000;

}  // namespace

bool KelvaneData::isReadableFile(const QString& path) {
    const QFileInfo info(path);
    if (info.isFile() && info.isReadable()) return true;
    warn(QApplication::applicationName(), tr("File does not exist or cannot be read:\n") + path);
    emit signalLogMessage(tr("File does not exist or cannot be read:\n   ") + path);
    return false;
}

bool KelvaneData::loadFile(const QString& path, bool loadParams, bool loadAll, bool splitFlag) {
    if (path.isEmpty() || !isReadableFile(path)) return false;
    const LibraryReport report;
    emit signalMessage(tr("Loading: ") + path);
    PIV::FILE_INFO info;
    PIV::GetFileInformation(path.toLocal8Bit().constData(), info);
    // A file named as data or parameters that does not read as such is
    // refused in those words, not as an image of an unknown kind.
    const QString suffix = QFileInfo(path).suffix().toLower();
    const bool dataName = suffix == QLatin1String("nc") || suffix == QLatin1String("cdf");
    if ((info.content & kRawData) || (dataName && !(info.content & kParameters))) {
        if (!loadDataFile(path, loadAll)) return false;
        emit signalAddToRecentFiles(path);
        return true;
    }
    const bool parName = suffix == QLatin1String("par");
    if (loadParams || parName || (info.content & kParameters)) {
        if (m_dataObject->loadParameters(path)) return true;
        warn(QApplication::applicationName(),
             report.explain(
                 tr("Failure loading parameter file!\n%1").arg(m_dataObject->lastError())));
        return false;
    }
    return loadImage(path, splitFlag);
}

bool KelvaneData::loadImage(const QString& path, bool splitFlag) {
    if (!isReadableFile(path)) return false;
    const LibraryReport report;
    emit signalMessage(tr("Loading: ") + path);
    closeDialogs();
    const QString absolute = QFileInfo(path).absoluteFilePath();
    if (!m_dataObject->loadPivImage(absolute, QString(), splitFlag, 0)) {
        warn(QApplication::applicationName(), report.explain(m_dataObject->lastError()));
        return false;
    }
    imageLoaded(absolute);
    return true;
}

void KelvaneData::imageLoaded(const QString& path) {
    m_file.setFileName(m_dataObject->image(0)->filePath(false));
    if (m_batchMode) return;
    QDir::setCurrent(QFileInfo(path).absolutePath());
    emit signalAddToRecentImages(path);
    emit signalSetKelvaneMode(MODE_DATA);
}

bool KelvaneData::loadDataFile(const QString& path, bool loadParams) {
    const QFileInfo info(path);
    if (!info.exists()) {
        emit signalMessage(tr("File doesn't exist: '%1'").arg(path));
        return false;
    }
    if (!info.isReadable()) {
        emit signalMessage(tr("File can't be read: '%1'").arg(path));
        return false;
    }
    // The session goes only once the new field has read: a bad file keeps it.
    const LibraryReport report;
    m_dataObject->setFlagStereoMode(false);
    m_dataObject->setCurrentView(0);
    if (!m_dataObject->loadPivData(path, 0, loadParams)) {
        warn(QApplication::applicationName(),
             report.explain(tr("Trouble loading file\n%1").arg(m_dataObject->lastError())));
        emit signalMessage(tr("Failure loading file: ") + path);
        return false;
    }
    if (!m_batchMode) {
        closeDialogs();
        m_file.setFileName(path);
        m_dataObject->doPostProcessing();
        QDir::setCurrent(info.absolutePath());
        const QString text = tr("File loaded successfully: '%1'").arg(path);
        emit signalMessage(text);
        emit signalLogMessage(text);
        emit signalSetKelvaneMode(MODE_DATA);
        emit m_dataObject->signalHaveNewData(m_dataObject->currentView());
    }
    return true;
}

void KelvaneData::setImageFileFilters(const QString& filters) {
    m_imageFilters = filters;
    if (m_loadPairDlg) m_loadPairDlg->setFileFilters(filters);
}

void KelvaneData::slotFileChooseImage() {
    const bool speckle = m_dataObject->analysisMode() == PIV::ANALYSIS_SPECKLE;
    QPIV_ImagePair* pair = m_dataObject->image(0);
    if (speckle && !QFileInfo(pair->referenceImage()).isFile()) {
        QMessageBox::warning(m_window, tr("Missing reference image"),
                             tr("You must first specify a valid reference image\nwhich shows the "
                                "speckle pattern at rest"));
        emit signalMessage(tr("First load valid reference image"));
        return;
    }
    QFileDialog dialog(m_window,
                       speckle ? tr("Select displaced speckle image") : tr("Select PIV image"),
                       QDir::currentPath(), m_imageFilters);
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setFileMode(QFileDialog::ExistingFile);
    auto* offset = new QSpinBox(&dialog);
    offset->setRange(1, 9999);
    offset->setValue(pair->frameSeparation());
    if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout())) {
        const int row = grid->rowCount();
        grid->addWidget(new QLabel(tr("Image pair offset"), &dialog), row, 0);
        grid->addWidget(offset, row, 1);
    }
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return;
    m_dataObject->image(0)->setFrameSeparation(offset->value());
    loadImage(dialog.selectedFiles().first(), false);
}

void KelvaneData::slotFileChooseImagePair() {
    if (m_dataObject->isStereoMode()) {
        emit signalMessage(tr("Function not available in stereo mode"));
        return;
    }
    LoadPairDlg* dialog = loadPairDlg();
    dialog->show();
    dialog->raise();
}

void KelvaneData::loadPairFromDialog() {
    const IMAGEPAIR_FILES files = m_loadPairDlg->record();
    const QString a = QString::fromLocal8Bit(files.FileA);
    const QString b = QString::fromLocal8Bit(files.FileB);
    if (!isReadableFile(a) || !isReadableFile(b)) return;
    closeDialogs();
    const LibraryReport report;
    if (!m_dataObject->loadPivImage(a, b, false, 0)) {
        warn(QApplication::applicationName(), report.explain(m_dataObject->lastError()));
        return;
    }
    imageLoaded(a);
}

void KelvaneData::slotFileChooseReferenceImage() {
    const QString file = QFileDialog::getOpenFileName(m_window, tr("Select reference image"),
                                                      QDir::currentPath(), m_imageFilters);
    if (file.isEmpty() || !isReadableFile(file)) return;
    m_dataObject->image(0)->setReferenceImage(QFileInfo(file).absoluteFilePath());
    emit signalMessage(tr("Reference image: ") + file);
}

void KelvaneData::slotFileChooseData() {
    const QString file = QFileDialog::getOpenFileName(
        m_window, tr("Load PIV data set"), m_dataObject->currentOutputDir(), m_fileFilters);
    if (!file.isEmpty()) loadFile(file, false, m_dataFileLoadType != 0, false);
}

// ---- saving -------------------------------------------------------------------

void KelvaneData::slotFileSaveData() {
    if (!m_dataObject->haveData(-1) && !m_dataObject->haveData(3)) {
        emit signalMessage(tr("Data not available"));
        return;
    }
    OutputDlg* dialog = m_outputDlg;
    OUTPUT_CFG cfg = m_file.output();
    cfg.OutputFormat = m_file.format();
    dialog->setRecord(cfg);
    dialog->setFileName(m_file.defaultFileName(KelvaneFile::VELOCITY_DATA));
    dialog->setPostProcessed(m_dataObject->currentView() == 3, m_dataObject->haveData(3));
    if (dialog->exec() != QDialog::Accepted) return;
    slotFileSaveDataAs(dialog->fileName(), dialog->formatIndex(), dialog->postProcessed(), false);
}

void KelvaneData::slotFileSaveTecplot() {
    m_outputDlg->setFormatIndex(OutputDlg::indexOfFormat(2));
    const QString file = QFileDialog::getSaveFileName(
        m_window, tr("Save for Tecplot"), m_file.defaultFileName(KelvaneFile::VELOCITY_DATA),
        tr("Tecplot binary (*.plt)"));
    if (!file.isEmpty())
        slotFileSaveDataAs(file, OutputDlg::indexOfFormat(2), m_dataObject->currentView() == 3,
                           true);
}

bool KelvaneData::overWriteFile(const QString& file, const QString& kind) {
    if (!QFileInfo::exists(file)) return true;
    QMessageBox box(QMessageBox::Warning, tr("File export..."),
                    tr("Overwrite existing ") + (kind.isEmpty() ? tr("file") : kind) +
                        QStringLiteral(":\n'") + file + QStringLiteral("'"),
                    QMessageBox::NoButton, m_window);
    QPushButton* yes = box.addButton(tr("Yes, overwrite!"), QMessageBox::YesRole);
    QPushButton* cancel = box.addButton(tr("Cancel"), QMessageBox::RejectRole);
    box.setDefaultButton(cancel);
    box.exec();
    return box.clickedButton() == yes;
}

bool KelvaneData::slotFileSaveDataAs(const QString& file, int format, bool postProcessed,
                                     bool overwrite) {
    OUTPUT_CFG cfg = m_outputDlg->record();
    cfg.OutputFormat = OutputDlg::formatOfIndex(format);
    const int view = postProcessed ? 3 : m_dataObject->currentView();
    if (!m_dataObject->haveData(view)) {
        emit signalMessage(postProcessed ? tr("Post-processed data not available")
                                         : tr("Data not available"));
        return false;
    }
    QString name = file;
    if (QFileInfo(name).suffix().isEmpty()) name += KelvaneFile::extension(cfg.OutputFormat);
    if (!overwrite && !overWriteFile(name)) return false;
    PIV_Data2D* data = m_dataObject->data(view);
    const QByteArray path = name.toLocal8Bit();
    bool ok = data->save(path.constData(), 0, cfg);
    QString reason = QString::fromLocal8Bit(data->getLastError());
    if (ok && cfg.OutputFormat == 3) {
        PIV_Parameters params;
        params.setPivParameters(m_dataObject->parameters(view)->pivParameters());
        params.setImageCfg(m_dataObject->image(0)->imageCfg());
        params.setPostProcessCfg(m_dataObject->postProcessCfg());
        ok = params.save(path.constData());
        if (!ok) reason = QString::fromLocal8Bit(params.error().getLastError());
    }
    if (!ok) {
        warn(tr("File export..."), tr("Failure saving data in file '%1'\n%2").arg(name, reason));
        return false;
    }
    m_file.output() = cfg;
    m_file.setFormat(cfg.OutputFormat);
    m_file.setDestinationDir(QFileInfo(name).absolutePath());
    m_outputFormat = format;
    m_storeMagnitude = cfg.StoreMagnitude;
    const QString text = tr("Saved data in file '%1'").arg(name);
    emit signalMessage(text);
    emit signalLogMessage(text);
    m_dataObject->setOutputFileName(name);
    return true;
}

bool KelvaneData::doParameterFileIO(int kind) {
    const QString netcdf = tr("NetCDF Parameter files (*.par)");
    const QString ascii = tr("ASCII Parameter files (*.par;*.txt)");
    const QString filters = m_parFileFormat == 1 ? netcdf + QStringLiteral(";;") + ascii
                                                 : ascii + QStringLiteral(";;") + netcdf;
    if (kind == 0) {
        const QString file = QFileDialog::getOpenFileName(
            m_window, tr("Choose a parameter file to open"), QDir::currentPath(),
            filters + tr(";;Data files (*.nc;*.par);;All files (*.*)"));
        if (file.isEmpty()) return false;
        if (m_dataObject->loadParameters(file)) return true;
        warn(QApplication::applicationName(),
             tr("Failure loading parameter file!\n%1").arg(m_dataObject->lastError()));
        return false;
    }
    QString file = m_file.parameterFileName();
    if (kind == 2) {
        file = QFileDialog::getSaveFileName(m_window, tr("Save parameters"), file, filters);
        if (file.isEmpty()) return false;
    }
    PIV_Parameters params;
    params.setPivParameters(m_dataObject->parameters(0)->pivParameters());
    params.setImageCfg(m_dataObject->image(0)->imageCfg());
    params.setPostProcessCfg(m_dataObject->postProcessCfg());
    const QByteArray path = file.toLocal8Bit();
    const bool ok =
        m_parFileFormat == 1 ? params.save(path.constData()) : params.saveASCII(path.constData());
    if (!ok) {
        warn(QApplication::applicationName(),
             tr("Failure saving parameter file: %1\n%2")
                 .arg(file, QString::fromLocal8Bit(params.error().getLastError())));
        return false;
    }
    const QString text = tr("Saved parameters in file '%1'").arg(file);
    emit signalMessage(text);
    emit signalLogMessage(text);
    return true;
}

void KelvaneData::slotFileSaveImage() {
    QPIV_ImagePair* pair = m_dataObject->image(0);
    if (pair->isNull()) return;
    const QString dir =
        QFileDialog::getExistingDirectory(m_window, tr("Save image pair"), m_file.destinationDir());
    if (dir.isEmpty()) return;
    if (!pair->save(QDir(dir), QString(), true))
        warn(QApplication::applicationName(),
             tr("Failure saving images in '%1'\n%2").arg(dir, pair->lastErrorText()));
}
