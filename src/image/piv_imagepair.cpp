#include "piv_imagepair.h"

#include <sys/stat.h>

#include <cstring>

#include "piv_enums.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "piv_record.h"

namespace {

// One file under both names: the same device and inode.
bool _sameFile(const char* a, const char* b) {
    struct stat sa, sb;
    return ::stat(a, &sa) == 0 && ::stat(b, &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

}  // namespace

PIV_ImagePair::PIV_ImagePair() : m_error("PIV_ImagePair"), m_a(PIV_IMAGE_A), m_b(PIV_IMAGE_B) {
    m_reference[0] = '\0';
}

uint32_t PIV_ImagePair::release() {
    const uint32_t left = --m_refCount;
    if (left == 0) delete this;
    return left;
}

void PIV_ImagePair::setAnalysisMode(int mode) {
    m_analysisMode = PIV::ToAnalysisMode(mode);
}

void PIV_ImagePair::showStatus(const char* text) {
    DebugPrintExt(1, "%s", text);
}

void PIV_ImagePair::clear() {
    m_a.destroy();
    m_b.destroy();
    m_pairLoaded = false;
    m_sameSize = false;
    m_frameCount = 0;
    m_sameFrameTwice = false;
}

bool PIV_ImagePair::isImagePair() const {
    return !m_a.isNull() && !m_b.isNull() && m_pairLoaded && m_a.isSameSize(m_b, false);
}

bool PIV_ImagePair::setImages(const Image2D& a, const Image2D& b) {
    static_cast<Image2D&>(m_a) = a;
    static_cast<Image2D&>(m_b) = b;
    m_pairLoaded = !m_a.isNull() && !m_b.isNull();
    m_sameSize = m_pairLoaded && m_a.isSameSize(m_b, false);
    m_frameCount = m_a.fileFrames();
    m_sameFrameTwice = false;
    return m_pairLoaded;
}

bool PIV_ImagePair::loadImagePair(const char* fileA, const char* fileB, int separation,
                                  bool splitPCO, bool loadSecond) {
    clear();
    std::string a = m_a.lookForFile(fileA);
    std::string b = a;
    const bool haveB = fileB && fileB[0];
    if (!haveB) b = m_b.lookForFile(fileB);
    if (a.empty()) return false;

    const bool speckle = m_analysisMode == PIV::ANALYSIS_SPECKLE;
    if (speckle) {
        // Frame A is the fixed reference, frame B the image given.
        if (!m_reference[0]) return false;
        a = m_a.lookForFile(m_reference);
        if (a.empty()) return false;
        splitPCO = false;
    }
    char status[64];
    std::snprintf(status, sizeof(status), "View: %c - Loading image no.1", 'A' + m_view);
    showStatus(status);
    if (!m_a.load(a.c_str(), splitPCO)) return false;
    m_frameCount = m_a.fileFrames();

    if (m_analysisMode == PIV::ANALYSIS_AUTO_CORRELATION) {
        m_sameSize = m_pairLoaded = true;
        return true;
    }
    if (!loadSecond) {
        m_b.destroy();
        return true;
    }
    m_frameSeparation = separation;
    if (!speckle) {
        if (m_a.isSplitPCO() && splitPCO) {
            b = m_a.name();  // the other half of the double image
        } else if (haveB) {
            b = m_b.lookForFile(fileB);
        } else {
            b = PIV::GetSecondImageName(m_a.name(), separation);
            if (b == m_a.name()) return true;
        }
    }
    std::snprintf(status, sizeof(status), "View: %c - Loading image no.2", 'A' + m_view);
    showStatus(status);
    const bool ok = m_b.load(b.c_str(), splitPCO);
    if (ok) {
        m_sameSize = m_a.isSameSize(m_b, false);
        m_sameFrameTwice =
            m_a.currentPage() == m_b.currentPage() && _sameFile(m_a.name(), m_b.name());
    } else {
        m_b.destroy();
    }
    m_pairLoaded = true;
    return ok;
}

bool PIV_ImagePair::load(const char* file, int separation, bool splitPCO, bool loadSecond) {
    DebugPrint("PIV_ImagePair::load(%s, splitPCO=%d) ", file ? file : "", splitPCO ? 1 : 0);
    return loadImagePair(file, "", separation, splitPCO, loadSecond);
}

bool PIV_ImagePair::loadPair(const char* fileA, const char* fileB) {
    if (!fileA || !fileA[0]) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "loadPair()");
        return false;
    }
    DebugPrint("PIV_ImagePair::loadPair(%s | %s) ", fileA, fileB ? fileB : "");
    if (m_a.isPCOMode()) return loadImagePair(fileA, fileA, 0, true, true);
    return loadImagePair(fileA, fileB, m_frameSeparation, false, true);
}

bool PIV_ImagePair::reloadImages() {
    if (!m_a.originalName()[0]) return false;
    // Copies: loading clears the frames that hold the names.
    const std::string a = m_a.originalName(), b = m_b.originalName();
    DebugPrint("PIV_ImagePair::reloadImages(%s | %s) ", a.c_str(), b.c_str());
    return loadImagePair(a.c_str(), b.c_str(), m_frameSeparation, false, true);
}

