#include "kelvaneimagebatch.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cmath>

#include "image2d.h"
#include "image_types.h"
#include "piv_filename.h"
#include "piv_imagepair.h"

namespace {

// The extension of a statistics image by its type: 16 bits as the series
// came (".b16" for a PCO series, else ".tif"), 8 bits ".tif", float ".img".
QString _extension(int type, bool pcoFormat) {
    if (type == IMAGE_FLOAT) return QStringLiteral(".img");
    if (type == IMAGE_UINT16 && pcoFormat) return QStringLiteral(".b16");
    return QStringLiteral(".tif");
}

}  // namespace

KelvaneImageBatch::~KelvaneImageBatch() {
    m_abort = true;
    wait();
}

QStringList KelvaneImageBatch::statisticsFiles(const BatchProcessOptions& o, int type,
                                               bool pcoFormat) {
    const QString dir = o.imageDestDirEnable ? o.destDir : o.sourceDir;
    const QString stub =
        QDir(dir).filePath(o.fileStub.isEmpty() ? QStringLiteral("imagestats") : o.fileStub);
    const struct {
        bool wanted;
        const char* suffix;
    } outputs[] = {
        {o.imageSeqCalcMinimum, "_min"}, {o.imageSeqCalcMaximum, "_max"},
        {o.imageSeqCalcAverage, "_avg"}, {o.imageSeqCalcAverageMod, "_avgmod"},
        {o.imageSeqCalcRMS, "_rms"},  // the one always in float
    };
    QStringList names;
    for (const auto& out : outputs) {
        const int t = &out == &outputs[4] ? int(IMAGE_FLOAT) : type;
        names << (out.wanted ? stub + QLatin1String(out.suffix) + _extension(t, pcoFormat)
                             : QString());
    }
    return names;
}

QStringList KelvaneImageBatch::statisticsFiles(const BatchProcessOptions& o) {
    QStringList names;
    for (int type : {IMAGE_UINT8, IMAGE_UINT16, IMAGE_FLOAT})
        for (bool pco : {false, true}) names << statisticsFiles(o, type, pco);
    names.removeAll(QString());
    names.removeDuplicates();
    return names;
}

QStringList KelvaneImageBatch::copyFiles(const BatchProcessOptions& o) {
    const QDir dir(o.imageDestDirEnable ? o.destDir : o.sourceDir);
    QStringList names;
    for (const QString& file : o.fileList) {
        const std::string a = file.toLocal8Bit().constData();
        // Frame B as the load finds it: the other half of a split image, the
        // partner by the naming rules, or none for a series of single frames.
        std::string b;
        if (o.isSplitType())
            b = a;
        else if (o.imageFilesArePairs)
            b = PIV::GetSecondImageName(a.c_str(), o.imageFrameSeparation);
        if (b == a && !o.isSplitType()) b.clear();
        std::string nameA, nameB;
        PIV_ImagePair::SavedNames(a, b, !b.empty(), nameA, nameB);
        names << QDir::cleanPath(
            dir.absoluteFilePath(QString::fromLocal8Bit(nameA.c_str()) + ".tif"));
        if (b.empty()) continue;
        names << QDir::cleanPath(
            dir.absoluteFilePath(QString::fromLocal8Bit(nameB.c_str()) + ".tif"));
    }
    return names;
}

bool KelvaneImageBatch::wantsStatistics(const BatchProcessOptions& o) {
    return o.imageSeqCalcMinimum || o.imageSeqCalcMaximum || o.imageSeqCalcAverage ||
           o.imageSeqCalcAverageMod || o.imageSeqCalcRMS;
}

void KelvaneImageBatch::leaveOut(const QString& file, const QString& why) {
    const QString text = tr("'%1' left out: %2").arg(file, why);
    m_log += QStringLiteral("\n   ") + text;
    emit signalLogMessage(text);
}

