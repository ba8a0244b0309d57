// PIV_ImagePair: the two frames of an evaluation. For now it holds the two
// images handed to it; finding and loading the second frame by the naming
// rules comes with the file sequences.
#pragma once

#include <cstdint>

#include "image2d.h"
#include "piv_error.h"

class PIV_ImagePair {
public:
    PIV_ImagePair();
    virtual ~PIV_ImagePair() = default;
    PIV_ImagePair(const PIV_ImagePair&) = delete;
    PIV_ImagePair& operator=(const PIV_ImagePair&) = delete;

    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();

    Image2D* imgA() { return &m_a; }
    Image2D* imgB() { return &m_b; }
    const Image2D* imgA() const { return &m_a; }
    const Image2D* imgB() const { return &m_b; }

    // Copies both frames; the pair counts as loaded when both hold pixels.
    bool setImages(const Image2D& a, const Image2D& b);
    // Loads both frames from files (any format Image2D reads).
    bool loadPair(const char* fileA, const char* fileB);

    bool isPairLoaded() const { return m_pairLoaded; }
    bool isSameSize() const { return m_sameSize; }
    int frameSeparation() const { return m_frameSeparation; }
    void setFrameSeparation(int separation) { m_frameSeparation = separation; }
    int analysisMode() const { return m_analysisMode; }
    void setAnalysisMode(int mode);

    virtual void setWaitCursor(bool) {}
    PIVerror& error() { return m_error; }

private:
    void updateState();

    uint32_t m_refCount = 1;
    PIVerror m_error;
    Image2D m_a, m_b;
    int m_frameSeparation = 1;
    int m_analysisMode = 1;
    bool m_pairLoaded = false;
    bool m_sameSize = false;
};
