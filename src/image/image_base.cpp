#include "image_base.h"

#include <cstdarg>
#include <cstdio>

#include "piv_messages.h"
#include "piv_record.h"

ImageBaseClass::ImageBaseClass()
    : m_baseRefCount(1),
      m_statusEnabled(false),
      m_statusBuffer(),
      m_fileName(),
      m_description(),
      m_error("ImageBaseClass"),
      m_width(0),
      m_height(0),
      m_depth(1),
      m_bytesPerLine(0),
      m_pixelsPerLine(0),
      m_fileFormat(PIV::FORMAT_UNKNOWN),
      m_type(IMAGE_UNDEFINED),
      m_needStats(false),
      m_changed(false),
      m_variance(0.0),
      m_mean(0.0),
      m_minimum(0.0),
      m_maximum(0.0),
      m_compression(),
      m_interpolationMethod(PIV::INTERPOLATE_BSPLINE),
      m_interpolationParameter(3) {}

ImageBaseClass::~ImageBaseClass() = default;

// Geometry and pixels belong to the derived class, which copies them itself;
// a copy starts with a count of 1 and its own error object.
ImageBaseClass::ImageBaseClass(const ImageBaseClass& other) : ImageBaseClass() {
    m_error.setName(other.m_error.name());
    m_statusEnabled = other.m_statusEnabled;
    m_compression = other.m_compression;
    m_interpolationMethod = other.m_interpolationMethod;
    m_interpolationParameter = other.m_interpolationParameter;
    PIV::CopyText(m_description, other.m_description);
}

ImageBaseClass& ImageBaseClass::operator=(const ImageBaseClass& other) {
    if (this == &other) return *this;
    m_statusEnabled = other.m_statusEnabled;
    m_compression = other.m_compression;
    m_interpolationMethod = other.m_interpolationMethod;
    m_interpolationParameter = other.m_interpolationParameter;
    PIV::CopyText(m_description, other.m_description);
    return *this;
}

uint32_t ImageBaseClass::release() {
    if (m_baseRefCount == 0) return 0;
    if (--m_baseRefCount == 0) {
        delete this;
        return 0;
    }
    return m_baseRefCount;
}

bool ImageBaseClass::doStatistics(bool force) {
    DebugPrintExt(2, "ImageBaseClass::doStatistics(force=%d) - reimplement ot actual class!",
                  force ? 1 : 0);
    return false;
}

void ImageBaseClass::showStatus(const char* text) {
    if (!m_statusEnabled || !text) return;
    std::fputs(text, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// Formats even while disabled: an override of showStatus may show the text
// elsewhere regardless of the flag.
void ImageBaseClass::showStatusFormatted(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(m_statusBuffer, sizeof(m_statusBuffer), format, args);
    va_end(args);
    showStatus(m_statusBuffer);
}

void ImageBaseClass::setFileName(const char* path) {
    if (!path) return;
    PIV::CopyText(m_fileName, path);
}

void ImageBaseClass::setDescription(const char* text) {
    PIV::CopyText(m_description, text);
}

int ImageBaseClass::bytesPerPixel() const {
    switch (static_cast<int>(m_type)) {
        case 0:
            return 0;
        case 8:
            return 1;
        case 16:
            return 2;
        default:
            return 4;
    }
}
