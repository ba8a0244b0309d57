// PIV_ImagePair: the two frames of an evaluation. It finds the second frame
// by the naming rules (PIV::GetSecondImageName), takes both halves of a
// double-frame file in PCO mode, holds a fixed reference frame in speckle
// mode and lets one double-exposed frame serve as both in autocorrelation.
// Each frame fetches and applies its own mask, background and
// pre-processing (PIV_Image2D).
#pragma once

#include <cstdint>
#include <string>

#include "image2d.h"
#include "piv_error.h"
#include "piv_image2d.h"

class PIV3C_Parameters;

class PIV_ImagePair {
public:
    PIV_ImagePair();
    virtual ~PIV_ImagePair() = default;
    PIV_ImagePair(const PIV_ImagePair&) = delete;
    PIV_ImagePair& operator=(const PIV_ImagePair&) = delete;

    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();

    PIV_Image2D* imgA() { return &m_a; }
    PIV_Image2D* imgB() { return &m_b; }
    const PIV_Image2D* imgA() const { return &m_a; }
    const PIV_Image2D* imgB() const { return &m_b; }

    // ---- loading -----------------------------------------------------------
    // The full path: fileA (or, in speckle mode, the reference) as frame A;
    // frame B from fileB, from the other half of a split double image, or by
    // the naming rules with `separation`. False when frame A fails or a
    // wanted frame B does not load.
    bool loadImagePair(const char* fileA, const char* fileB, int separation, bool splitPCO,
                       bool loadSecond);
    bool load(const char* file, int separation, bool splitPCO, bool loadSecond);
    // Both names (an empty fileB means: by the naming rules); in PCO mode the
    // two halves of fileA.
    bool loadPair(const char* fileA, const char* fileB);
    // The names of the last load again, with the stored separation.
    bool reloadImages();
    // Camera frames in memory; no mask, background or pre-processing.
    // `isFloat` takes 32-bit pixels as floats, as from a script.
    bool loadFromBuffer(const void* bufferA, const void* bufferB, int width, int height,
                        int depthBits, int bytesPerLine, int binning, bool isFloat = false);
    // Copies both frames as they are; the pair counts as loaded when both
    // hold pixels.
    bool setImages(const Image2D& a, const Image2D& b);
    bool loadMask(const char* path);
    // Both frames into `directory` under their clean base names; an empty
    // extension is chosen by the depth of frame A.
    bool save(const char* directory, const char* extension);
    // The base names `save` gives frames read from `pathA` and, with `haveB`,
    // `pathB`: their clean base names, with "a" and "b" added where the two
    // are alike, as the halves of one split image are.
    static void SavedNames(const std::string& pathA, const std::string& pathB, bool haveB,
                           std::string& nameA, std::string& nameB);
    void clear();

    // ---- state ---------------------------------------------------------------
    bool isNull() const { return m_a.isNull(); }
    bool isImagePair() const;
    bool isPairLoaded() const { return m_pairLoaded; }
    bool isSameSize() const { return m_sameSize; }
    // Frames the file of frame A holds (Image2D::fileFrames): 2 for a
    // LaVision file of two frames or a two-page TIFF, which PCO mode loads
    // as frames A and B; 0 before a load.
    int frameCount() const { return m_frameCount; }
    // Frame B is the frame A holds: the same file, however its path is
    // spelt, and the same page or half. Such a pair correlates a frame with
    // itself and gives a field of zeros.
    bool sameFrameTwice() const { return m_sameFrameTwice; }
    bool isImageAvailable() const { return m_a.isImageAvailable(); }
    bool isMaskAvailable() const { return m_a.isMaskAvailable(); }
    bool isPCOMode() const { return m_a.isPCOMode(); }
    bool isSplitPCO() const { return m_a.isSplitPCO(); }
    bool requiresImagePreProcessing() const { return m_a.requiresImagePreProcessing(); }
    const std::string& savedFilesText() const { return m_savedText; }

    // ---- settings, forwarded to both frames ------------------------------------
    void setPCOMode(bool on);
    void setTIFFCompressionEnabled(bool on);
    void setInterpolationMethod(int method, int degree);
    void setImageCfg(const IMAGE_CFG& cfg);
    const IMAGE_CFG& imageCfg() const { return m_a.imageCfg(); }
    void setPivConvertCfg(const PIVCONVERT_CFG& cfg);
    const PIVCONVERT_CFG& pivConvertCfg() const { return m_a.pivConvertCfg(); }
    void setAltDir(const char* dir);
    void setStereoMode(bool on);
    void setStereoCfg(PIV3C_Parameters* params, int view);
    void setFlagImagePreProcess(bool on);

    int frameSeparation() const { return m_frameSeparation; }
    void setFrameSeparation(int separation) { m_frameSeparation = separation; }
    int analysisMode() const { return m_analysisMode; }
    void setAnalysisMode(int mode);
    void setReferenceImage(const char* path);
    const char* referenceImage() const { return m_reference; }
    void setView(int view) { m_view = view; }
    int view() const { return m_view; }

    // ---- names -------------------------------------------------------------------
    // Frame B's path for `second` outside speckle mode and for !second in it
    // (where frame A is the fixed reference); frame A's otherwise.
    const char* filePath(bool second) const;
    const char* baseName(bool second) const;
    const char* fileName(bool second) const;
    // Frame A always, frame B too when `second`.
    void setFileName(const char* path, bool second);
    // A buffer of the calling thread, at most 255 characters.
    const char* extension(bool second) const;
    const char* lastImageFileA() const { return m_a.name(); }
    const char* lastImageFileB() const { return m_b.name(); }

    SIZE2D size2D() const { return m_a.size2D(); }
    int width() const { return static_cast<int>(m_a.width()); }
    int height() const { return static_cast<int>(m_a.height()); }
    bool isInside(const POINT2D& p) const { return m_a.isInside(p.x, p.y); }

    virtual void setWaitCursor(bool) {}
    // Progress of a load ("View: A - Loading image no.1"); logged here.
    virtual void showStatus(const char* text);
    PIVerror& error() { return m_error; }

private:
    uint32_t m_refCount = 1;
    PIVerror m_error;
    PIV_Image2D m_a, m_b;
    int m_frameSeparation = 1;
    int m_analysisMode = 1;
    bool m_pairLoaded = false;
    bool m_sameSize = false;
    int m_frameCount = 0;
    bool m_sameFrameTwice = false;
    char m_reference[2048];
    int m_view = 0;
    std::string m_savedText;
};
