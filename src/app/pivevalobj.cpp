#include "pivevalobj.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <algorithm>
#include <cstring>
#include <memory>

#include "kelvanedataobject.h"
#include "piv_enums.h"
#include "piv_fft_plans.h"
#include "piv_messages.h"
#include "piv_multigrid_levels.h"
#include "piv_params.h"
#include "piv_record.h"
#include "piv_util.h"
#include "qpiv_imagepair.h"

// What the worker needs; nothing in it is shared with the session. The
// images fill while `sources` still point into the session's pair.
struct PIVevalEngine::Job {
    std::shared_ptr<Image2D> a, b, maskA, maskB;
    std::vector<std::pair<const Image2D*, Image2D*>> sources;
    PIV_PARAMETERS params;
    IMAGE_CFG imageCfg;
    POSTPROCESS_CFG post;
    int analysisMode = 1;
    bool live = false;
    QString progressText;
    QSharedPointer<PIV_Data2D> field;
};

namespace {

constexpr int64_t kSliceBytes = 2 << 20;

// An empty image of the geometry of `source`, to be filled row by row.
std::shared_ptr<Image2D> _blank(const Image2D* source) {
    auto image = std::make_shared<Image2D>();
    image->alloc(int64_t(source->width()), int64_t(source->height()), source->type(),
                 int64_t(source->padding()));
    return image;
}

// The sample lists a run of this method correlates, for the share of one.
int _expectedLists(const PIVEVAL_CFG& cfg) {
    const int passes = std::max(cfg.Passes, 1);
    if (cfg.Method == PIV::METHOD_MULTI_GRID) {
        std::vector<MULTIGRID_LEVEL> levels;
        PIV::BuildMultiGridLevels(cfg, levels);
        return std::max(int(levels.size()), 1);
    }
    if (cfg.Method != PIV::METHOD_MULTI_PASS) return 1;
    if (cfg.ImageMapping2D.Mode == PIV::DEFORM_FINAL_PASS) return std::max(passes - 1, 2) + 1;
    return passes;
}

// Vectors and flags of `from` into `to` in place where the grids agree, so
// that the session never holds a second field for it.
void _deliver(PIV_Data2D* to, const PIV_Data2D& from) {
    const DATA_GRID4D& a = to->grid();
    const DATA_GRID4D& b = from.grid();
    const bool sameGrid = !to->isNull() && a.nodes.width == b.nodes.width &&
                          a.nodes.height == b.nodes.height && a.nodes.depth == b.nodes.depth &&
                          a.timeSteps == b.timeSteps;
    if (!sameGrid || !to->putTimeStep(from, 0, from.timeAt(0))) *to = from;
    if (to->haveRawData()) to->doStatistics();
}

bool _sameSettings(const PIV_PARAMETERS& a, const PIV_PARAMETERS& b) {
    return PIV::SameRecord(a.eval, b.eval) && PIV::SameRecord(a.outlier, b.outlier);
}

}  // namespace

PIVevalEngine::PIVevalEngine(KelvaneDataObject* dataObject, QWidget* parentWidget, QObject* parent)
    : QObject(parent), m_dataObject(dataObject), m_parentWidget(parentWidget) {
    // Estimated plans, as kelvane-eval takes: a measured plan may differ from
    // one process to the next, and with it the last digits of a field, so the
    // window, its batch and the tool give the same field for the same pair.
    // Set before the first correlator plans anything.
    PIV::SetMeasuredFFTPlans(false);
    createEvaluators();
    connect(dataObject, &KelvaneDataObject::signalHaveNewImage, this,
            &PIVevalEngine::slotUpdatePivImages);
    connect(dataObject, &KelvaneDataObject::signalHaveNewParameters, this,
            &PIVevalEngine::slotUpdatePivParameters);
    connect(dataObject, &KelvaneDataObject::signalChangedAnalysisMode, this,
            &PIVevalEngine::slotUpdateAnalysisMode);
    connect(dataObject, &KelvaneDataObject::signalChangedView, this,
            &PIVevalEngine::slotUpdateCurrentView);
    m_thread.setObjectName(QStringLiteral("PIV evaluation"));
    m_thread.start();
    updatePivImages(false);
}

