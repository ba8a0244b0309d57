// What a header claims against what its file can hold: the one check every
// reader makes before it allocates on a size read from a file. A damaged
// frame in an overnight series must cost one message, not the night's
// memory.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>

#include "piv_error.h"
#include "piv_messages.h"

namespace PIV {

// The most pixels one image load may decode, all frames of the file that
// are decoded together counted. A header that declares more is refused
// before anything is allocated or decoded: a file of holes or of data
// compressed near the limit below is small on disk yet could cost
// gigabytes and minutes. 2^28 pixels (16384 x 16384) is far beyond any
// laboratory camera and costs 1 GB as float. 0 restores that default.
constexpr uint64_t kDefaultMaxImagePixels = uint64_t(1) << 28;
inline std::atomic<uint64_t>& _maxImagePixels() {
    static std::atomic<uint64_t> limit{kDefaultMaxImagePixels};
    return limit;
}
inline uint64_t MaxImagePixels() {
    return _maxImagePixels().load(std::memory_order_relaxed);
}
inline void SetMaxImagePixels(uint64_t pixels) {
    _maxImagePixels().store(pixels ? pixels : kDefaultMaxImagePixels, std::memory_order_relaxed);
}

namespace FileBounds {

// Deflate cannot expand beyond about 1:1032, and no camera frame or vector
// field comes near it; anything claiming more is damaged.
constexpr uint64_t kMaxExpansion = 1000;

enum class Fit {
    WHOLE,    // every declared byte is there
    SHORT,    // at least half: a frame cut off while being written, loads with a warning
    REFUSED,  // less than half: the header is not to be trusted
};

// Size of a regular file, or -1 when it cannot be told (a pipe, a device).
inline int64_t SizeOf(std::FILE* file) {
    struct stat info;
    if (!file || ::fstat(::fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) return -1;
    return static_cast<int64_t>(info.st_size);
}
inline int64_t SizeOf(const char* path) {
    struct stat info;
    if (!path || ::stat(path, &info) != 0 || !S_ISREG(info.st_mode)) return -1;
    return static_cast<int64_t>(info.st_size);
}

// Bytes from `position` to the end; a size that cannot be told counts as
// unlimited, so the read itself decides.
inline uint64_t BytesFrom(std::FILE* file, int64_t position) {
    const int64_t size = SizeOf(file);
    if (size < 0) return UINT64_MAX;
    return size > position ? static_cast<uint64_t>(size - position) : 0;
}

// `declared` bytes may be uncompressed data (then `available` are the bytes
// that should hold it) or, with `compressed`, what compressed data must
// expand to.
inline Fit Judge(uint64_t declared, uint64_t available, bool compressed = false) {
    if (compressed) {
        const uint64_t limit =
            available > UINT64_MAX / kMaxExpansion ? UINT64_MAX : available * kMaxExpansion;
        return declared <= limit ? Fit::WHOLE : Fit::REFUSED;
    }
    if (declared <= available) return Fit::WHOLE;
    return available >= declared - declared / 2 ? Fit::SHORT : Fit::REFUSED;
}

// The text of a refusal: the file, what its header declares and what it holds.
inline std::string Refusal(const char* who, const char* path, const char* what, uint64_t declared,
                           uint64_t available, bool compressed = false) {
    char text[2400];
    std::snprintf(text, sizeof text,
                  "%s - '%s' declares %" PRIu64 " bytes of %s but holds %" PRIu64 "%s", who,
                  path ? path : "", declared, what, available,
                  compressed ? " (compressed; expansion above 1:1000)" : "");
    return text;
}

// Throws FILE_READ_FAILED (30) with the refusal text unless the file holds
// enough: all of it when `shortIsFine` is false, else at least half. Returns
// the fit so that a short file can be warned about.
inline Fit RequireOrThrow(PIVerror& error, const char* who, const char* path, const char* what,
                          uint64_t declared, uint64_t available, bool shortIsFine) {
    const Fit fit = Judge(declared, available);
    if (fit == Fit::REFUSED || (fit == Fit::SHORT && !shortIsFine)) {
        error.setMessage("%s", Refusal(who, path, what, declared, available).c_str());
        throw PIVerror::FILE_READ_FAILED;
    }
    return fit;
}

// The same for compressed data of `available` bytes that is to expand to `declared`.
inline void RequireCompressedOrThrow(PIVerror& error, const char* who, const char* path,
                                     const char* what, uint64_t declared, uint64_t available) {
    if (Judge(declared, available, true) == Fit::REFUSED) {
        error.setMessage("%s", Refusal(who, path, what, declared, available, true).c_str());
        throw PIVerror::FILE_READ_FAILED;
    }
}

// The text of a refusal for size: "" while width x height x frames stays
// within MaxImagePixels().
inline std::string PixelRefusal(const char* who, const char* path, uint64_t width, uint64_t height,
                                uint64_t frames = 1) {
    uint64_t pixels;
    if (__builtin_mul_overflow(width, height, &pixels) ||
        __builtin_mul_overflow(pixels, frames, &pixels))
        pixels = UINT64_MAX;
    const uint64_t limit = MaxImagePixels();
    if (pixels <= limit) return std::string();
    char size[96] = "";
    if (frames != 1) std::snprintf(size, sizeof size, "%" PRIu64 " frames of ", frames);
    char text[2600];
    std::snprintf(text, sizeof text,
                  "%s - '%s' declares %s%" PRIu64 " x %" PRIu64
                  " pixels, more than the limit of %" PRIu64 " pixels an image may have",
                  who, path ? path : "", size, width, height, limit);
    return text;
}

// Throws DATA_TOO_LARGE (12) with that text when the declared size passes the limit.
inline void RequirePixelsOrThrow(PIVerror& error, const char* who, const char* path, uint64_t width,
                                 uint64_t height, uint64_t frames = 1) {
    const std::string refusal = PixelRefusal(who, path, width, height, frames);
    if (refusal.empty()) return;
    error.setMessage("%s", refusal.c_str());
    throw PIVerror::DATA_TOO_LARGE;
}

}  // namespace FileBounds
}  // namespace PIV
