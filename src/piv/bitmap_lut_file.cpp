// The colour table text file: comment lines start with '#', '[' or '%'; each
// other line holds red, green, blue and optionally alpha, 0 to 255.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "bitmap_lut.h"

namespace {

using FilePtr = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

FilePtr openFile(const char* file, const char* mode) {
    return FilePtr(file ? std::fopen(file, mode) : nullptr, &std::fclose);
}

// Splits at any of ",;= " (and tabs, line ends); false unless every token is
// a number from 0 to 255 and there are three or four of them.
bool parseRow(char* line, double* values, int* count) {
    static const char kSep[] = ",;= \t\r\n";
    char* save = nullptr;
    *count = 0;
    for (char* tok = strtok_r(line, kSep, &save); tok; tok = strtok_r(nullptr, kSep, &save)) {
        char* end = nullptr;
        const double v = std::strtod(tok, &end);
        if (end == tok || *end != '\0' || !(v >= 0 && v <= 255) || *count == 4) return false;
        values[(*count)++] = v;
    }
    return *count >= 3;
}

}  // namespace

bool BitmapLUT::load(const char* file) {
    std::ifstream in;
    if (file) in.open(file);
    if (!in) {
        m_error.setMessage("BitmapLUT::load() - failed opening file: '%s'", file ? file : "");
        m_error.handleError(PIVerror::FILE_OPEN_FAILED, "load()");
        return false;
    }
    double rgba[4][kSize];
    int rows = 0;
    std::string line;
    for (int lineNo = 1; std::getline(in, line); ++lineNo) {
        const size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos) continue;
        const char c0 = line[first];
        if (c0 == '#' || c0 == '[' || c0 == '%') continue;
        double v[4];
        int n = 0;
        if (rows == kSize || !parseRow(line.data(), v, &n)) {
            // Every refusal leads with the one text users know, then says why.
            m_error.setMessage(
                rows == kSize ? "BitmapLUT::load() - failed opening file: '%s'\nmore than %d rows"
                              : "BitmapLUT::load() - failed opening file: '%s'\nbad row %d",
                file, rows == kSize ? kSize : lineNo);
            m_error.handleError(PIVerror::INVALID_FILE_CONTENT, "load()");
            return false;
        }
        for (int c = 0; c < 3; ++c) rgba[c][rows] = v[c];
        rgba[3][rows] = n == 4 ? v[3] : 255;
        ++rows;
    }
    if (rows != kSize) {
        m_error.setMessage("BitmapLUT::load() - failed opening file: '%s'\n%d rows instead of %d",
                           file, rows, kSize);
        m_error.handleError(PIVerror::INVALID_FILE_CONTENT, "load()");
        return false;
    }
    std::memcpy(m_userRed, rgba[0], sizeof(m_userRed));
    std::memcpy(m_userGreen, rgba[1], sizeof(m_userGreen));
    std::memcpy(m_userBlue, rgba[2], sizeof(m_userBlue));
    std::memcpy(m_userAlpha, rgba[3], sizeof(m_userAlpha));
    setLUT(LUT_USER_DEFINED);
    return true;
}

bool BitmapLUT::save(const char* file) {
    FilePtr fp = openFile(file, "w");
    bool ok = bool(fp);
    if (ok) {
        ok = std::fprintf(fp.get(),
                          "# Bitmap pseudocolor lookup table\n# Length = %d\n"
                          "# Format: red green blue\n# Color range: 0-255\n",
                          kSize) > 0;
        for (int i = 0; ok && i < kSize; ++i)
            ok = std::fprintf(fp.get(), "%3d %3d %3d\n", m_red[i], m_green[i], m_blue[i]) > 0;
        ok = (std::fclose(fp.release()) == 0) && ok;
    }
    if (!ok) {
        m_error.setMessage("BitmapLUT::save() - failed creating file: '%s'", file ? file : "");
        m_error.handleError(PIVerror::FILE_CREATE_FAILED, "save()");
    }
    return ok;
}
