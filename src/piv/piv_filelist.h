// Numbered file sequences: FileList walks "img0007.tif" .. "img0042.tif" by a
// stride, StringFileList is its reference-counted form for the application,
// FilePairList holds the pairs of a batch.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "piv_types.h"

using StringArray = std::vector<std::string>;
using IntArray = std::vector<int>;

// Splits a path at its last run of digits: "dir/run_0012_b.tif" gives
// "dir/run_", 12, "_b", ".tif" and 4 digits. The extension comes from the
// last dot of the whole path and is kept only if longer than the dot. With
// no digit at all, stubRight is the rest and the number 0; digits of a
// directory count when the file name has none.
void _splitFilename(const char* path, std::string& stubLeft, int& number, std::string& stubRight,
                    std::string& extension, int& digits);
// The number zero-padded to `digits` for 2 to 14 digits, plain otherwise.
// A buffer of the calling thread.
const char* _getNumString(int number, int digits);

namespace PIV {

// The names from `first` to `last` by `stride` into `list`; with
// checkExistence, missing files are logged and left out. True if any name
// was listed. The stub (the part before the number) goes to stubOut.
bool BuildFileList(StringArray& list, const char* first, const char* last, int stride,
                   bool checkExistence, char* stubOut = nullptr, int stubSize = 0);

}  // namespace PIV

class FileList {
public:
    FileList();
    FileList(const char* first, const char* last, int stride = 1, bool checkExistence = true);
    virtual ~FileList() = default;

    // The names from first to last by stride, each number padded to the
    // first's digits. False for an empty name or differing extensions; true,
    // with an empty list, when the first number exceeds the last.
    bool buildList(const char* first, const char* last, int stride, bool checkExistence);
    // Takes stub, extension and digits from this latest name.
    bool append(const char* path, bool checkExistence);
    void clear();

    int count() const { return static_cast<int>(m_files.size()); }
    int sigFigs() const { return m_sigFigs; }
    const char* fileStub() const { return m_stub; }
    const char* fileExtension() const { return m_extension; }
    // "" (number -1) for an index outside the list.
    const char* file(int i) const;
    const char* firstFile() const { return file(0); }
    const char* lastFile() const { return file(count() - 1); }
    int fileIndex(int i) const;
    const char* fileIndexString(int i) const;

protected:
    char m_stub[2048];
    char m_extension[2048];
    int m_sigFigs;
    StringArray m_files;
    IntArray m_numbers;
};

class StringFileList : public FileList {
public:
    StringFileList() = default;
    // No existence check: the names are what the sequence would hold.
    StringFileList(const std::string& first, const std::string& last, int stride = 1);

    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();

    bool build(const std::string& first, const std::string& last, int stride) {
        return buildList(first.c_str(), last.c_str(), stride, false);
    }
    std::string fileString(int i) const { return file(i); }
    std::string firstFileString() const { return firstFile(); }
    std::string lastFileString() const { return lastFile(); }
    std::string fileStubString() const { return fileStub(); }
    std::string fileExtensionString() const { return fileExtension(); }
    std::string fileIndexStdString(int i) const { return fileIndexString(i); }

private:
    uint32_t m_refCount = 1;
};

struct FILE_PAIR {
    char fileA[2048];
    char fileB[2048];
    bool valid;

    FILE_PAIR() { PIV::ZeroRecord(*this); }
    FILE_PAIR(const char* a, const char* b);
};
static_assert(std::is_trivially_copyable<FILE_PAIR>::value, "FILE_PAIR is a plain record");

class FilePairList {
public:
    static constexpr int GrowthStep = 256;

    bool append(const FILE_PAIR& pair);
    // A null pair (empty names, not valid) for an index outside the list.
    const FILE_PAIR& filePair(int i) const;
    const FILE_PAIR& operator[](int i) const { return filePair(i); }
    int count() const { return static_cast<int>(m_pairs.size()); }
    int capacity() const { return static_cast<int>(m_pairs.capacity()); }
    // Room for n pairs; the pairs held stay.
    bool alloc(int n);
    void clear() { m_pairs.clear(); }

private:
    std::vector<FILE_PAIR> m_pairs;
};