// An evaluator keeps one correlator per thread the library allowed when it
// was built.
void PIVevalEngine::createEvaluators() {
    KelvaneDataObject* dataObject = m_dataObject;
    m_eval[0] = m_eval[1] =
        new QPIV_Eval2D(dataObject->data(0), dataObject->parameters(0), m_parentWidget);
    QPIV_Eval2D* eval = m_eval[0];
    eval->setAnalysisMode(dataObject->analysisMode());
    connect(eval, &QPIV_Eval2D::signalShowProgress, this, &PIVevalEngine::signalShowProgress);
    connect(eval, &QPIV_Eval2D::signalMessage, this, &PIVevalEngine::signalMessage);
    connect(eval, &QPIV_Eval2D::signalLogMessage, this, &PIVevalEngine::signalLogMessage);
    connect(eval, &QPIV_Eval2D::signalDrawSamples, this, &PIVevalEngine::slotDrawSamples);
    connect(eval, &QPIV_Eval2D::signalDrawCorrelation, this, &PIVevalEngine::slotDrawCorrelation);
    // This evaluator works on the session's own field: a pass only needs
    // showing, and the loan goes back at once.
    connect(eval, &QPIV_Eval2D::signalNewPivData, this, [this](const PIVFieldLoan& loan) {
        if (loan) loan->read({});
        m_dataObject->slotSetNewPivData();
    });

    // The worker's evaluator has a field and parameters of its own.
    m_runner = new QPIV_Eval2D(nullptr, nullptr);
    m_runner->moveToThread(&m_thread);
    connect(m_runner, &QPIV_Eval2D::signalShowProgress, this, &PIVevalEngine::runProgress,
            Qt::QueuedConnection);
    connect(m_runner, &QPIV_Eval2D::signalMessage, this, &PIVevalEngine::signalMessage,
            Qt::QueuedConnection);
    connect(m_runner, &QPIV_Eval2D::signalLogMessage, this, &PIVevalEngine::signalLogMessage,
            Qt::QueuedConnection);
    connect(m_runner, &QPIV_Eval2D::signalNewPivData, this, &PIVevalEngine::runField,
            Qt::QueuedConnection);
    connect(m_runner, &QPIV_Eval2D::signalDrawSamples, this, &PIVevalEngine::slotDrawSamples,
            Qt::QueuedConnection);
    connect(m_runner, &QPIV_Eval2D::signalDrawCorrelation, this,
            &PIVevalEngine::slotDrawCorrelation, Qt::QueuedConnection);
}

void PIVevalEngine::setThreadCount(int count) {
    PIV::SetMaxThreads(count);
    m_rebuildPending = true;
    if (!m_running) rebuildEvaluators();
}

void PIVevalEngine::rebuildEvaluators() {
    m_rebuildPending = false;
    delete m_eval[0];
    // The worker's evaluator goes on its own thread, after what it queued.
    m_runner->deleteLater();
    createEvaluators();
    updatePivImages(false);
}

PIVevalEngine::~PIVevalEngine() {
    // The data object may be gone already: only the worker and own references.
    if (m_running) m_runner->cancelProcessing();
    m_thread.quit();
    m_thread.wait();
    delete m_runner;
    if (m_runTarget) m_runTarget->release();
    delete m_eval[0];
}

bool PIVevalEngine::refuse(const QString& text) {
    m_lastMessage = text;
    emit signalMessage(text);
    return false;
}

int PIVevalEngine::askGridMismatch(int view) {
    const DATA_GRID4D data = m_dataObject->data(view)->grid();
    const DATA_GRID4D params = m_dataObject->parameters(view)->dataGrid();
    const QString text = long(params.nodes.width) * params.nodes.height == 0
                             ? tr("invalid grid size")
                             : tr("Grid mismatch for view %1\nData: %2 x %3\nParams: %4 x %5")
                                   .arg(view)
                                   .arg(data.nodes.width)
                                   .arg(data.nodes.height)
                                   .arg(params.nodes.width)
                                   .arg(params.nodes.height);
    m_lastMessage = text;
    return QMessageBox::warning(m_parentWidget, tr("pivEval"), text);
}

