// The grey value histogram of the pair's frames, in a window of its own.
#include <QMainWindow>

#include <vector>

#include "image2d.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "qpiv_imagepair.h"
#include "xyplotwindow.h"

namespace {

constexpr int kBins = 256;

QVector<double> _histogram(Image2D* image) {
    std::vector<uint32_t> bins(kBins, 0);
    double width = 0, low = 0, high = 0;
    if (!image || image->isNull() || !image->histogram(bins.data(), kBins, width, low, high))
        return {};
    return QVector<double>(bins.begin(), bins.end());
}

}  // namespace

void KelvaneData::slotImageHistogram(bool show) {
    if (!m_histogram) {
        m_histogram = new XYPlotWindow(tr("Histogram"), m_window);
        m_histogram->setAxisTitles(tr("grey value"), tr("n"));
        connect(m_dataObject, &KelvaneDataObject::signalHaveNewImage, this,
                &KelvaneData::updateImageHistogram);
    }
    m_histogram->setVisible(show);
    if (show) {
        updateImageHistogram();
        m_histogram->raise();
    }
}

void KelvaneData::updateImageHistogram() {
    if (!m_histogram || !m_histogram->isVisible()) return;
    QPIV_ImagePair* pair = m_dataObject->image(0);
    m_histogram->setCurve(0, _histogram(pair->isNull() ? nullptr : pair->imgA()));
    m_histogram->setCurve(1, _histogram(pair->isImagePair() ? pair->imgB() : nullptr));
}
