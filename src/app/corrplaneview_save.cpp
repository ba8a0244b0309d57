// The planes of one spot as text files beside the image: a head of comment
// lines, then one line per pixel "x y value", rows one after the other.
#include <QDir>
#include <QMessageBox>
#include <QSaveFile>
#include <QTextStream>

#include "corrplaneview.h"

namespace {

// What a line of the file takes at most; the guess behind the size warning.
constexpr qint64 kBytesPerLine = 24;
constexpr qint64 kLargeFile = 1 << 20;

}  // namespace

bool CorrPlaneView::saveFile(const QString& path, const QString& title, const FloatPlane& data) {
    // Renamed over the target only once whole: a failed save keeps the old file.
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        QTextStream out(&file);
        out << "# " << title << "\n# " << data.width << " x " << data.height
            << " pixels, x y value\n";
        for (int y = 0; y < data.height; ++y)
            for (int x = 0; x < data.width; ++x)
                out << x << ' ' << y << ' '
                    << QString::number(
                           double((*data.values)[size_t(y) * size_t(data.width) + size_t(x)]), 'g',
                           7)
                    << '\n';
        out.flush();
        if (out.status() == QTextStream::Ok && file.commit()) return true;
    }
    QMessageBox::warning(this, tr("Correlation Window"), tr("Trouble saving file: '%1'").arg(path));
    return false;
}

void CorrPlaneView::slotSaveCorr() {
    const QString box = tr("Correlation Window");
    const int views = m_stereo ? kViews : 1;
    for (int v = 0; v < views; ++v)
        if (!m_plane[v].values || !m_sample[v][0].values || !m_sample[v][1].values) {
            QMessageBox::warning(this, box,
                                 tr("Missing correlation samples - can not save this plane!"));
            return;
        }
    if (m_savedNumber == m_planeNumber) {
        QMessageBox::information(this, box, tr("This correlation data was already saved!"));
        return;
    }
    qint64 lines = 0;
    for (int v = 0; v < views; ++v) {
        lines += qint64(m_plane[v].width) * m_plane[v].height;
        for (const FloatPlane& s : m_sample[v]) lines += qint64(s.width) * s.height;
    }
    if (lines * kBytesPerLine > kLargeFile &&
        QMessageBox::question(this, box,
                              tr("The file size for the correlation plane data\nmay exceed 1 "
                                 "MByte (ASCII-File)\n\nDo wish to continue?"),
                              QMessageBox::Yes | QMessageBox::No) != QMessageBox::Yes)
        return;

    static const char* const kNames[] = {"corr%1_r%2_c%3.dat", "sample1%1_r%2_c%3.dat",
                                         "sample2%1_r%2_c%3.dat"};
    static const char* const kTitles[] = {"Correlation Plane - View %1",
                                          "Sample from Image 1 - View %1",
                                          "Sample from Image 2 - View %1"};
    const QDir dir(m_dir.isEmpty() ? QDir::currentPath() : m_dir);
    QStringList written;
    for (int v = 0; v < views; ++v) {
        const QString view =
            m_stereo ? (v == 0 ? QStringLiteral("_a") : QStringLiteral("_b")) : QString();
        const FloatPlane* data[] = {&m_plane[v], &m_sample[v][0], &m_sample[v][1]};
        for (int k = 0; k < 3; ++k) {
            const QString path = dir.filePath(
                QString::fromLatin1(kNames[k]).arg(view).arg(m_vector[v].iy).arg(m_vector[v].ix));
            if (!saveFile(path, tr(kTitles[k]).arg(v == 0 ? 'A' : 'B'), *data[k])) return;
            written << path;
        }
    }
    m_savedNumber = m_planeNumber;
    QMessageBox::information(this, box,
                             tr("Correlation plane data was stored as follows:\n  Correlation "
                                "plane in: '%1'\n  Sample from image 1 in: '%2'\n  Sample from "
                                "image 2 in: '%3'")
                                 .arg(written.value(0), written.value(1), written.value(2)));
}
