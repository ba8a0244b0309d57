// KelvaneData: the window's controller of everything that touches data:
// loading, saving, evaluating and the dialogs that edit them. It owns the
// engine and the progress bars and joins them: the bars follow the engine's
// progress, and their stop button cancels the run.
#pragma once

#include <QObject>
#include <QPointF>
#include <QRect>
#include <QString>
#include <QStringList>

#include <memory>

#include "batchprocessoptions.h"
#include "kelvanedataview.h"
#include "kelvanefile.h"
#include "kelvanestate.h"
#include "mysettings.h"
#include "piv_types.h"

class CorrPlaneView;
class Hist2DView;
class ImagePreProcessDlg;
class ImageViewer;
class KelvaneDataObject;
class LoadPairDlg;
class OutputDlg;
class PIVCalib2CDlg;
class PIVPostProcessDlg;
class PIVevalEngine;
class PTVevalObj;
class PivProbeDlg;
class PivSetupDlg;
class PivStatsDlg;
class PIVBatchDlg;
class QPIVensembleCorr;
class QThread;
class KelvaneImageBatch;
class QMainWindow;
class QMouseEvent;
class QTwinProgressToolBar;
class XYPlotWindow;

class KelvaneData : public QObject {
    Q_OBJECT
public:
    KelvaneData(KelvaneDataObject* dataObject, QMainWindow* window, MySettings* settings = nullptr);
    ~KelvaneData() override;

    PIVevalEngine* engine() const { return m_engine; }
    PTVevalObj* ptvEngine() const { return m_ptvEval; }
    QTwinProgressToolBar* progressBars() const { return m_bars; }
    OutputDlg* outputDlg() const { return m_outputDlg; }
    LoadPairDlg* loadPairDlg();
    PivSetupDlg* setupDlg() const { return m_setupDlg; }
    ImagePreProcessDlg* imageDlg() const { return m_imageDlg; }
    PIVPostProcessDlg* postProcessDlg() const { return m_postDlg; }
    PIVCalib2CDlg* calibDlg() const { return m_calibDlg; }
    PivProbeDlg* probeDlg() const { return m_probeDlg; }
    PivStatsDlg* statsDlg() const { return m_statsDlg; }
    ImageViewer* imageViewer() const { return m_imageViewer; }
    XYPlotWindow* imageHistogram() const { return m_histogram; }
    CorrPlaneView* corrPlaneView() const { return m_corrView; }
    Hist2DView* hist2DView() const { return m_hist2D; }
    KelvaneFile& kelvaneFile() { return m_file; }
    bool isBatchMode() const { return m_batchMode; }
    // While on, evaluations, other batches and mouse presses are refused and
    // no box opens but the batch's own.
    void setBatchMode(bool on);
    bool wasCancelled() const { return m_cancelled; }
    bool batchWasCancelled() const { return m_cancelled; }

    // ---- batches -------------------------------------------------------------
    // Runs a batch over options.fileList (filled from the options when empty)
    // from the overwrite question on; false when it did not start. The run
    // goes on in the event loop, a file per turn, and ends with
    // signalBatchFinished.
    bool startBatch(const BatchProcessOptions& options);
    bool batchSaveData(const BatchProcessOptions& options);
    bool batchPostProcess(const BatchProcessOptions& options);
    bool batchSecondPass(const BatchProcessOptions& options);
    // The closing report: kept, logged and shown without holding the event loop.
    void showBatchReport(const QString& report);
    // Starts the ensemble run on its thread; false when it did not start.
    // The end comes as signalBatchFinished.
    bool doEnsembleCorrelation(const BatchProcessOptions& options);
    // Starts the image batch on its thread; false with a box when there is
    // nothing to do or a question was refused. Ends with signalBatchFinished.
    bool startImageBatch(const BatchProcessOptions& options);
    // Fills an empty file list from the source folder; false, with a box
    // when that folder is missing, when there is nothing to run on.
    bool fillBatchFileList(BatchProcessOptions& options);
    // Asks once when any of `files` exists; true to go on.
    bool overWriteFileList(const QStringList& files, const QString& dir);
    // Every name a run of `options` may write, in the order it writes them.
    QStringList batchOutputFiles(const BatchProcessOptions& options) const;
    // The last run's closing report and its count of failed files.
    // The batch dialog, made on first use.
    PIVBatchDlg* batchDlg();
    const QString& batchReport() const { return m_batchReport; }
    int batchFailures() const { return m_batchFailures; }