void KelvaneImageBatch::run() {
    m_log.clear();
    m_sum.clear();
    m_squares.clear();
    m_min.clear();
    m_max.clear();
    m_width = m_height = 0;
    PIV_ImagePair pair;
    pair.setImageCfg(m_imageCfg);
    const bool copies = pair.requiresImagePreProcessing();
    const bool stats = wantsStatistics(m_options);
    const QString dir = m_options.imageDestDirEnable ? m_options.destDir : m_options.sourceDir;
    const int total = m_files.size();
    int used = 0, index = 0;
    for (; index < total && !m_abort; ++index) {
        emit signalMessage(tr("Image batch processing : %1 of %2").arg(index + 1).arg(total));
        emit signalProgress(index, total);
        const QString file = m_files.at(index);
        const QByteArray path = file.toLocal8Bit();
        if (copies) {
            // Frame B only for a series of pairs: a series of single frames
            // would otherwise copy each frame twice, and its last one, with no
            // frame after it, would fail.
            if (!pair.load(path.constData(), m_options.imageFrameSeparation,
                           m_options.isSplitType(), m_options.imageFilesArePairs) ||
                !pair.save(dir.toLocal8Bit().constData(), ".tif"))
                leaveOut(file, QString::fromLocal8Bit(pair.error().getLastError()));
        }
        if (!stats) continue;
        Image2D image;
        if (!image.load(path.constData())) {
            leaveOut(file, QString::fromLocal8Bit(image.error().getLastError()));
            continue;
        }
        if (used == 0) {
            m_width = int64_t(image.width());
            m_height = int64_t(image.height());
            m_type = image.type();
            m_pcoFormat =
                QFileInfo(file).suffix().compare(QLatin1String("b16"), Qt::CaseInsensitive) == 0;
            const size_t n = size_t(m_width * m_height);
            m_sum.assign(n, 0.0);
            m_squares.assign(n, 0.0);
            m_min.assign(n, 0.0f);
            m_max.assign(n, 0.0f);
        } else if (int64_t(image.width()) != m_width || int64_t(image.height()) != m_height) {
            leaveOut(file, tr("%1 x %2 pixels, the series has %3 x %4")
                               .arg(image.width())
                               .arg(image.height())
                               .arg(m_width)
                               .arg(m_height));
            continue;
        }
        std::vector<float> row(static_cast<size_t>(m_width));
        for (int64_t y = 0; y < m_height; ++y) {
            image.getRow(row.data(), int(y));
            for (int64_t x = 0; x < m_width; ++x) {
                const size_t k = size_t(y * m_width + x);
                const float v = row[size_t(x)];
                m_sum[k] += v;
                m_squares[k] += double(v) * v;
                m_min[k] = used == 0 ? v : std::min(m_min[k], v);
                m_max[k] = used == 0 ? v : std::max(m_max[k], v);
            }
        }
        used++;
    }
    emit signalProgress(index, total);
    if (m_abort) {
        m_log += tr("Image batch processing aborted at image %1 of %2").arg(index).arg(total);
        return;
    }
    if (!stats) return;
    if (used < 2) {
        m_log += tr("\n   No statistics: %1 image(s), at least 2 are needed").arg(used);
        return;
    }
    writeStatistics(used);
}

void KelvaneImageBatch::writeStatistics(int count) {
    const BatchProcessOptions& o = m_options;
    const double n = count;
    const size_t pixels = m_sum.size();
    std::vector<float> avg(pixels), rms(pixels), mod(pixels);
    for (size_t k = 0; k < pixels; ++k) {
        // The sample standard deviation, taken before the sum is scaled.
        const double var = (n * m_squares[k] - m_sum[k] * m_sum[k]) / ((n - 1.0) * n);
        rms[k] = float(std::sqrt(std::max(0.0, var)));
        avg[k] = float(m_sum[k] / n);
        mod[k] = m_min[k] + (avg[k] - m_min[k]) * float(o.imageSeqCalcAverageModOffset);
    }
    // In the order of statisticsFiles.
    const struct {
        const std::vector<float>* values;
        const char* label;
    } outputs[] = {
        {&m_min, "\n   Minimum: '%1'"}, {&m_max, "\n   Maximum: '%1'"},
        {&avg, "\n   Average: '%1'"},   {&mod, "\n   Modified average: '%1'"},
        {&rms, "\n   RMS: '%1'"},
    };
    const QStringList names = statisticsFiles(o, m_type, m_pcoFormat);
    for (int k = 0; k < 5; ++k) {
        const QString& name = names.at(k);
        if (name.isEmpty()) continue;
        const ImageType type = k == 4 ? IMAGE_FLOAT : ImageType(m_type);
        Image2D image(m_width, m_height, type);
        image.setFlagCompressionEnabled(m_compression);
        for (int64_t y = 0; y < m_height; ++y)
            image.putRow(outputs[k].values->data() + y * m_width, int(y));
        const int format = name.endsWith(QLatin1String(".tif")) ? PIV::FORMAT_TIFF : -1;
        if (image.save(name.toLocal8Bit().constData(), format))
            m_log += tr(outputs[k].label).arg(name);
        else
            leaveOut(name, QString::fromLocal8Bit(image.error().getLastError()));
    }
}
