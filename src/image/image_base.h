// ImageBaseClass: everything of an image that does not depend on how its
// pixels are stored: geometry, names, cached statistics, flags and the
// settings that writers and interpolators read.
#pragma once

#include <cstdint>

#include "image_types.h"
#include "piv_error.h"

class ImageBaseClass {
public:
    ImageBaseClass();
    // Virtual on purpose: derived images are released through base pointers.
    virtual ~ImageBaseClass();

    ImageBaseClass(const ImageBaseClass& other);
    ImageBaseClass& operator=(const ImageBaseClass& other);

    // Only this class's implementation prints a hint and returns false.
    virtual bool doStatistics(bool force);
    // Prints the text and a line feed on standard output while enabled.
    virtual void showStatus(const char* text);

    // A count of its own, separate from Image2D's; starts at 1, and the
    // object deletes itself when it goes from 1 to 0.
    uint32_t addRef() { return ++m_baseRefCount; }
    uint32_t release();
    uint32_t referenceCount() const { return m_baseRefCount; }

    void enableStatusMessages(bool enable) { m_statusEnabled = enable; }
    bool statusMessagesEnabled() const { return m_statusEnabled; }

    const char* fileName() const { return m_fileName; }
    // At most 2047 characters are kept; a null path is ignored.
    void setFileName(const char* path);
    const char* description() const { return m_description; }
    void setDescription(const char* text);

    PIVerror& error() const { return m_error; }

    uint64_t width() const { return m_width; }
    uint64_t height() const { return m_height; }
    uint64_t depth() const { return m_depth; }
    uint64_t bytesPerLine() const { return m_bytesPerLine; }
    uint64_t pixelsPerLine() const { return m_pixelsPerLine; }
    int fileFormat() const { return m_fileFormat; }
    ImageType type() const { return m_type; }
    // 0 for type 0, 1 for 8, 2 for 16 and 4 for every other value.
    int bytesPerPixel() const;
    int bitsPerPixel() const { return 8 * bytesPerPixel(); }
    bool isFloat() const { return m_type == IMAGE_FLOAT; }

    bool needsStatistics() const { return m_needStats; }
    void setFlagNeedStatistics(bool need) { m_needStats = need; }
    bool isChanged() const { return m_changed; }
    void setFlagChanged(bool changed) { m_changed = changed; }

    const IMAGE_COMPRESSION& compression() const { return m_compression; }
    void setCompression(const IMAGE_COMPRESSION& c) { m_compression = c; }
    // Switches Deflate (mode 3) on or off; the other fields stay.
    void setFlagCompressionEnabled(bool enable) { m_compression.mode = enable ? 3 : 0; }

    PIV::InterpolationMethod interpolationMethod() const { return m_interpolationMethod; }
    int interpolationParameter() const { return m_interpolationParameter; }
    void setInterpolationMethod(PIV::InterpolationMethod method, int parameter) {
        m_interpolationMethod = method;
        m_interpolationParameter = parameter;
    }

protected:
    // Scratch line in which filters format their status text.
    static constexpr int kStatusBufferSize = 1023;
    // Formats into the status buffer and shows it.
    void showStatusFormatted(const char* format, ...) PIV_PRINTF(2, 3);

    uint32_t m_baseRefCount;
    bool m_statusEnabled;
    char m_statusBuffer[kStatusBufferSize];
    char m_fileName[2048];
    char m_description[2048];
    // Reporting an error is not a change of the image, so const members may report.
    mutable PIVerror m_error;

    uint64_t m_width, m_height, m_depth;
    uint64_t m_bytesPerLine;
    uint64_t m_pixelsPerLine;
    int m_fileFormat;
    ImageType m_type;
    bool m_needStats;
    bool m_changed;
    double m_variance, m_mean, m_minimum, m_maximum;
    IMAGE_COMPRESSION m_compression;
    PIV::InterpolationMethod m_interpolationMethod;
    int m_interpolationParameter;
};