bool PIVevalEngine::isInterrogationPossible(bool ask) {
    if (m_running) return refuse(tr("Evaluation already in progress..."));
    const QPIV_ImagePair* pair = m_dataObject->image(0);
    if (!pair || pair->isNull()) return refuse(tr("Cannot process - no image!"));
    if (m_dataObject->kelvaneMode() == MODE_ARRANGE_PLOT)
        return refuse(tr("Cannot process during object move!"));
    if (!m_dataObject->isImagePair()) return refuse(tr("Cannot process - not an image pair!"));
    if (!m_canProcess) return refuse(tr("Can not process - missing image?"));

    // The grid and the outlier settings are looked at before the library's
    // test, which reports a grid mismatch in its own words and switches
    // outlier detection on for an iterative method.
    const int views = m_dataObject->isStereoMode() ? 2 : 1;
    for (int view = 0; view < views; ++view) {
        const DATA_GRID4D grid = m_dataObject->parameters(view)->dataGrid();
        const long nodes = long(grid.nodes.width) * grid.nodes.height;
        if (nodes == 0 || nodes != long(m_dataObject->data(view)->nodeCount())) {
            askGridMismatch(view);
            return false;
        }
    }
    PIV_Parameters* params = m_dataObject->parameters(0);
    const OUTLIER_CFG outliers = params->outlierCfg();
    const bool askOutliers =
        params->pivEvalCfg().Method != PIV::METHOD_SINGLE_PASS && !outliers.Enable;

    for (int view = 0; view < views; ++view) {
        QPIV_Eval2D* eval = m_eval[view];
        const bool possible = eval->isInterrogationPossible(ask);
        params->setOutlierCfg(outliers);
        if (!possible) {
            DebugPrintExt(1, "Interrogation not possible: %s", eval->getLastError());
            return refuse(
                tr("Can not process - %1").arg(QString::fromLocal8Bit(eval->getLastError())));
        }
    }

    if (askOutliers && ask) {
        QMessageBox box(QMessageBox::Warning, tr("Warning"),
                        tr("For best results, multiple pass interrogation schemes require\nthat "
                           "outlier detection is enabled!\nIf not enabled, the program chooses "
                           "own defualt values"),
                        QMessageBox::NoButton, m_parentWidget);
        box.addButton(tr("Ignore (Use defaults)"), QMessageBox::AcceptRole);
        QPushButton* enable = box.addButton(tr("Enable+Continue"), QMessageBox::YesRole);
        QPushButton* abort = box.addButton(tr("Abort"), QMessageBox::RejectRole);
        box.exec();
        if (box.clickedButton() == abort || !box.clickedButton()) {
            m_lastMessage = tr("Abort");
            return false;
        }
        if (box.clickedButton() == enable) {
            OUTLIER_CFG on = outliers;
            on.Enable = true;
            m_dataObject->parameters(0)->setOutlierCfg(on);
            m_dataObject->parameters(1)->setOutlierCfg(on);
        }
    }
    return true;
}

