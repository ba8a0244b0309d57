// ImagePreProcessDlg: how the frames of views A and B are prepared after
// loading: splitting, cropping, background, mask, dewarping, filters and
// transformation.
#pragma once

#include <QDialog>

#include "piv_types.h"
#include "recordform.h"

struct IMAGEPROC_CFG {
    IMAGE_CFG view[2];

    IMAGEPROC_CFG();
};

class ImagePreProcessDlg : public QDialog {
    Q_OBJECT
public:
    explicit ImagePreProcessDlg(QWidget* parent = nullptr);

    void setRecord(const IMAGEPROC_CFG& cfg);
    IMAGEPROC_CFG record() const;
    void setImageCfg(const IMAGE_CFG& cfg, int view);
    const RecordForm& form() const { return m_form; }

    // The first file the record switches on that cannot be read; empty when
    // all can.
    static QString missingFile(const IMAGE_CFG& cfg);

signals:
    // "Set reference image" was pressed.
    void signalChooseReferenceImage();

private:
    IMAGEPROC_CFG m_cfg;
    RecordForm m_form{&m_cfg};
};
