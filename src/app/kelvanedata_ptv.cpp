// Particle tracking in the window: the pair and the field of the data object
// go to the tracking library, the tracks come back into the data object.
#include <QApplication>
#include <QFile>
#include <memory>

#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "ptv_data2d.h"
#include "ptvevalobj.h"
#include "qpiv_imagepair.h"

void KelvaneData::slotPTV_ProcessImage() {
    const KelvaneDataObject* o = m_dataObject;
    QString refusal;
    if (o->isStereoMode())
        refusal = tr("PTV not available in stereo mode");
    else if (!o->image(0)->isImagePair())
        refusal = tr("PTV requires PIV image pair");
    else if (!o->haveData(-1))
        refusal = tr("PTV requires evaluated PIV data set");
    if (!refusal.isEmpty()) {
        emit signalMessage(refusal);
        warn(QApplication::applicationName(), refusal);
        return;
    }
    // The tracker guides with what the user sees cleaned of outliers when
    // there is such a field; the raw one otherwise.
    m_ptvEval->process(o->haveData(3) ? *o->data(3) : *o->data(-1), -1);
}

void KelvaneData::ptvFinished(bool ok, const QString& why) {
    if (!ok) {
        warn(QApplication::applicationName(), tr("PTV analysis failed: %1").arg(why));
        return;
    }
    // The view may have changed while the tracker ran.
    if (const std::shared_ptr<const PTV_Data2D> tracks = m_dataObject->ptvData(-1))
        emit signalMessage(tr("PTV: %1 particles, %2 valid pairs")
                               .arg(tracks->particleCount())
                               .arg(tracks->validCount()));
    emit signalUpdateUI();
}

void KelvaneData::slotPTV_SaveData(const QString& file) {
    if (!file.isEmpty() && overWriteFile(file)) savePTVData(file);
}

bool KelvaneData::savePTVData(const QString& file) {
    const std::shared_ptr<const PTV_Data2D> tracks = m_dataObject->ptvData(-1);
    if (!tracks) return false;
    if (!tracks->saveASCII(QFile::encodeName(file).constData())) {
        const QString why = QString::fromLocal8Bit(tracks->error().getLastError());
        warn(QApplication::applicationName(), tr("Saving PTV data failed:\n%1\n%2").arg(file, why));
        return false;
    }
    emit signalMessage(tr("PTV data saved to %1").arg(file));
    return true;
}