bool PIVevalEngine::interrogateImage() {
    if (m_running) return refuse(tr("Evaluation already in progress..."));
    if (!isInterrogationPossible(true)) {
        m_lastMessage = tr("PIV processing not possible:\n%1").arg(m_lastMessage);
        emit signalLogMessage(m_lastMessage);
        return false;
    }
    if (KelvaneState* state = m_dataObject->state()) state->setProcessingFlag(true);
    m_clock.start();
    emit signalMessage(tr("Evaluating image..."));
    clear();
    updatePivImages(false);

    QPIV_Eval2D* eval = m_eval[0];
    PIV_Parameters* params = m_dataObject->parameters(0);
    const PIVEVAL_CFG cfg = params->pivEvalCfg();
    m_running = true;
    m_cancelRequested = false;
    // A stop pressed from here on, even before the worker starts, holds.
    m_runner->init();
    eval->setFlagEvaluationRunning(true);
    eval->showProgressDialog();
    const bool live = cfg.ShowIntermediate || m_liveProgress;
    eval->setFlagLiveEvaluation(live);
    eval->setProgressText(
        tr("PIV-Evaluation in progress... ") +
        tr("(%1 x %2 Nodes)").arg(cfg.grid.nodes.width).arg(cfg.grid.nodes.height));
    m_dataObject->setCurrentView(0);
    emit signalMessage(tr("PIV-Processing view A"));

    const QPIV_ImagePair* pair = m_dataObject->image(0);
    m_runPair = pair;
    m_runImageGeneration = m_imageGeneration;
    m_runMaskRevision = m_dataObject->maskRevision();
    m_runTarget = m_dataObject->data(0);
    m_runTarget->addRef();
    m_runParams = params->pivParameters();
    m_runAnalysisMode = m_dataObject->analysisMode();
    m_listsExpected = _expectedLists(cfg);
    m_listsDone = 0;
    m_lastPercent = 1;

    m_job = std::make_unique<Job>();
    Job& job = *m_job;
    job.a = _blank(pair->imgA());
    job.b = _blank(pair->imgB());
    job.sources = {{pair->imgA(), job.a.get()}, {pair->imgB(), job.b.get()}};
    if (pair->isMaskAvailable()) {
        job.maskA = _blank(pair->imgA()->imageMask());
        job.sources.push_back({pair->imgA()->imageMask(), job.maskA.get()});
        const Image2D* maskB = pair->imgB()->imageMask();
        if (!maskB->isNull()) {
            job.maskB = _blank(maskB);
            job.sources.push_back({maskB, job.maskB.get()});
        }
    }
    job.params = m_runParams;
    job.imageCfg = params->imageCfg();
    job.post = params->postProcessCfg();
    job.analysisMode = m_runAnalysisMode;
    job.live = live;
    job.progressText = eval->progressText();
    auto* field = new PIV_Data2D;
    *field = *m_runTarget;
    job.field = QSharedPointer<PIV_Data2D>(field, [](PIV_Data2D* d) { d->release(); });
    m_copyRow = 0;
    // The end is signalled after this returns, even for a run stopped at once.
    QTimer::singleShot(0, this, &PIVevalEngine::copyNextSlice);
    return true;
}

void PIVevalEngine::copyNextSlice() {
    if (!m_running || !m_job) return;
    if (m_cancelRequested || !isRunCurrent()) {
        m_job.reset();
        finishRun(false, {}, m_cancelRequested ? tr("Cancelled") : tr("The image changed"));
        return;
    }
    // A frame or mask changed in place since the start (a mask reloaded,
    // the session cleared) no longer fits its copy: the run ends rather
    // than copy past it or evaluate a frame that is half the old one.
    for (const auto& [from, to] : m_job->sources) {
        if (from->isNull() || from->width() != to->width() || from->height() != to->height() ||
            from->type() != to->type() || from->bytesPerLine() != to->bytesPerLine()) {
            m_job.reset();
            finishRun(false, {}, tr("The image changed"));
            return;
        }
    }
    int64_t widest = 1;
    for (const auto& source : m_job->sources)
        widest = std::max(widest, int64_t(source.first->bytesPerLine()));
    const int64_t first = m_copyRow;
    m_copyRow += std::max<int64_t>(1, kSliceBytes / widest);
    bool more = false;
    for (const auto& [from, to] : m_job->sources) {
        const int64_t line = int64_t(from->bytesPerLine());
        const int64_t height = int64_t(from->height());
        const int64_t end = std::min(m_copyRow, height);
        if (first < end)
            std::memcpy(to->bits() + first * line, from->bits() + first * line,
                        size_t((end - first) * line));
        more = more || end < height;
    }
    if (more)
        QTimer::singleShot(0, this, &PIVevalEngine::copyNextSlice);
    else
        startWorker();
}

