// Loads of images, vector data and parameter files. Each reads into objects
// of its own and takes them over only when everything read, so that a bad
// file costs the user nothing of the session.
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <algorithm>

#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_params.h"
#include "piv_params_io.h"
#include "piv_record.h"
#include "qpiv_imagepair.h"
#include "recordpath.h"

namespace {

// A reason with the library's own words behind it, where it left some.
QString _withDetail(const QString& reason, const QString& detail) {
    return detail.isEmpty() ? reason : reason + QStringLiteral("\n") + detail;
}

// Relative companion files of a parameter file are meant beside it. False
// when the absolute name does not fit; the relative one is then kept.
template <std::size_t N>
bool _makeAbsolute(char (&path)[N], const QDir& dir) {
    if (!path[0]) return true;
    const QString name = QString::fromLocal8Bit(path);
    if (QFileInfo(name).isAbsolute()) return true;
    return StorePath(path, QDir::cleanPath(dir.absoluteFilePath(name)));
}

bool _differs(const PIV_PARAMETERS& a, const PIV_PARAMETERS& b) {
    return !PIV::SameRecord(a.eval, b.eval) || !PIV::SameRecord(a.convert, b.convert) ||
           !PIV::SameRecord(a.outlier, b.outlier) ||
           !PIV::SameRecord(a.differentiate, b.differentiate);
}

}  // namespace

struct KelvaneDataObject::ParameterFile {
    PIV_PARAMETERS records[2];
    IMAGE_CFG images[2];
    POSTPROCESS_CFG post;
};

bool KelvaneDataObject::failLoad(const QString& reason) {
    m_lastError = reason;
    emit signalLogMessage(reason);
    return false;
}

void KelvaneDataObject::adoptImagePair(QPIV_ImagePair* pair) {
    QPIV_ImagePair* old = m_images[0];
    std::fill(std::begin(m_images), std::end(m_images), pair);
    emit signalReleaseImages();
    delete old;
}

void KelvaneDataObject::adoptData(PIV_Data2D* field) {
    PIV_Data2D* old = m_data[0];
    for (int s = 0; s < 3; ++s) m_data[s] = field;
    old->release();
}

bool KelvaneDataObject::loadPivImage(const QString& fileA, const QString& fileB, bool splitPCO,
                                     int view) {
    if (fileA.isEmpty()) {
        const QString text = tr("Failed loading image - no file given!");
        emit signalMessage(text);
        emit signalLogMessage(QStringLiteral("<font color=red>%1</font>").arg(text));
        m_lastError = text;
        return false;
    }
    view = m_stereoEnabled ? std::clamp(view, 0, 1) : 0;
    emit signalMessage(tr("Wait! Loading image(s)..."));
    emit signalSetCaption(
        tr("%1 | Wait! Loading image(s)...").arg(QCoreApplication::applicationName()));

    QPIV_ImagePair* current = m_images[view];
    const bool split = splitPCO || current->imageCfg().SplitPCO;
    auto* pair = new QPIV_ImagePair;
    pair->takeSettings(*current);
    pair->setTIFFCompressionEnabled(m_tiffCompression);
    pair->setStereoCfg(m_stereoParams, view);
    pair->setPivConvertCfg(m_params[view]->pivConvertCfg());
    connect(pair, &QPIV_ImagePair::signalMessage, this, &KelvaneDataObject::signalMessage);
    const int separation = m_stereoEnabled ? 1 : current->frameSeparation();
    pair->setWaitCursor(true);
    const bool ok = !fileB.isEmpty() && fileB != fileA && !split
                        ? pair->loadPair(fileA, fileB)
                        : pair->load(fileA, separation, split, true);
    pair->setWaitCursor(false);

    if (ok) {
        emit signalMessage(tr("Images loaded OK"));
        adoptImagePair(pair);
        clearVectors();
        for (int s : {0, 1}) m_params[s]->setImageSize(pair->width(), pair->height(), 1, true);
        regridData();
        emit signalNewImageSize(pair->size2D());
        const QString pathA = QFileInfo(pair->filePath(false)).absoluteFilePath();
        if (pair->isImagePair() && m_analysisMode != PIV::ANALYSIS_AUTO_CORRELATION)
            emit signalLogMessage(
                tr("Loaded image pair:\n\t %1\n\t %2")
                    .arg(pathA, QFileInfo(pair->filePath(true)).absoluteFilePath()));
        else
            emit signalLogMessage(tr("Loaded image:\n\t%1").arg(pathA));
        m_lastError.clear();
    } else {
        m_lastError =
            _withDetail(tr("Failure loading image(s): %1").arg(fileA), pair->lastErrorText());
        delete pair;
        emit signalLogMessage(tr("<font color=red>FAILURE</font> loading image(s): \n\t") + fileA);
        emit signalMessage(tr("Failure loading data or image(s)"));
    }
    emit signalSetCaption(QString());
    // A failed load changed nothing the views show.
    if (!ok) return false;
    emit signalHaveNewImage(view);
    if (m_currentView > int(m_stereoEnabled)) setCurrentView(0);
    return true;
}

