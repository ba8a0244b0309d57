// RAII for C stdio files: every FILE* of the library closes itself.
#pragma once

#include <cstdio>
#include <memory>

namespace PIV {

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// Null path or failure gives an empty pointer.
inline FilePtr OpenFile(const char* path, const char* mode) {
    return FilePtr(path ? std::fopen(path, mode) : nullptr);
}

}  // namespace PIV