void PIVevalEngine::startWorker() {
    std::shared_ptr<Job> job(m_job.release());
    QPIV_Eval2D* runner = m_runner;
    QMetaObject::invokeMethod(
        runner,
        [this, runner, job] {
            PIV_Parameters* p = runner->parameters();
            p->setPivParameters(job->params);
            p->setImageCfg(job->imageCfg);
            p->setPostProcessCfg(job->post);
            runner->setPivData(job->field.data());
            runner->setAnalysisMode(job->analysisMode);
            runner->setProgressText(job->progressText);
            runner->setFlagLiveEvaluation(job->live);
            bool ok = runner->setPivImages(job->a.get(), job->b.get());
            runner->setMaskImages(job->maskA.get(), job->maskB.get(), bool(job->maskA));
            ok = ok && runner->interrogateImage(job->live);
            const QString error = QString::fromLocal8Bit(runner->getLastError());
            runner->setPivData(nullptr);
            // Nothing but the field outlives the run.
            job->a.reset();
            job->b.reset();
            job->maskA.reset();
            job->maskB.reset();
            QSharedPointer<PIV_Data2D> result;
            result.swap(job->field);
            QMetaObject::invokeMethod(
                this,
                [this, ok, result, error]() mutable { finishRun(ok, std::move(result), error); },
                Qt::QueuedConnection);
        },
        Qt::QueuedConnection);
}

bool PIVevalEngine::isRunCurrent() const {
    return m_imageGeneration == m_runImageGeneration && m_dataObject->image(0) == m_runPair &&
           !m_runPair->isNull() && m_dataObject->maskRevision() == m_runMaskRevision &&
           m_dataObject->data(0) == m_runTarget &&
           m_dataObject->analysisMode() == m_runAnalysisMode &&
           _sameSettings(m_dataObject->parameters(0)->pivParameters(), m_runParams);
}

void PIVevalEngine::runProgress(int done, int total) {
    // Progress after a stop still shows: it tells how far the worker went
    // before it saw the stop.
    if (!m_running) return;
    if (done < 0) {
        ++m_listsDone;
        return;
    }
    const double share = (m_listsDone + double(done) / std::max(total, 1)) / m_listsExpected;
    const int percent = std::clamp(int(100.0 * share), 1, 99);
    if (percent <= m_lastPercent) return;
    m_lastPercent = percent;
    emit signalShowProgress(percent, 100);
}

void PIVevalEngine::runField(const PIVFieldLoan& loan) {
    if (!loan) return;
    if (!m_running || m_cancelRequested || !isRunCurrent()) {
        loan->read({});
        return;
    }
    PIV_Data2D* shown = m_dataObject->data(0);
    loan->read([shown](const PIV_Data2D& field) { _deliver(shown, field); });
    // Between passes the library marks its field raw to validate it; the
    // session must not take a pass for the result.
    shown->setFlagRawData(false);
    shown->setFlagIntermediateData(true);
    m_dataObject->slotSetNewPivData();
}

void PIVevalEngine::finishRun(bool ok, QSharedPointer<PIV_Data2D> field, const QString& error) {
    if (!m_running) return;
    QString reason = error;
    bool delivered = false;
    if (field && isRunCurrent()) {
        // A stopped run leaves the vectors as far as they came, without the
        // raw-data flag of a finished one.
        _deliver(m_dataObject->data(0), *field);
        delivered = ok;
        field.reset();
    } else if (ok && field) {
        reason =
            tr("The image or the evaluation settings changed during the run; its "
               "result was dropped");
        emit signalLogMessage(reason);
    }
    m_eval[0]->hideProgressDialog();
    if (!delivered) {
        m_lastMessage = tr("Evaluation failed/aborted");
        emit signalMessage(m_lastMessage);
        emit signalLogMessage(tr("  Evaluation failed/aborted\n  Reason: %1").arg(reason));
    } else {
        m_dataObject->doPostProcessing();
    }
    m_dataObject->slotSetNewPivData();
    emit signalMessage(tr("Done"));
    const bool haveData = m_dataObject->isEvaluated(0);
    if (haveData) {
        m_processingTime = float(m_clock.elapsed() / 1000.0);
        m_timePerVector =
            1000.0f * m_processingTime / float(std::max(m_dataObject->data(0)->nodeCount(), 1));
        m_lastTimeText = tr("Total processing time = %1 sec, %2 millisec/vector\n")
                             .arg(double(m_processingTime), 0, 'f', 2)
                             .arg(double(m_timePerVector), 0, 'f', 3);
        emit signalLogMessage(m_lastTimeText);
    }
    m_runTarget->release();
    m_runTarget = nullptr;
    m_running = false;
    m_eval[0]->setFlagEvaluationRunning(false);
    if (KelvaneState* state = m_dataObject->state()) state->setProcessingFlag(false);
    if (m_rebuildPending) rebuildEvaluators();
    emit signalUpdateUI();
    emit signalEvaluationFinished(haveData);
}