bool KelvaneDataObject::reloadImage() {
    const QPIV_ImagePair* pair = m_images[0];
    return loadPivImage(pair->lastImageFileA(), pair->lastImageFileB(), pair->imageCfg().SplitPCO,
                        0);
}

bool KelvaneDataObject::loadMaskImage(const QString& fileName, int view) {
    QPIV_ImagePair* pair = image(view);
    // The mask changes in place, even when the load fails half-way.
    ++m_maskRevision;
    if (!pair->loadMask(fileName))
        return failLoad(
            _withDetail(tr("Failure loading mask: %1").arg(fileName),
                        QString::fromLocal8Bit(pair->imgA()->imageMask()->error().getLastError())));
    m_lastError.clear();
    return true;
}

bool KelvaneDataObject::loadPivData(const QString& fileName, int view, bool loadParams) {
    auto* field = new PIV_Data2D;
    if (!field->load(fileName.toLocal8Bit().constData())) {
        const QString detail = QString::fromLocal8Bit(field->getLastError());
        field->release();
        return failLoad(_withDetail(tr("Failure loading data file: %1").arg(fileName), detail));
    }
    // The file's parameters are read before the field is taken: a load that
    // fails leaves the session as it was.
    ParameterFile params;
    if (loadParams && !readParameters(fileName, params)) {
        field->release();
        return false;
    }
    // Two fields exist only with stereo on, which this edition never sets.
    (void)view;
    adoptData(field);
    m_lastError.clear();
    m_dataFileName = fileName;
    m_data[0]->setFlagFileData(true);
    m_data[3]->setFlagFileData(true);
    m_data[3]->setFlagConverted(false);
    if (!loadParams) return doPostProcessing();
    takeParameters(fileName, params);
    return true;
}

bool KelvaneDataObject::loadParameters(const QString& fileName) {
    ParameterFile file;
    if (!readParameters(fileName, file)) return false;
    takeParameters(fileName, file);
    return true;
}

bool KelvaneDataObject::readParameters(const QString& fileName, ParameterFile& file) {
    const QByteArray path = fileName.toLocal8Bit();
    if (!PIV::IsParameterFile(path.constData())) {
        m_lastError = tr("Not a parameter file: %1").arg(fileName);
        return false;
    }
    const QDir dir = QFileInfo(fileName).absoluteDir();
    const auto tooLong = [&](const auto& name) {
        return failLoad(_withDetail(tr("Failure reading parameters from: %1").arg(fileName),
                                    tr("'%1' beside it is longer than %2 bytes made absolute")
                                        .arg(QString::fromLocal8Bit(name))
                                        .arg(int(sizeof name) - 1)));
    };
    const int views = m_stereoEnabled ? 2 : 1;
    file.post = m_params[3]->postProcessCfg();
    for (int view = 0; view < views; ++view) {
        PIV_Parameters scratch;
        scratch.setPivParameters(m_params[view]->pivParameters());
        scratch.setImageCfg(m_params[view]->imageCfg());
        scratch.setPostProcessCfg(file.post);
        file.images[view] = image(view)->imageCfg();
        if (!scratch.read(path.constData(), view) ||
            !PIV::ReadImageCfg(path.constData(), &file.images[view], view))
            return failLoad(_withDetail(tr("Failure reading parameters from: %1").arg(fileName),
                                        QString::fromLocal8Bit(scratch.error().getLastError())));
        file.records[view] = scratch.pivParameters();
        if (view == 0) file.post = scratch.postProcessCfg();
        IMAGE_CFG& cfg = file.images[view];
        for (auto* name : {&cfg.DewarpFile, &cfg.Mask, &cfg.Mask2, &cfg.Bkgd, &cfg.Bkgd2})
            if (!_makeAbsolute(*name, dir)) return tooLong(*name);
    }
    for (auto* name : {&file.post.MaskFile, &file.post.combine.File})
        if (!_makeAbsolute(*name, dir)) return tooLong(*name);
    return true;
}

void KelvaneDataObject::takeParameters(const QString& fileName, ParameterFile& file) {
    const QDir dir = QFileInfo(fileName).absoluteDir();
    const int views = m_stereoEnabled ? 2 : 1;
    m_lastError.clear();
    QDir::setCurrent(dir.absolutePath());

    int changes = 0;
    for (int view = 0; view < views; ++view) {
        if (_differs(m_params[view]->pivParameters(), file.records[view]))
            changes += setPivParameters(file.records[0], file.records[views - 1]) ? 1 : 0;
        QPIV_ImagePair* pair = image(view);
        if (PIV::SameRecord(file.images[view], pair->imageCfg())) continue;
        ++changes;
        pair->setImageCfg(file.images[view]);
        if (!isFileData(0) && !pair->isNull())
            loadPivImage(pair->lastImageFileA(), pair->lastImageFileB(), file.images[view].SplitPCO,
                         view);
    }
    POSTPROCESS_CFG before = m_params[3]->postProcessCfg();
    _makeAbsolute(before.MaskFile, dir);
    _makeAbsolute(before.combine.File, dir);
    if (!PIV::SameRecord(before, file.post)) changes += setPostProcessCfg(file.post) ? 1 : 0;
    emit signalLogMessage(tr("Loaded parameters from: ") + fileName);
    if (changes > 0) emit signalHaveNewParameters();
}
