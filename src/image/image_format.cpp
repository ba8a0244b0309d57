#include "image_format.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>

#include "piv_error.h"
#include "piv_file.h"
#include "piv_messages.h"

namespace {

using PIV::FilePtr;

constexpr std::size_t kHeaderBytes = 256;

// Header words are little-endian whatever the machine.
int _readLE16(const unsigned char* p) {
    return static_cast<int16_t>(static_cast<uint16_t>(p[0] | (p[1] << 8)));
}

bool _startsWith(const unsigned char* buf, const char* text) {
    return std::memcmp(buf, text, std::strlen(text)) == 0;
}

bool _startsWithBytes(const unsigned char* buf, unsigned char a, unsigned char b, unsigned char c,
                      unsigned char d) {
    return buf[0] == a && buf[1] == b && buf[2] == c && buf[3] == d;
}

// Diagnostic only: tells whether the header reads as text, which helps when a
// data file was handed to an image loader by mistake.
void _logAsciiness(const unsigned char* buf, std::size_t n) {
    if (DebugLevel() < 2) return;
    bool ascii = true;
    for (std::size_t i = 0; i < n; i++) {
        int c = buf[i];
        if (!(std::isprint(c) || std::isspace(c))) {
            DebugPrintExt(3,
                          " buf[%d]=0x%04x not ASCII: isspace=%d iscntrl=%d isalnum=%d isprint=%d",
                          static_cast<int>(i), c, std::isspace(c) ? 1 : 0, std::iscntrl(c) ? 1 : 0,
                          std::isalnum(c) ? 1 : 0, std::isprint(c) ? 1 : 0);
            ascii = false;
            break;
        }
    }
    DebugPrintExt(2, "File header is %sASCII", ascii ? "" : "non-");
}

int _lavisionFormat(const unsigned char* buf) {
    int version = _readLE16(buf);
    int packType = _readLE16(buf + 2);
    DebugPrintExt(2, "LaVision image/data - header version: %d    pack type: %d", version,
                  packType);
    switch (version) {
        case 18:
            return PIV::FORMAT_LAVISION_0;
        case 19:
            return PIV::FORMAT_LAVISION_1;
        case 20:
            return PIV::FORMAT_LAVISION_3;
        case 21:
            return PIV::FORMAT_LAVISION_4;
        case 22:
            return PIV::FORMAT_LAVISION_5;
        case 23:
            return PIV::FORMAT_LAVISION_6;
        default:
            break;
    }
    if (_readLE16(buf + 6) != 0) return PIV::FORMAT_LAVISION_7;
    switch (packType) {
        case 0:
        case 3:
            return PIV::FORMAT_LAVISION_0;
        case 1:
            return PIV::FORMAT_LAVISION_1;
        case 2:
            return PIV::FORMAT_LAVISION_2;
        default:
            return PIV::FORMAT_UNKNOWN;
    }
}

}  // namespace

int PIV::GetFileFormat(const char* path) {
    FilePtr file = PIV::OpenFile(path, "rb");
    if (!file) {
        PIVerror::handleErrorExt(PIVerror::FILE_OPEN_FAILED, "GetFileFormat()", DebugLevel() > 0);
        return FORMAT_NOT_FOUND;
    }
    // A short file leaves zeros behind its end, which the rules below treat
    // like any other content.
    unsigned char buf[kHeaderBytes] = {};
    std::size_t n = std::fread(buf, 1, kHeaderBytes, file.get());
    file.reset();
    _logAsciiness(buf, n);

    if (_startsWith(buf, "#!PIV")) return FORMAT_PARFILE;
    if (_startsWith(buf, "#!TDV")) {
        int version = 0;
        for (int i = 5; i < 8 && std::isdigit(buf[i]); i++) version = version * 10 + (buf[i] - '0');
        DebugPrintExt(2, "Tecplot binary file - File Version: %d.%d", version / 10, version % 10);
        return FORMAT_TECPLOT;
    }

    if (_startsWith(buf, "PCO-")) return FORMAT_PCO;
    if (_startsWith(buf, "B32-")) return FORMAT_B32;
    if (_startsWithBytes(buf, 0x4D, 0x4D, 0x00, 0x2A) ||
        _startsWithBytes(buf, 0x49, 0x49, 0x2A, 0x00))
        return FORMAT_TIFF;
    if (_startsWithBytes(buf, 'C', 'D', 'F', 0x01)) return FORMAT_NETCDF;
    if (_startsWith(buf, "#!TD")) return FORMAT_TECPLOT;
    if (_startsWithBytes(buf, 0xFF, 0xD8, 0xFF, 0xE0)) return FORMAT_JPEG;
    if (_startsWithBytes(buf, 0x89, 0x50, 0x4E, 0x47)) return FORMAT_PNG;

    // Only a blank behind the magic counts. A PGM written as "P5\n" falls
    // through to the LaVision rule and its loader refuses it; the PGM writer
    // of Image2D puts a blank there for that reason.
    if (buf[0] == 'P' && std::strchr("1245", buf[1]) && buf[1] != '\0' && buf[2] == ' ')
        return FORMAT_PGM;

    if (_startsWith(buf, "BM")) return FORMAT_BMP;
    if (_startsWith(buf, "MM") || _startsWith(buf, "II")) return FORMAT_TIFF;

    return _lavisionFormat(buf);
}