    // ---- loading: a failed load keeps the session and says why -------------
    // A data set, a parameter file or an image, by what the file holds.
    bool loadFile(const QString& path, bool loadParams, bool loadAll, bool splitFlag);
    bool loadImage(const QString& path, bool splitFlag);
    bool loadDataFile(const QString& path, bool loadParams);
    void setImageFileFilters(const QString& filters);
    void setFileFilters(const QString& filters) { m_fileFilters = filters; }
    const QString& imageFileFilters() const { return m_imageFilters; }
    const QString& fileFilters() const { return m_fileFilters; }

    // ---- saving ------------------------------------------------------------
    // `format` is the entry of the output dialog's list; with `overwrite`
    // an existing file is replaced without asking.
    bool slotFileSaveDataAs(const QString& file, int format, bool postProcessed, bool overwrite);
    // Asks before an existing file is replaced; true to go on.
    bool overWriteFile(const QString& file, const QString& kind = QString());
    // 0 reads a parameter file, 1 saves to the known name, 2 asks for one.
    bool doParameterFileIO(int kind);
    // 0 text (".par" in ASCII), 1 NetCDF.
    void setParameterFileFormat(int format) { m_parFileFormat = format; }

    // The tracks of the view as the text table; a box says why not.
    bool savePTVData(const QString& file);

    // ---- probing the field with the mouse ----------------------------------
    // The vectors of a square of nodes around the one nearest `point`, to the
    // log and drawn; needs evaluated data and sampling switched on.
    void sampleAtPoint(const QPointF& point);
    // Switches the nearest vector of `view` off by hand, or back on.
    void toggleVectorFlag(const QPointF& point, int view);
    void setVectorSampling(bool on, int roi) {
        m_vectorSampling = on;
        m_samplingROI = roi;
    }
    bool isVectorSampling() const { return m_vectorSampling; }
    int samplingROI() const { return m_samplingROI; }
    double rulerLength() const { return m_rulerLength; }

    void updateKelvaneMode(KelvaneMode mode);
    void closeDialogs();
    void registryIO(MySettings::AccessMode mode);

public slots:
    void slotFileChooseImage();
    void slotFileChooseImagePair();
    void slotFileChooseReferenceImage();
    void slotFileChooseData();
    void slotFileSaveData();
    void slotFileSaveTecplot();
    void slotFileParametersRead() { doParameterFileIO(0); }
    void slotFileParametersSave() { doParameterFileIO(1); }
    void slotFileParametersSaveAs() { doParameterFileIO(2); }
    void slotFileSaveImage();
    // "PIV process": asks before a field is replaced, starts the run and
    // goes on when the engine says it finished.
    void slotEvaluateImage();
    void slotPostProcess();
    void slotPostProcessMenu();
    // The parameter dialog, filled from the session; accepting it applies.
    void slotShowPIVParameters();
    // Takes the records of the parameter dialog that differ from the session's.
    void slotGetParamsFromDialog();
    // New parameters in the session (a file read, a ruler moved) reach the dialogs.
    void slotUpdatePivParameters();
    void slotOpenImageProcDlg();
    void slotShowProbleDlg();
    void slotPivStats();
    void slotShowImageViewer();
    void slotProcessMousePress(QMouseEvent* event, QPointF point, bool inImage);
    void slotProcessMouseMove(QMouseEvent* event, QPointF point, bool inImage);
    void slotCorrelateAtPoint(QPointF point);
    // The scene's origin marker, ruler and region of interest.
    void slotSetReferencePoint(QPointF point);
    void slotSetRulerLength(double pixels);
    void slotSetROI(QRect rect);
    void slotCancelProcessing();
    // "Batch processing": the dialog, then the run.
    void slotPivBatchProcess();
    // "Image batch processing": the dialog and the run; while one runs, stops it.
    void slotImageBatchProcess();
    void slotImageBatchFinished();
    // "PTV scan": tracks the particles of the pair under the field on view,
    // the post-processed one when there is one, on the tracker's worker;
    // refuses with a box when there is no pair or no field.
    void slotPTV_ProcessImage();
    // "Save PTV data": the tracks of the view as a text table, one line a
    // first-frame particle, into `file` once an existing one may go.
    void slotPTV_SaveData(const QString& file);
    // A 256-bin histogram of both frames, kept up to date with each new image.
    void slotImageHistogram(bool show);
    // The correlation plane of the spots correlated from now on.
    void slotShowCorrelationPlane();
    // The image's colours, passed on to the views that show images.
    void slotSetNewDisplayParams(BMP_DISPLAY_PARAMS params);
    // The histogram of the field on view, kept up to date with new data.
    void slotShowHistogram();
    // The histogram's regions become the validation's windows, are stored
    // and applied at once.
    void slotHistWindowValidate();
    // A mask saved by the editor: on "Yes, enable" its file and enable flag
    // go into the view's image settings and the image is loaded again.
    void slotUpdateMask(QString file, int view, int slot);

signals:
    void signalMessage(const QString& text);
    void signalLogMessage(const QString& text);
    void signalSetCaption(const QString& text);
    void signalSetKelvaneMode(KelvaneMode mode);
    void signalUpdateUI();
    void signalRedrawAll();
    void signalNewPivParameters();
    void signalProcessRightButton(QMouseEvent* event);
    void signalDrawVector(PIV_VECTOR vector, int view);
    void signalResetRuler();
    void signalOpenNewWindow(const QString& file);
    void signalAddToRecentFiles(const QString& file);
    void signalAddToRecentImages(const QString& file);
    // A plot of the result on view written beside it, in `format`.
    void signalExportPlot(const QString& file, int scene, const QString& format, bool hideImage);
    void signalBatchFinished();

private:
    void evaluationFinished(bool haveData);
    void ptvFinished(bool ok, const QString& why);
    // The steps of a batch run between turns of the event loop.
    void batchNextFile();
    void batchFileEvaluated(bool haveData);
    void batchFileDone(bool ok, const QString& why);
    void batchFinish();
    void ensembleFinished();
    // A warning box, never during a batch.
    void warn(const QString& title, const QString& text);
    bool isReadableFile(const QString& path);
    void loadPairFromDialog();
    // Moves the working directory, the output names and the recent list
    // after an image loaded.
    void imageLoaded(const QString& path);
    void createDialogs();
    // Image dialog accepted: a file it names that cannot be read keeps the
    // images as they are.
    void applyImageCfg();
    void applyPostProcessCfg();
    void applyCalibration();
    // Mends the dialog's evaluation block (unless null) and units as the
    // library would and says what it changed; true when nothing needed it.
    bool mendParameters(PIVEVAL_CFG* eval, PIVCONVERT_CFG& convert);
    // The session's records in the dialog's form.
    void fillSetupDlg();
    // A status line for a vector: "Dx=.. Dy=.. (SNR=..) Vel=.., .. unit".
    QString vectorText(const PIV_VECTOR& v) const;
    void updateImageHistogram();
    void createViews();
    void updateHistogram();

