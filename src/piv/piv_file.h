// RAII for C stdio files: every FILE* of the library closes itself, and every
// file the library writes goes through a temporary beside its target.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

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

// A file being written beside its target; removed unless committed, so an
// interrupted save never leaves a partial file or touches the target.
class TempFile {
public:
    explicit TempFile(const std::string& target);
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    // Null when the temporary could not be created.
    std::FILE* file() const { return m_file; }
    // Closes and moves the file over the target; false if either step failed.
    bool commit(const char* target);

private:
    std::string m_path;
    std::FILE* m_file = nullptr;
};

}  // namespace PIV