bool PIV_ImagePair::loadFromBuffer(const void* bufferA, const void* bufferB, int width, int height,
                                   int depthBits, int bytesPerLine, int binning, bool isFloat) {
    clear();
    m_a.setName("Camera buffer A");
    m_b.setName("Camera buffer B");
    const bool okA =
        m_a.loadFromBuffer(bufferA, width, height, depthBits, bytesPerLine, isFloat, binning);
    const bool okB =
        m_b.loadFromBuffer(bufferB, width, height, depthBits, bytesPerLine, isFloat, binning);
    m_sameSize = m_a.width() == m_b.width() && m_a.height() == m_b.height();
    m_pairLoaded = true;
    return okA && okB;
}

bool PIV_ImagePair::loadMask(const char* path) {
    const bool ok = m_a.loadMask(path, false);
    m_b.loadMask(path, false);
    return ok;
}

void PIV_ImagePair::SavedNames(const std::string& pathA, const std::string& pathB, bool haveB,
                               std::string& nameA, std::string& nameB) {
    nameA = PIV::GetCleanBaseNameFromPath(pathA.c_str());
    nameB = haveB ? PIV::GetCleanBaseNameFromPath(pathB.c_str()) : std::string();
    if (haveB && nameA == nameB) {
        nameA += "a";
        nameB += "b";
    }
}

bool PIV_ImagePair::save(const char* directory, const char* extension) {
    if (!directory || !directory[0] || !PIV::CheckDirectoryExistence(directory) || m_a.isNull())
        return false;
    DebugPrint("PIV_ImagePair::save() : dir=%s", directory);
    std::string nameA, nameB;
    SavedNames(m_a.name(), m_b.name(), !m_b.isNull(), nameA, nameB);
    std::string ext = extension ? extension : "";
    if (ext.empty()) {
        switch (m_a.type()) {
            case IMAGE_UINT16:
                ext = m_a.isPCOImage() ? ".b16" : ".tif";
                break;
            case IMAGE_FLOAT:
                ext = ".img";
                break;
            default:
                ext = ".tif";
        }
    } else if (ext[0] != '.') {
        ext = "." + ext;
    }
    const std::string dir = directory;
    const std::string pathA = dir + "/" + nameA + ext, pathB = dir + "/" + nameB + ext;
    m_savedText = "Stored images:";
    bool ok = m_a.save(pathA.c_str(), -1);
    if (ok) m_savedText += "\nImage1: " + pathA;
    if (!m_b.isNull()) {
        const bool okB = m_b.save(pathB.c_str(), -1);
        if (okB) m_savedText += "\nImage2: " + pathB;
        ok = ok && okB;
    }
    DebugPrint("%s", m_savedText.c_str());
    return ok;
}

void PIV_ImagePair::setPCOMode(bool on) {
    m_a.setPCOMode(on);
    m_b.setPCOMode(on);
}

void PIV_ImagePair::setTIFFCompressionEnabled(bool on) {
    m_a.setFlagCompressionEnabled(on);
    m_b.setFlagCompressionEnabled(on);
}

void PIV_ImagePair::setInterpolationMethod(int method, int degree) {
    m_a.setInterpolationMethod(method, degree);
    m_b.setInterpolationMethod(method, degree);
}

void PIV_ImagePair::setImageCfg(const IMAGE_CFG& cfg) {
    m_a.setImageCfg(cfg);
    m_b.setImageCfg(cfg);
}

void PIV_ImagePair::setPivConvertCfg(const PIVCONVERT_CFG& cfg) {
    m_a.setPivConvertCfg(cfg);
    m_b.setPivConvertCfg(cfg);
}

void PIV_ImagePair::setAltDir(const char* dir) {
    m_a.setAltDir(dir);
    m_b.setAltDir(dir);
}

void PIV_ImagePair::setStereoMode(bool on) {
    m_a.setStereoMode(on);
    m_b.setStereoMode(on);
}

void PIV_ImagePair::setStereoCfg(PIV3C_Parameters* params, int view) {
    m_view = view;
    m_a.setStereoCfg(params, view);
    m_b.setStereoCfg(params, view);
}

void PIV_ImagePair::setFlagImagePreProcess(bool on) {
    m_a.setFlagImagePreProcess(on);
    m_b.setFlagImagePreProcess(on);
}

void PIV_ImagePair::setReferenceImage(const char* path) {
    PIV::CopyText(m_reference, path);
}

const char* PIV_ImagePair::filePath(bool second) const {
    const bool speckle = m_analysisMode == PIV::ANALYSIS_SPECKLE;
    return second != speckle ? m_b.name() : m_a.name();
}

const char* PIV_ImagePair::baseName(bool second) const {
    return PIV::GetCleanBaseNameFromPath(filePath(second));
}

const char* PIV_ImagePair::fileName(bool second) const {
    return PIV::GetFileNameFromPath(filePath(second));
}

void PIV_ImagePair::setFileName(const char* path, bool second) {
    m_a.setName(path);
    if (second) m_b.setName(path);
}

const char* PIV_ImagePair::extension(bool second) const {
    static thread_local char buffer[256];
    const PIVFileName parts(filePath(second));
    PIV::CopyText(buffer, parts.extension().c_str());
    return buffer;
}
