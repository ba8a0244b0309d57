#include "piv_filename.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "image_format.h"
#include "piv_file.h"
#include "piv_messages.h"
#include "piv_ncfile.h"
#include "piv_record.h"

namespace {

constexpr size_t kPathSize = 2048;

std::string _slashed(const char* path) {
    std::string s(path);
    std::replace(s.begin(), s.end(), '\\', '/');
    return s;
}

bool _isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The position of the last dot of the file name, or npos when the name has
// none (a dot of a directory does not count).
size_t _extensionDot(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return std::string::npos;
    return dot;
}

const char* _keep(std::string& buffer, std::string value) {
    buffer = std::move(value);
    return buffer.c_str();
}

std::string& _defaultParFile() {
    static std::string name;
    return name;
}

// "_a" -> "_b" etc.; the table of pair suffixes, two-character forms first.
struct SuffixRule {
    const char* text;
    const char* partner;
};
constexpr SuffixRule kTwoChar[] = {{"_a", "_b"}, {"_b", "_a"}, {"_A", "_B"},
                                   {"_B", "_A"}, {"_1", "_2"}, {"_2", "_1"}};
constexpr SuffixRule kOneChar[] = {{"a", "b"}, {"b", "a"}, {"A", "B"}, {"B", "A"}};
constexpr SuffixRule kThreeChar[] = {{"_3c", ""}, {"_3C", ""}};

bool _endsWith(const std::string& s, const char* tail) {
    const size_t n = std::strlen(tail);
    return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

// The base name of a path with its pair suffix stripped.
std::string _cleanBaseName(const std::string& baseName) {
    return baseName.substr(0, baseName.size() - PIV::PairSuffixLength(baseName));
}

}  // namespace

int PIV::PairSuffixLength(const std::string& baseName, std::string* partner) {
    if (partner) partner->clear();
    if (baseName.size() < 3) return 0;
    for (const SuffixRule* table : {kTwoChar, kOneChar}) {
        const size_t n = table == kTwoChar ? std::size(kTwoChar) : std::size(kOneChar);
        for (size_t i = 0; i < n; i++) {
            if (_endsWith(baseName, table[i].text)) {
                if (partner) *partner = table[i].partner;
                return static_cast<int>(std::strlen(table[i].text));
            }
        }
    }
    for (const SuffixRule& r : kThreeChar)
        if (_endsWith(baseName, r.text)) return 3;
    return 0;
}

const char* PIV::GetFileNameFromPath(const char* path) {
    if (!path || ::strnlen(path, kPathSize) >= kPathSize) return "";
    const char* slash = std::strrchr(path, '/');
    const char* back = std::strrchr(path, '\\');
    if (back && (!slash || back > slash)) slash = back;
    return slash ? slash + 1 : path;
}

const char* PIV::GetBaseNameFromPath(const char* path) {
    static thread_local std::string buffer;
    std::string name = GetFileNameFromPath(path);
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos) name.resize(dot);
    return _keep(buffer, name);
}

const char* PIV::GetCleanBaseNameFromPath(const char* path) {
    static thread_local std::string buffer;
    return _keep(buffer, _cleanBaseName(GetBaseNameFromPath(path)));
}

const char* PIV::GetExtensionFromPath(const char* path) {
    static thread_local std::string buffer;
    const std::string name = GetFileNameFromPath(path);
    const size_t dot = name.rfind('.');
    return _keep(buffer, dot == std::string::npos ? std::string() : name.substr(dot + 1));
}

const char* PIV::GetCurrentDir() {
    static thread_local std::string buffer;
    char dir[kPathSize];
    if (!::getcwd(dir, sizeof(dir))) return _keep(buffer, "./");
    std::string s = _slashed(dir);
    if (s.empty() || s.back() != '/') s += '/';
    return _keep(buffer, s);
}

const char* PIV::GetDirectoryFromPath(const char* path) {
    static thread_local std::string buffer;
    if (!path) return "";
    const std::string s(path);
    const size_t slash = s.rfind('/');
    // A root-level file counts as having no directory: the caller gets the
    // current one, as it always did.
    if (slash == std::string::npos || slash == 0) return _keep(buffer, GetCurrentDir());
    return _keep(buffer, s.substr(0, slash + 1));
}

const char* PIV::CreateFileName(const char* path, const char* extension) {
    static thread_local std::string buffer;
    if (!path || !extension) return "";
    if (extension[0] == '.') extension++;
    std::string s(path);
    const size_t dot = _extensionDot(s);
    if (dot == std::string::npos)
        s += '.';
    else
        s.resize(dot + 1);
    return _keep(buffer, s + extension);
}

const char* PIV::CreateCleanFileName(const char* path, const char* extension) {
    static thread_local std::string name;
    static thread_local bool started = false;
    if (!path || !extension) return "";
    if (!started) {
        name = path;
        started = true;
    }
    if (extension[0] == '.') extension++;
    const size_t dot = _extensionDot(name);
    std::string stem = dot == std::string::npos ? name : name.substr(0, dot);
    const size_t slash = stem.find_last_of("/\\");
    const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    const std::string base = stem.substr(nameStart);
    name = stem.substr(0, nameStart) + _cleanBaseName(base) + "." + extension;
    return name.c_str();
}

