#include "qpiv_eval2d.h"

#include <QMetaMethod>

#include <cstring>

#include "piv_corr2d_fft.h"
#include "piv_enums.h"

namespace {

constexpr qint64 kPictureIntervalMs = 1000 / 30;

// Copies `height` rows of `width` floats, `stride` apart, into a compact block.
FloatPlane _copyPlane(const float* data, int width, int height, int stride, bool unfold) {
    FloatPlane plane;
    if (!data || width < 1 || height < 1) return plane;
    auto values = QSharedPointer<std::vector<float>>::create(size_t(width) * size_t(height));
    for (int y = 0; y < height; y++)
        std::memcpy(values->data() + size_t(y) * size_t(width), data + size_t(y) * size_t(stride),
                    sizeof(float) * size_t(width));
    if (unfold) PIV::UnFoldFFTData(values->data(), width, height);
    plane.values = values;
    plane.width = width;
    plane.height = height;
    return plane;
}

void _registerTypes() {
    static const bool registered = [] {
        qRegisterMetaType<FloatPlane>("FloatPlane");
        qRegisterMetaType<PIV_VECTOR>("PIV_VECTOR");
        qRegisterMetaType<PIVFieldLoan>("PIVFieldLoan");
        return true;
    }();
    (void)registered;
}

}  // namespace

void FieldLoan::read(const std::function<void(const PIV_Data2D&)>& reader) {
    int lent = LENT;
    if (!m_state.compare_exchange_strong(lent, READING)) return;
    if (reader) reader(*m_field);
    m_state = RETURNED;
    m_returned.release();
}

bool FieldLoan::waitReturned(const std::function<bool()>& cancelled) {
    while (!m_returned.tryAcquire(1, 10)) {
        int lent = LENT;
        if (cancelled() && m_state.compare_exchange_strong(lent, ABANDONED)) return false;
    }
    return true;
}

FLOAT_ARRAY FloatPlane::array() const {
    FLOAT_ARRAY a{};
    if (!values) return a;
    // The record has no const form; receivers only read.
    a.data = const_cast<float*>(values->data());
    a.width = width;
    a.height = height;
    a.depth = 1;
    return a;
}

QPIV_Eval2D::QPIV_Eval2D(PIV_Data2D* data, PIV_Parameters* parameters, QWidget* parentWidget)
    : PIV_Eval2D(data, parameters), m_parentWidget(parentWidget) {
    _registerTypes();
    init();
}

void QPIV_Eval2D::init() {
    m_lastProgressMessage.clear();
    m_showProgress = true;
    m_cancelledByUser = false;
    m_cancelled = false;
}

int QPIV_Eval2D::getTime(bool start) {
    if (start || !m_time.isValid()) {
        m_time.start();
        return 0;
    }
    return int(m_time.elapsed());
}

void QPIV_Eval2D::cancelProcessing() {
    m_cancelledByUser = true;
    cancel();
}

void QPIV_Eval2D::showProgressDialog() {
    m_cancelledByUser = false;
    m_progressDialogShown = true;
    emit signalShowProgress(1, 100);
}

void QPIV_Eval2D::hideProgressDialog() {
    m_progressDialogShown = false;
    emit signalShowProgress(-1, 100);
}

void QPIV_Eval2D::setPivData(PIV_Data2D* data) {
    if (data == m_data) return;
    if (data)
        data->addRef();
    else
        data = new PIV_Data2D;
    m_data->release();
    m_data = data;
}

void QPIV_Eval2D::showStatusMessage(const char* text) {
    emit signalMessage(QString::fromLocal8Bit(text ? text : ""));
}

void QPIV_Eval2D::appendToLogFile(const char* text) {
    emit signalLogMessage(QString::fromLocal8Bit(text ? text : ""));
}

void QPIV_Eval2D::showProgress(int step, int steps) {
    // Called from inside the library's parallel loop: it only emits. The
    // status text goes out when it changed, which the status line shows alike.
    if (steps > 10 && m_progressText != m_lastProgressMessage) {
        m_lastProgressMessage = m_progressText;
        emit signalMessage(m_progressText);
    }
    emit signalShowProgress(step, steps);
}

void QPIV_Eval2D::updateProgressDialog(const char* text, bool) {
    m_progressText = QString::fromLocal8Bit(text ? text : "");
    showStatusMessage(text);
}

bool QPIV_Eval2D::wasCancelled() {
    return m_cancelledByUser.load();
}

bool QPIV_Eval2D::pictureDue(Picture kind) {
    QElapsedTimer& last = m_lastPicture[kind];
    if (!isEvaluationRunning() || !last.isValid() || last.elapsed() >= kPictureIntervalMs) {
        last.start();
        return true;
    }
    return false;
}

void QPIV_Eval2D::drawSamples(float* a, float* b, const SIZE2D& sizeA, const SIZE2D& sizeB,
                              int width, int index, bool fft) {
    if (!pictureDue(SAMPLES)) return;
    const FloatPlane pa = _copyPlane(a, sizeA.width, sizeA.height, width, fft);
    const FloatPlane pb = _copyPlane(b, sizeB.width, sizeB.height, width, fft);
    emit signalDrawSamples(pa, pb, pa.width, index);
}

void QPIV_Eval2D::drawCorrelation(float* plane, const SIZE2D& size, const PIV_VECTOR& vector,
                                  int index) {
    if (!pictureDue(CORRELATION)) return;
    // Correlations through the FFT come in FFT order; the direct ones not.
    const bool unfold = m_params->pivEvalCfg().CorrelationMode < PIV::CORR_MQD;
    emit signalDrawCorrelation(_copyPlane(plane, size.width, size.height, size.width, unfold),
                               vector, index);
}

void QPIV_Eval2D::showNewPivData() {
    if (!pictureDue(FIELD)) return;
    if (!showLiveEvaluation() || m_data->isNull()) {
        emit signalNewPivData(PIVFieldLoan());
        return;
    }
    // Nobody to give the loan back: waiting would never end.
    if (!isSignalConnected(QMetaMethod::fromSignal(&QPIV_Eval2D::signalNewPivData))) return;
    const auto loan = PIVFieldLoan::create(m_data);
    emit signalNewPivData(loan);
    loan->waitReturned([this] { return m_cancelledByUser.load() || m_cancelled.load(); });
}
