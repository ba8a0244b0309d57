#include "piv_filelist.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "piv_error.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "piv_record.h"

void _splitFilename(const char* path, std::string& stubLeft, int& number, std::string& stubRight,
                    std::string& extension, int& digits) {
    stubLeft.clear();
    stubRight.clear();
    extension.clear();
    number = 0;
    digits = 0;
    if (!path) return;
    std::string rest(path);
    const size_t dot = rest.rfind('.');
    if (dot != std::string::npos) {
        if (rest.size() - dot > 1) extension = rest.substr(dot);
        rest.resize(dot);
    }
    size_t end = rest.size();
    while (end > 0 && !(rest[end - 1] >= '0' && rest[end - 1] <= '9')) end--;
    if (end == 0) {
        stubRight = rest;
        return;
    }
    size_t begin = end;
    while (begin > 0 && rest[begin - 1] >= '0' && rest[begin - 1] <= '9') begin--;
    const std::string digitsText = rest.substr(begin, end - begin);
    number = static_cast<int>(
        std::min(std::strtoll(digitsText.c_str(), nullptr, 10), static_cast<long long>(INT_MAX)));
    digits = static_cast<int>(digitsText.size());
    stubLeft = rest.substr(0, begin);
    stubRight = rest.substr(end);
}

const char* _getNumString(int number, int digits) {
    static thread_local char buffer[64];
    if (digits >= 2 && digits <= 14)
        std::snprintf(buffer, sizeof(buffer), "%0*d", digits, number);
    else
        std::snprintf(buffer, sizeof(buffer), "%d", number);
    return buffer;
}

namespace {

// The names of the sequence from `first` to `last`; the caller has checked
// both names. `visit` gets each candidate name and its number.
template <typename Visit>
void _walkSequence(const char* first, const char* last, int stride, Visit&& visit) {
    std::string left, right, ext, left2, right2, ext2;
    int n1, d1, n2, d2;
    _splitFilename(first, left, n1, right, ext, d1);
    _splitFilename(last, left2, n2, right2, ext2, d2);
    DebugPrintExt(2, "Sequence range : %d - %d   (stride=%d)", n1, n2, stride);
    for (long long n = n1; n <= n2; n += stride) {
        const std::string name = left + _getNumString(static_cast<int>(n), d1) + right + ext;
        visit(name, static_cast<int>(n));
    }
}

bool _sameExtension(const char* first, const char* last, std::string* ext1, std::string* ext2) {
    std::string l, r;
    int n, d;
    _splitFilename(first, l, n, r, *ext1, d);
    _splitFilename(last, l, n, r, *ext2, d);
    return *ext1 == *ext2;
}

}  // namespace

bool PIV::BuildFileList(StringArray& list, const char* first, const char* last, int stride,
                        bool checkExistence, char* stubOut, int stubSize) {
    list.clear();
    if (!first || !last || !first[0] || !last[0]) {
        PIVerror::handleErrorExt(PIVerror::BAD_FILE_NAME, "BuildFileList()", true);
        return false;
    }
    if (stride < 1) stride = 1;
    std::string ext1, ext2;
    if (!_sameExtension(first, last, &ext1, &ext2)) {
        PIVerror::handleErrorExt(PIVerror::OPERATION_FAILED,
                                 "BuildFileList() - Mismatch in file extensions", true);
        return false;
    }
    _walkSequence(first, last, stride, [&](const std::string& name, int) {
        if (checkExistence && !CheckFileExistence(name.c_str())) {
            DebugPrint("File not found: '%s'", name.c_str());
            return;
        }
        list.push_back(name);
    });
    if (stubOut && stubSize > 0) {
        std::string left, right, ext;
        int n, d;
        _splitFilename(first, left, n, right, ext, d);
        CopyText(stubOut, static_cast<size_t>(stubSize), left.c_str());
    }
    return !list.empty();
}

// ---------------------------------------------------------------------------

FileList::FileList() : m_sigFigs(0) {
    m_stub[0] = '\0';
    m_extension[0] = '\0';
}

FileList::FileList(const char* first, const char* last, int stride, bool checkExistence)
    : FileList() {
    buildList(first, last, stride, checkExistence);
}

void FileList::clear() {
    m_files.clear();
    m_numbers.clear();
}

bool FileList::buildList(const char* first, const char* last, int stride, bool checkExistence) {
    clear();
    if (!first || !last || !first[0] || !last[0]) {
        DebugPrint("FileList::buildList() - missing or invalid file name");
        return false;
    }
    if (stride < 1) stride = 1;
    std::string ext1, ext2;
    if (!_sameExtension(first, last, &ext1, &ext2)) {
        DebugPrint("FileList::buildList() - Mismatch in file extensions\n\tExt1: '%s' ",
                   ext1.c_str());
        return false;
    }
    std::string left, right, ext;
    int n, digits;
    _splitFilename(first, left, n, right, ext, digits);
    PIV::CopyText(m_stub, left.c_str());
    PIV::CopyText(m_extension, ext.c_str());
    m_sigFigs = digits;
    int index = 0;
    _walkSequence(first, last, stride, [&](const std::string& name, int number) {
        DebugPrintExt(3, "File %d : '%s'", index++, name.c_str());
        if (checkExistence && !PIV::CheckFileExistence(name.c_str())) {
            std::fprintf(stderr, "File not found: %s\n", name.c_str());
            return;
        }
        m_files.push_back(name);
        m_numbers.push_back(number);
    });
    return true;
}

bool FileList::append(const char* path, bool checkExistence) {
    if (!path || !path[0]) return false;
    std::string left, right, ext;
    int number, digits;
    _splitFilename(path, left, number, right, ext, digits);
    PIV::CopyText(m_stub, left.c_str());
    PIV::CopyText(m_extension, ext.c_str());
    m_sigFigs = digits;
    if (checkExistence && !PIV::CheckFileExistence(path)) return false;
    m_files.emplace_back(path);
    m_numbers.push_back(number);
    return true;
}

const char* FileList::file(int i) const {
    if (i < 0 || i >= count()) return "";
    return m_files[static_cast<size_t>(i)].c_str();
}

int FileList::fileIndex(int i) const {
    if (i < 0 || i >= count()) return -1;
    return m_numbers[static_cast<size_t>(i)];
}

const char* FileList::fileIndexString(int i) const {
    if (i < 0 || i >= count()) return "";
    return _getNumString(m_numbers[static_cast<size_t>(i)], m_sigFigs);
}

// ---------------------------------------------------------------------------

StringFileList::StringFileList(const std::string& first, const std::string& last, int stride) {
    build(first, last, stride);
}

uint32_t StringFileList::release() {
    const uint32_t left = --m_refCount;
    if (left == 0) delete this;
    return left;
}

FILE_PAIR::FILE_PAIR(const char* a, const char* b) {
    PIV::ZeroRecord(*this);
    PIV::CopyText(fileA, a);
    PIV::CopyText(fileB, b);
    valid = a && a[0];
}

bool FilePairList::append(const FILE_PAIR& pair) {
    if (m_pairs.size() == m_pairs.capacity() && !alloc(count() + GrowthStep)) return false;
    m_pairs.push_back(pair);
    return true;
}

const FILE_PAIR& FilePairList::filePair(int i) const {
    static const FILE_PAIR null;
    if (i < 0 || i >= count()) return null;
    return m_pairs[static_cast<size_t>(i)];
}

bool FilePairList::alloc(int n) {
    if (n < 0) return false;
    try {
        m_pairs.reserve(static_cast<size_t>(n));
    } catch (...) {
        return false;
    }
    return true;
}
