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

// A descriptor of `path` for reading, or -1 with errno set unless it is a
// regular file. A named pipe without a writer would block open() for good
// and a device reads without end, so neither is a file any reader takes;
// the check is made on the open descriptor, which does not wait.
int OpenRegularFile(const char* path);

// Null path or failure gives an empty pointer. Reading modes open regular
// files only (see OpenRegularFile).
FilePtr OpenFile(const char* path, const char* mode);

// A file being written beside its target; removed unless committed, so an
// interrupted save never leaves a partial file or touches the target. The
// file is flushed to the disk before it is renamed over the target, and the
// folder after, so that a power cut leaves the old file or the new one.
class TempFile {
public:
    explicit TempFile(const std::string& target);
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    std::FILE* file() const { return m_file; }
    const std::string& path() const { return m_path; }
    // Flushes and closes the stream and keeps the file, for writers that
    // reopen it by its path (libtiff, netCDF); false if a write, the flush
    // or the close failed.
    bool closeStream() { return finish(false); }
    // Closes the stream (or syncs a file written by its path) and moves the
    // file over the target; false if any step failed, the target untouched.
    bool commit(const char* target);

private:
    bool finish(bool sync);

    std::string m_path;
    std::FILE* m_file = nullptr;
};

}  // namespace PIV
