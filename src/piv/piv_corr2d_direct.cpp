#include "piv_corr2d_direct.h"

void PIV_Corr2D_Scan::setPivEvalCfg(const PIVEVAL_CFG& cfg) {
    m_cfg = cfg;
    create(SIZE2D{cfg.SampleSize.width, cfg.SampleSize.height},
           SIZE2D{cfg.ScanRange.width, cfg.ScanRange.height});
}

bool PIV_Corr2D_Scan::create(const SIZE2D& sampleSize, const SIZE2D& scanRange) {
    m_sampleSize = sampleSize;
    m_scanRange = scanRange;
    return true;
}

bool PIV_Corr2D_MQD::findMinimum(FPOINT2D*, float*) const {
    return m_coeffs != nullptr;
}

bool PIV_Corr2D_Direct::findMaximum(FPOINT2D*, float*, float*, float*) const {
    return m_coeffs != nullptr;
}