// A folder or a named pipe under an image's name is no file of the series.
bool PIV::CheckFileExistence(const char* path) {
    if (!path || !path[0]) return false;
    return PIV::OpenFile(path, "rb") != nullptr;
}

bool PIV::CheckDirectoryExistence(const char* path) {
    struct stat st;
    if (path && ::stat(path, &st) == 0) return true;
    DebugPrintExt(1, "ERROR: PIV::CheckDirectoryExistence() not implemented");
    return false;
}

bool PIV::MakeDirectory(const char* path) {
    if (!path || !path[0]) return false;
    struct stat st;
    if (::stat(path, &st) == 0 && S_ISDIR(st.st_mode)) return true;
    return ::mkdir(path, 0775) == 0;
}

void PIV::SetDefaultParFile(const char* path) {
    _defaultParFile() = path ? std::string(path, ::strnlen(path, MaxPathLength)) : std::string();
}

const char* PIV::GetDefaultParFile() {
    return _defaultParFile().c_str();
}

bool PIV::UseDefaultParFile() {
    return !_defaultParFile().empty();
}

const char* PIV::GetNextFileInSequence(const char* path, int increment) {
    static thread_local std::string buffer;
    if (!path) return "";
    std::string s = _slashed(path);
    const size_t dot = s.rfind('.');
    const size_t slash = s.rfind('/');
    std::string result;
    if (dot != std::string::npos && dot >= 1 && (slash == std::string::npos || dot > slash)) {
        size_t first = dot;
        while (first > 0 && _isDigit(s[first - 1])) first--;
        const size_t n = dot - first;
        if (n > 0) {
            // Saturate rather than overflow on absurdly long digit runs.
            long long value = 0;
            for (size_t i = first; i < dot; i++)
                value = value > (LLONG_MAX - 9) / 10 ? LLONG_MAX : value * 10 + (s[i] - '0');
            const std::string sum = std::to_string(value + increment);
            const size_t m = sum.size();
            if (n < m)
                s.replace(first, n, sum);
            else
                s.replace(dot - m, m, sum);
            result = s;
        }
    }
    DebugPrintExt(2, "GetNextFileInSequence() %s ==> %s", path, result.c_str());
    return _keep(buffer, result);
}

const char* PIV::GetSecondImageName(const char* path, int separation) {
    static thread_local std::string buffer;
    if (!path) return "";
    std::string s = _slashed(path);
    const size_t dot = s.rfind('.');
    const size_t slash = s.rfind('/');
    std::string result;
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) {
        auto atLastDot = [&](const char* text) {
            const size_t p = s.rfind(text);
            return p != std::string::npos && p >= dot ? p : std::string::npos;
        };
        static const char* const kRenames[][2] = {
            {".ima", ".imb"}, {".IMA", ".IMB"}, {".imb", ".imc"}, {".IMB", ".IMC"}};
        bool done = false;
        for (const auto& r : kRenames) {
            const size_t p = atLastDot(r[0]);
            if (p != std::string::npos) {
                s.replace(p, 4, r[1]);
                result = s;
                done = true;
                break;
            }
        }
        // "a." is looked for in the whole path, directories included, but
        // the letter changed is the one before the extension.
        if (!done && (s.find("a.") != std::string::npos || s.find("A.") != std::string::npos)) {
            s[dot - 1] = s.find("a.") != std::string::npos ? 'b' : 'B';
            result = s;
            done = true;
        }
        if (!done) result = GetNextFileInSequence(s.c_str(), separation == 0 ? 1 : separation);
    }
    DebugPrintExt(2, "GetSecondImageName() %s ==> %s", path, result.c_str());
    return _keep(buffer, result);
}

int PIV::FileContent(const char* path) {
    FILE_INFO info;
    if (GetFileInformation(path, info) && info.format == FORMAT_NETCDF) return info.content | 3;
    return GetFileFormat(path);
}

void PIVFileName::analyse(const char* path) {
    *this = PIVFileName();
    if (!path) return;
    m_fullPath = _slashed(path);
    const size_t slash = m_fullPath.rfind('/');
    m_directory = slash == std::string::npos ? std::string() : m_fullPath.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? m_fullPath : m_fullPath.substr(slash + 1);
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos) {
        m_extension = name.substr(dot);
        name.resize(dot);
    }
    const int suffixLength = PIV::PairSuffixLength(name, &m_partnerSuffix);
    m_suffix = name.substr(name.size() - suffixLength);
    name.resize(name.size() - suffixLength);
    m_baseName = name;

    size_t first = name.size();
    while (first > 0 && _isDigit(name[first - 1])) first--;
    // A purely numeric name is a name, not a frame number.
    if (first < name.size() && first > 0) {
        m_numberText = name.substr(first);
        m_digits = static_cast<int>(m_numberText.size());
        m_number = static_cast<int>(std::min(std::strtoll(m_numberText.c_str(), nullptr, 10),
                                             static_cast<long long>(INT_MAX)));
        m_hasNumber = true;
        m_stub = name.substr(0, first);
    } else {
        m_stub = name;
    }
}
