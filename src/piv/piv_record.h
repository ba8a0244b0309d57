// Helpers for the plain settings records: zero-filling, bounded text copies
// and bytewise comparison.
//
// Records travel by value, through files and through change detection that
// compares them byte by byte. That only works when every byte, padding and the
// tail of each character array included, has a defined value; so records are
// built zero-filled and texts are copied with the rest of the array cleared.
#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace PIV {

// Longest path a record holds; the arrays are one byte larger for the terminator.
constexpr std::size_t MaxPathLength = 2047;

template <typename T>
inline void ZeroRecord(T& record) {
    static_assert(std::is_trivially_copyable<T>::value, "records must be trivially copyable");
    std::memset(static_cast<void*>(&record), 0, sizeof(T));
}

template <typename T>
inline bool SameRecord(const T& a, const T& b) {
    static_assert(std::is_trivially_copyable<T>::value, "records must be trivially copyable");
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Copies at most N-1 characters and clears the rest of the array, so two
// arrays holding the same text compare equal byte for byte. A null source
// leaves an empty text.
template <std::size_t N>
inline void CopyText(char (&dst)[N], const char* src) {
    if (!src) {
        std::memset(dst, 0, N);
        return;
    }
    if (src == dst) return;
    std::size_t n = ::strnlen(src, N - 1);
    std::memmove(dst, src, n);
    std::memset(dst + n, 0, N - n);
}

// The same for a buffer known only by pointer and size (size includes the terminator).
inline void CopyText(char* dst, std::size_t size, const char* src) {
    if (!dst || size == 0) return;
    if (!src) {
        std::memset(dst, 0, size);
        return;
    }
    if (src == dst) return;
    std::size_t n = ::strnlen(src, size - 1);
    std::memmove(dst, src, n);
    std::memset(dst + n, 0, size - n);
}

}  // namespace PIV
