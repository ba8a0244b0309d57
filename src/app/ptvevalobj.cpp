#include "ptvevalobj.h"

#include "image2d.h"
#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "ptv_data2d.h"
#include "qpiv_imagepair.h"
#include "qptv_eval2d.h"

namespace {

struct Job {
    Image2D a, b, mask;
    bool masked = false;
    std::shared_ptr<PIV_Data2D> guide;
    PTV_PARAMS params;
};

// The session's masks mark any pixel that is not 0, the tracker only 255.
bool _trackerMask(const Image2D& from, Image2D& to) {
    if (!to.alloc(from.width(), from.height(), IMAGE_UINT8)) return false;
    for (int y = 0; y < int(from.height()); y++)
        for (int x = 0; x < int(from.width()); x++)
            to.setPixel(x, y, from.pixel(x, y) != 0.0f ? 255.0f : 0.0f);
    return true;
}

}  // namespace

PTVevalObj::PTVevalObj(KelvaneDataObject* dataObject, QObject* parent)
    : QObject(parent), m_dataObject(dataObject), m_runner(new QPTV_Eval2D) {
    m_runner->moveToThread(&m_thread);
    connect(m_runner, &QPTV_Eval2D::signalMessage, this, &PTVevalObj::signalMessage,
            Qt::QueuedConnection);
    connect(m_runner, &QPTV_Eval2D::signalLogMessage, this, &PTVevalObj::signalLogMessage,
            Qt::QueuedConnection);
    connect(dataObject, &KelvaneDataObject::signalHaveNewImage, this,
            [this] { ++m_imageGeneration; });
    m_thread.setObjectName(QStringLiteral("PTV analysis"));
    m_thread.start();
}

PTVevalObj::~PTVevalObj() {
    m_thread.quit();
    m_thread.wait();
    delete m_runner;
}

bool PTVevalObj::refuse(const QString& why) {
    emit signalMessage(tr("PTV analysis failed"));
    emit signalFinished(false, why);
    return false;
}

bool PTVevalObj::process(const PIV_Data2D& guide, int view) {
    if (m_running) {
        emit signalMessage(tr("PTV analysis already running"));
        return false;
    }
    const QPIV_ImagePair* pair = m_dataObject->image(0);
    auto job = std::make_shared<Job>();
    job->a = *pair->imgA();
    job->b = *pair->imgB();
    job->masked = pair->isMaskAvailable();
    if (job->masked) job->mask = *pair->imgA()->imageMask();
    job->guide.reset(new PIV_Data2D, [](PIV_Data2D* d) { d->release(); });
    *job->guide = guide;
    job->params = m_dataObject->ptvParameters();
    if (job->a.isNull() || job->b.isNull() || (job->masked && job->mask.isNull()) ||
        job->guide->nodeCount() != guide.nodeCount())
        return refuse(tr("Not enough memory for copies of the images and the field"));

    m_running = true;
    // The tracks belong to the view the run started on.
    m_runView = view < 0 ? m_dataObject->currentView() : view;
    m_runGeneration = m_imageGeneration;
    emit signalMessage(tr("Running PTV analysis..."));
    QPTV_Eval2D* runner = m_runner;
    QMetaObject::invokeMethod(
        runner,
        [this, runner, job] {
            auto tracks = std::make_shared<PTV_Data2D>();
            Image2D mask;
            bool ok = !job->masked || _trackerMask(job->mask, mask);
            QString why;
            if (ok) {
                runner->setData(tracks.get());
                runner->setParameters(job->params);
                runner->setMaskImage(job->masked ? &mask : nullptr);
                ok = runner->process(job->a, job->b, *job->guide);
                if (!ok) why = QString::fromLocal8Bit(runner->error().getLastError());
                runner->setData(nullptr);
                runner->setMaskImage(nullptr);
            } else {
                why = tr("Not enough memory for the mask");
            }
            QMetaObject::invokeMethod(
                this, [this, ok, tracks, why] { finish(ok, tracks, why); }, Qt::QueuedConnection);
        },
        Qt::QueuedConnection);
    return true;
}

void PTVevalObj::finish(bool ok, const std::shared_ptr<PTV_Data2D>& tracks, const QString& why) {
    m_running = false;
    if (ok && m_runGeneration != m_imageGeneration) {
        refuse(tr("The image changed while the particles were tracked"));
        return;
    }
    if (!ok) {
        refuse(why);
        return;
    }
    m_dataObject->setPTVdata(tracks, m_runView);
    emit signalFinished(true, QString());
}