bool PIVevalEngine::interrogateAtPoint(const QPoint& point, PIV_VECTOR* a, PIV_VECTOR* b) {
    if (m_running) return refuse(tr("Evaluation already in progress..."));
    if (m_dataObject->kelvaneMode() >= MODE_ARRANGE_PLOT) return refuse(tr("Can't correlate now"));
    if (!m_dataObject->isImagePair()) return refuse(tr("Not an image pair"));
    bool ok = m_eval[0]->interrogateAtPoint(POINT2D{point.x(), point.y()}, a, 0);
    if (ok && b && m_dataObject->isStereoMode())
        ok = m_eval[1]->interrogateAtPoint(POINT2D{point.x(), point.y()}, b, 1);
    if (!ok) m_lastMessage = QString::fromLocal8Bit(m_eval[0]->getLastError());
    return ok;
}

void PIVevalEngine::updatePivImages(bool isNew) {
    QPIV_Eval2D* eval = m_eval[0];
    eval->setPivData(m_dataObject->data(0));
    QPIV_ImagePair* pair = m_dataObject->image(0);
    m_canProcess = false;
    if (!pair || pair->isNull()) return;
    eval->setFlagNewImage(isNew);
    if (!eval->setPivImages(pair->imgA(), pair->imgB())) return;
    eval->setMaskImages(pair->imgA()->imageMask(), pair->imgB()->imageMask(),
                        pair->isMaskAvailable());
    m_canProcess = m_dataObject->isImagePair();
}

void PIVevalEngine::slotUpdatePivImages() {
    ++m_imageGeneration;
    updatePivImages(true);
    if (isOnlineEvaluationEnabled() && m_canProcess) interrogateImage();
}

void PIVevalEngine::doPostProcessing() {
    if (m_dataObject->kelvaneMode() >= MODE_ARRANGE_PLOT) return;
    // A switch of mode or settings before any field exists has nothing to
    // process; the chain would only log that the data set is empty.
    if (m_dataObject->data(0)->isNull()) return;
    emit signalMessage(tr("Data post-processing..."));
    m_dataObject->setCurrentView(0);
    m_eval[0]->setPivData(m_dataObject->data(0));
    if (!m_running) m_eval[0]->doPostProcessing(false);
    m_dataObject->doPostProcessing();
    m_dataObject->slotSetNewPivData();
    emit signalMessage(tr("Done"));
}

void PIVevalEngine::clear() {
    m_eval[0]->setPivData(m_dataObject->data(0));
    m_eval[0]->clear();
}

void PIVevalEngine::clearFlags() {
    if (m_dataObject->data(-1)->clearAllDisabled() > 0) doPostProcessing();
}

void PIVevalEngine::setPivEvalParameters(const PIVEVAL_CFG& cfg) {
    m_eval[0]->setPivEvalCfg(cfg);
}

void PIVevalEngine::updatePivParameters() {
    doPostProcessing();
}

void PIVevalEngine::slotAbortProcessing() {
    if (!m_running) return;
    m_cancelRequested = true;
    m_runner->cancelProcessing();
}

void PIVevalEngine::slotUpdateAnalysisMode() {
    const int mode = m_dataObject->analysisMode();
    if (m_eval[0]->analysisMode() == mode) return;
    m_eval[0]->setAnalysisMode(mode);
    clear();
    doPostProcessing();
}

void PIVevalEngine::slotToggleLiveProgress() {
    m_liveProgress = !m_liveProgress;
    m_eval[0]->setFlagLiveEvaluation(m_liveProgress);
}

void PIVevalEngine::slotDrawSamples(const FloatPlane& a, const FloatPlane& b, int width,
                                    int index) {
    emit signalDrawSamples(a, b, width, index);
}

void PIVevalEngine::slotDrawCorrelation(const FloatPlane& plane, const PIV_VECTOR& vector,
                                        int index) {
    emit signalDrawCorrelation(plane, vector, index);
}
