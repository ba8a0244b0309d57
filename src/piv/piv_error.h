// PIVerror: the error object every working class of the library embeds.
//
// Low-level code throws a bare PIVerror::ErrorType; the nearest function that
// owns a PIVerror catches it at its end, calls handleError(code, "name()") and
// returns false. Nothing else crosses the layers.
#pragma once

#include <cstdarg>
#include <new>
#include <stdexcept>

#include "piv_messages.h"

class PIVerror {
public:
    enum ErrorHandling {
        ERROR_QUIET = 0,   // reported only when the debug level is above 0
        ERROR_REPORT = 1,  // always reported
        ERROR_EXIT = 2,    // reported, then the process ends with exit(1); on any thread
                           // but the main one, or inside a parallel region, only reported
    };

    enum ErrorType {
        NO_ERROR = 0,
        INTERNAL_ERROR = 1,
        BAD_DIMENSIONS = 2,
        INVALID_POINTER = 3,
        BAD_PARAMETERS = 4,
        BAD_RANGE = 5,
        DIVISION_BY_ZERO = 6,
        ALLOCATION_FAILED = 7,
        OVERWRITE_OWN_DATA = 8,
        OPERATION_FAILED = 9,
        OPERATION_NOT_POSSIBLE = 10,
        FUNCTION_NOT_AVAILABLE = 11,
        DATA_TOO_LARGE = 12,
        CORRUPT_DATA = 13,
        DATA_IS_NULL = 14,
        DATA_MISMATCH = 15,
        GRID_MISMATCH = 16,
        BAD_GRID_DIMENSION = 17,
        CANNOT_OPERATE = 18,
        MULTIPLE_SAMPLES = 19,
        OUTSIDE_DOMAIN = 20,
        VARIABLE_NOT_FOUND = 21,
        DATA_TYPE_UNSUPPORTED = 22,
        BAD_FILE_NAME = 23,
        FILE_FORMAT_UNSUPPORTED = 24,
        FILE_CREATE_FAILED = 25,
        FILE_OPEN_FAILED = 26,
        FILE_SIZE_INVALID = 27,
        FILE_NOT_FOUND = 28,
        FILE_ACCESS_ERROR = 29,
        FILE_READ_FAILED = 30,
        FILE_WRITE_FAILED = 31,
        INVALID_FILE_CONTENT = 32,
        IMAGE_TYPE_UNSUPPORTED = 33,
        IMAGE_SIZE_MISMATCH = 34,
        BAD_IMAGE_SIZE = 35,
        OUTSIDE_IMAGE = 36,
        IMAGE_IS_NULL = 37,
        NOT_AN_IMAGE_PAIR = 38,
        DEWARP_FAILED = 39,
        FFT_ALLOCATION = 40,
        BAD_SAMPLE_SIZE = 41,
        INVALID_SAMPLE_OFFSET = 42,
        SAMPLE_OUTSIDE_IMAGE = 43,
        SAMPLE_MASKED = 44,
        SAMPLE_LARGER_THAN_IMAGE = 45,
        SAMPLING_FAILED = 46,
        CORRELATION_FAILED = 47,
        CORRELATION_UNAVAILABLE = 48,
        MULTICORR_NO_OFFSET = 49,
        BAD_KERNEL_SIZE = 50,
        INVALID_PEAKFIT_PARAMETER = 51,
        PEAKFIT_FAILED = 52,
        NETCDF_CREATE_VAR = 53,
        NETCDF_WRITE_VAR = 54,
        NETCDF_READ_VAR = 55,
        NETCDF_ACCESS_VAR = 56,
        NETCDF_BAD_VAR_TYPE = 57,
        NETCDF_VAR_NOT_FOUND = 58,
        LAST_ERROR_TYPE = 58
    };

    PIVerror();
    explicit PIVerror(const char* name);

    void setName(const char* name);
    const char* name() const { return m_name; }
    void init();

    // Writes the detail text only; the next handleError appends it.
    void setMessage(const char* format, ...) PIV_PRINTF(2, 3);
    const char* message() const { return m_detail; }

    // Records the code and reports "ERROR in <owner> : <text>\n   <detail>".
    int setError(int type, const char* format = nullptr, ...) PIV_PRINTF(3, 4);
    // Records the code and reports "ERROR '<owner>::<where>' : <text>".
    int handleError(int type, const char* where = nullptr);
    int handleErrorLong(int type, const char* format, ...) PIV_PRINTF(3, 4);

    static int handleErrorExt(int type, const char* where, bool print);
    static int handleErrorLongExt(int type, int mode, const char* format, ...) PIV_PRINTF(3, 4);

    void setErrorHandling(int mode) { m_mode = mode; }
    void setOverrideErrorHandling(int mode);
    void clearOverrideErrorHandling();
    int errorHandling() const { return m_mode; }

    const char* getLastError() const { return m_text; }
    int getLastErrorCode() const { return m_code; }

    // The fixed text of a code; a negative code reads as its absolute value.
    static const char* getErrorMessage(int type);

private:
    int reportFormatted(int type, const char* format, va_list args);
    void process();
    static void processText(int mode, const char* text);

    int m_mode;
    int m_savedMode;
    char m_name[128];
    char m_text[2047];
    char m_detail[2049];
    int m_code;
};

namespace PIV {

// Runs body() as the end of a member that owns `error`: a thrown
// PIVerror::ErrorType is reported under `where`, and so is a failed
// allocation, as error 7. No std::bad_alloc leaves the library through a
// function that answers true or false: the caller may be an overnight batch
// that should lose one frame, not the process.
template <typename F>
inline bool Guarded(PIVerror& error, const char* where, F&& body) {
    try {
        body();
        return true;
    } catch (PIVerror::ErrorType code) {
        error.handleError(code, where);
    } catch (const std::bad_alloc&) {
        error.handleError(PIVerror::ALLOCATION_FAILED, where);
    } catch (const std::length_error&) {
        error.handleError(PIVerror::ALLOCATION_FAILED, where);
    }
    return false;
}

}  // namespace PIV
