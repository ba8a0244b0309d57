#include "piv_error.h"

#include <omp.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "piv_record.h"

namespace {

// Static initialisation runs on the thread that starts the program.
const std::thread::id kMainThread = std::this_thread::get_id();

// Ending the process is the main thread's decision alone: a worker (an
// OpenMP team member, or a thread of the application) that stopped the
// program would take the other workers' results and the caller's unsaved
// data with it. There the error stays recorded and the caller, seeing the
// failure, decides.
bool _mayExit() {
    return std::this_thread::get_id() == kMainThread && omp_get_level() == 0;
}

const char* const kErrorTexts[] = {
    "no error",
    "internal erorr",
    "bad data set dimensions",
    "invalid pointer address",
    "bad/invalid input parameters",
    "bad range",
    "division by zero",
    "memory allocation failed",
    "tried to overwrite own data",
    "operation failed",
    "operation not possible",
    "function not available",
    "data set too large for allocation",
    "non-existent or corrupt data set",
    "data set is null",
    "internal data set mismatch",
    "mismatch between data grids",
    "bad/invalid grid dimension",
    "cannot operate on specified data",
    "multiple samples per element unsupported",
    "outside of data set domain",
    "variable not found",
    "data type not supported",
    "bad file name",
    "file format not supported",
    "failed creating file",
    "failed opening file",
    "file size invalid",
    "file not found",
    "file access error",
    "failed reading data from file",
    "failed writing data to file",
    "invalid file content",
    "image type not supported",
    "size mismatch between images",
    "bad/invalid image size",
    "tried accessing pixel(s) outside of image bounds",
    "image is NULL",
    "not a PIV image pair",
    "failed dewarping image",
    "memory allocation error within FFT routines",
    "bad sample size",
    "invalid offset between samples",
    "tried sampling out of image bounds",
    "sample is within masked area",
    " sample area larger than image",
    "image could not be sampled",
    "correlation failed",
    "correlation data not available",
    "multiple-correlation without offset",
    "bad/invalid kernel size",
    "invalid peak fit parameter",
    "peak fit failed",
    "error creating netCDF variable",
    "error writing netCDF variable to file",
    "error reading netCDF variable",
    "error accessing data in netCDF variable",
    "bad netCDF variable type",
    "netCDF variable not found",
};
static_assert(sizeof(kErrorTexts) / sizeof(kErrorTexts[0]) == PIVerror::LAST_ERROR_TYPE + 1,
              "one text for every error code");

// Texts are cut at the size of their buffer on purpose; going through
// vsnprintf keeps the compiler from warning about every such cut.
void formatInto(char* buffer, std::size_t size, const char* format, ...) PIV_PRINTF(3, 4);
void formatInto(char* buffer, std::size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, size, format, args);
    va_end(args);
}

}  // namespace

PIVerror::PIVerror() {
    init();
}

PIVerror::PIVerror(const char* name) {
    init();
    setName(name);
}

void PIVerror::init() {
    m_mode = ERROR_REPORT;
    m_savedMode = ERROR_REPORT;
    m_code = NO_ERROR;
    PIV::CopyText(m_name, "_undefined_");
    m_text[0] = '\0';
    m_detail[0] = '\0';
}

void PIVerror::setName(const char* name) {
    PIV::CopyText(m_name, name ? name : "_undefined_");
}

const char* PIVerror::getErrorMessage(int type) {
    if (type < 0) type = -type;
    if (type > LAST_ERROR_TYPE) return "undefined error";
    return kErrorTexts[type];
}

void PIVerror::setMessage(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(m_detail, sizeof(m_detail), format ? format : "", args);
    va_end(args);
}

int PIVerror::reportFormatted(int type, const char* format, va_list args) {
    m_code = type;
    m_text[0] = '\0';
    m_detail[0] = '\0';
    if (type == NO_ERROR) return type;
    if (format) std::vsnprintf(m_detail, sizeof(m_detail), format, args);
    formatInto(m_text, sizeof(m_text), "ERROR in %s : %s\n   %s", m_name, getErrorMessage(type),
               m_detail);
    m_detail[0] = '\0';
    process();
    return type;
}

int PIVerror::setError(int type, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int result = reportFormatted(type, format, args);
    va_end(args);
    return result;
}

int PIVerror::handleErrorLong(int type, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int result = reportFormatted(type, format, args);
    va_end(args);
    return result;
}

int PIVerror::handleError(int type, const char* where) {
    m_code = type;
    if (type == NO_ERROR) return type;
    if (where)
        formatInto(m_text, sizeof(m_text), "ERROR '%s::%s' : %s", m_name, where,
                   getErrorMessage(type));
    else
        formatInto(m_text, sizeof(m_text), "ERROR '%s' : %s", m_name, getErrorMessage(type));
    std::size_t n = std::strlen(m_text);
    if (m_detail[0] && n + 1 < sizeof(m_text))
        formatInto(m_text + n, sizeof(m_text) - n, "\n%s", m_detail);
    m_detail[0] = '\0';
    process();
    return type;
}

int PIVerror::handleErrorExt(int type, const char* where, bool print) {
    if (type == NO_ERROR || !print) return type;
    char text[2048];
    if (where)
        std::snprintf(text, sizeof(text), "ERROR in '%s' : %s", where, getErrorMessage(type));
    else
        std::snprintf(text, sizeof(text), "ERROR (%d) : %s", type, getErrorMessage(type));
    SendDebugMessageToOutputWindow(text);
    return type;
}

int PIVerror::handleErrorLongExt(int type, int mode, const char* format, ...) {
    if (type == NO_ERROR) return type;
    char text[4096];
    int n = std::snprintf(text, sizeof(text), "ERROR : %s\n   ", getErrorMessage(type));
    if (format && n >= 0 && static_cast<std::size_t>(n) < sizeof(text)) {
        va_list args;
        va_start(args, format);
        std::vsnprintf(text + n, sizeof(text) - n, format, args);
        va_end(args);
    }
    processText(mode, text);
    return type;
}

void PIVerror::setOverrideErrorHandling(int mode) {
    m_savedMode = m_mode;
    m_mode = mode;
}

void PIVerror::clearOverrideErrorHandling() {
    m_mode = m_savedMode;
}

void PIVerror::process() {
    processText(m_mode, m_text);
}

void PIVerror::processText(int mode, const char* text) {
    switch (mode) {
        case ERROR_QUIET:
            if (DebugLevel() > 0) SendDebugMessageToOutputWindow(text);
            break;
        case ERROR_EXIT:
            SendDebugMessageToOutputWindow(text);
            if (_mayExit()) std::exit(1);
            break;
        default:
            SendDebugMessageToOutputWindow(text);
            break;
    }
}
