// KelvaneImageBatch: an image series through the pre-processing of the
// session, written as processed copies, or reduced to statistics images:
// minimum, maximum, average, modified average and RMS. The one job with a
// thread of its own: it touches only its own images, reports by queued
// signals, and stops at the next file once the abort flag is set.
#pragma once

#include <QStringList>
#include <QThread>

#include <atomic>

#include "batchprocessoptions.h"
#include "piv_types.h"

class KelvaneImageBatch : public QThread {
    Q_OBJECT
public:
    explicit KelvaneImageBatch(QObject* parent = nullptr) : QThread(parent) {}
    // The abort flag is set and the thread waited for.
    ~KelvaneImageBatch() override;

    void setBatchOptions(const BatchProcessOptions& options) { m_options = options; }
    void setImageCfg(const IMAGE_CFG& cfg) { m_imageCfg = cfg; }
    void setImageCompression(bool on) { m_compression = on; }
    void setFileList(const QStringList& files) { m_files = files; }
    // The one write from outside while the thread runs.
    void setAbortFlag(bool on) { m_abort = on; }
    // What the last run did, for the log; read once it has finished.
    const QString& logMessage() const { return m_log; }
    // The statistics images `options` ask for, written from a series of
    // `type`: minimum, maximum, average, modified average and RMS, an empty
    // name for one not asked for.
    static QStringList statisticsFiles(const BatchProcessOptions& options, int type,
                                       bool pcoFormat);
    // Every name a run may write, whatever the type of its series.
    static QStringList statisticsFiles(const BatchProcessOptions& options);
    // The pre-processed copies a run of `options` writes, as clean absolute
    // paths named as PIV_ImagePair::save names them.
    static QStringList copyFiles(const BatchProcessOptions& options);
    // Whether `options` ask for any statistics image.
    static bool wantsStatistics(const BatchProcessOptions& options);

signals:
    void signalMessage(const QString& text);
    void signalLogMessage(const QString& text);
    void signalProgress(int index, int count);

protected:
    void run() override;

private:
    void writeStatistics(int count);
    void leaveOut(const QString& file, const QString& why);

    BatchProcessOptions m_options;
    IMAGE_CFG m_imageCfg;
    bool m_compression = false;
    QStringList m_files;
    std::atomic<bool> m_abort{false};
    QString m_log;
    // The series so far, per pixel; the sums in double, so that the squares
    // of 16-bit values do not cancel the variance away.
    int64_t m_width = 0, m_height = 0;
    int m_type = 0;
    bool m_pcoFormat = false;
    std::vector<double> m_sum, m_squares;
    std::vector<float> m_min, m_max;
};
