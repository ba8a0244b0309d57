#include "piv_imagepair.h"

#include "piv_enums.h"

PIV_ImagePair::PIV_ImagePair() : m_error("PIV_ImagePair") {}

uint32_t PIV_ImagePair::release() {
    const uint32_t left = --m_refCount;
    if (left == 0) delete this;
    return left;
}

void PIV_ImagePair::setAnalysisMode(int mode) {
    m_analysisMode = PIV::ToAnalysisMode(mode);
}

void PIV_ImagePair::updateState() {
    m_pairLoaded = !m_a.isNull() && !m_b.isNull();
    m_sameSize = m_pairLoaded && m_a.isSameSize(m_b, false);
}

bool PIV_ImagePair::setImages(const Image2D& a, const Image2D& b) {
    m_a = a;
    m_b = b;
    updateState();
    return m_pairLoaded;
}

bool PIV_ImagePair::loadPair(const char* fileA, const char* fileB) {
    if (!fileA || !fileA[0] || !fileB || !fileB[0]) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "loadPair()");
        return false;
    }
    const bool ok = m_a.load(fileA) && m_b.load(fileB);
    updateState();
    return ok && m_pairLoaded;
}
