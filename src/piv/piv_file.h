// RAII for C stdio files: every FILE* of the library closes itself; files
// are written beside their target and renamed over it when complete.
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

    std::FILE* file() const { return m_file; }
    const std::string& path() const { return m_path; }
    // Closes the stream and keeps the file, for writers that reopen it by
    // its path (libtiff); false if the close failed.
    bool closeStream();
    // Closes and moves the file over the target; false if either step failed.
    bool commit(const char* target);

private:
    std::string m_path;
    std::FILE* m_file = nullptr;
};

}  // namespace PIV
