// What the command-line tools share: exit codes, strict number parsing and
// file name extensions. A number that does not parse whole, or lies outside
// its range, is a usage error, never a silent default.
#pragma once

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace tool {

enum Exit { kOk = 0, kFailed = 1, kUsage = 2 };

inline bool ParseInt(const char* text, long low, long high, int* out) {
    if (!text || !*text) return false;
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || v < low || v > high) return false;
    *out = int(v);
    return true;
}

inline bool ParseDouble(const char* text, double low, double high, double* out) {
    if (!text || !*text) return false;
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text, &end);
    if (errno != 0 || *end != '\0' || !(v >= low && v <= high)) return false;
    *out = v;
    return true;
}

// ".nc" for "run/a.NC": the last dot of the file name, lower case; "" for none.
inline std::string Extension(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string e = path.substr(dot);
    for (char& c : e) c = char(std::tolower(static_cast<unsigned char>(c)));
    return e;
}

// Walks argv; `value()` takes the argument after an option or reports it
// missing.
class Args {
public:
    Args(int argc, char** argv) : m_argc(argc), m_argv(argv) {}
    bool more() const { return m_i < m_argc; }
    const char* next() { return m_argv[m_i++]; }
    const char* value(const char* option, std::string* error) {
        if (m_i >= m_argc) {
            *error = std::string("option ") + option + " needs a value";
            return nullptr;
        }
        return m_argv[m_i++];
    }

private:
    int m_argc;
    char** m_argv;
    int m_i = 1;
};

}  // namespace tool