    KelvaneDataObject* m_dataObject;
    MySettings* m_settings;
    QMainWindow* m_window;
    PIVevalEngine* m_engine;
    PTVevalObj* m_ptvEval;
    QTwinProgressToolBar* m_bars;
    OutputDlg* m_outputDlg;
    LoadPairDlg* m_loadPairDlg = nullptr;
    PivSetupDlg* m_setupDlg = nullptr;
    ImagePreProcessDlg* m_imageDlg = nullptr;
    PIVPostProcessDlg* m_postDlg = nullptr;
    PIVCalib2CDlg* m_calibDlg = nullptr;
    PivProbeDlg* m_probeDlg = nullptr;
    PivStatsDlg* m_statsDlg = nullptr;
    ImageViewer* m_imageViewer = nullptr;
    double m_rulerPixels = 0.0;  // the ruler's last length in the image
    XYPlotWindow* m_histogram = nullptr;
    CorrPlaneView* m_corrView = nullptr;
    Hist2DView* m_hist2D = nullptr;
    KelvaneFile m_file;
    QString m_imageFilters, m_fileFilters;
    bool m_batchMode = false;
    bool m_cancelled = false;
    bool m_evaluating = false;
    struct BatchRun;
    std::unique_ptr<BatchRun> m_batch;  // the run going on
    PIVBatchDlg* m_batchDlg = nullptr;
    // The ensemble run: its correlator (which holds the offset field), thread, options.
    std::unique_ptr<QPIVensembleCorr> m_ensemble;
    std::unique_ptr<QThread> m_ensembleThread;
    BatchProcessOptions m_ensembleOptions;
    bool m_ensembleOk = false;
    PIVBatchDlg* m_imageBatchDlg = nullptr;
    KelvaneImageBatch* m_imageBatch = nullptr;  // made on first use
    QString m_batchReport;
    int m_batchFailures = 0;
    int m_parFileFormat = 0;
    // Settings of the panels and probes that come with the dialogs.
    double m_rulerLength = 10.0;
    int m_dataFileLoadType = 0;
    bool m_vectorSampling = false;
    int m_samplingROI = 3;
    bool m_storeMagnitude = false;
    int m_outputFormat = 0;
};
