// What every fuzz target shares: the readers take file names, so each input
// is written to one scratch file per process first; and the library's
// messages go nowhere, since a damaged file is expected to produce them.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "piv_messages.h"

namespace fuzz {

// The scratch file, created on first use and removed at exit. Kept open
// for the process's life would hide descriptor leaks of the readers, so
// it is rewritten by name each time.
inline const char* WriteInput(const uint8_t* data, size_t size, const char* suffix = "") {
    static std::string path;
    if (path.empty()) {
        const char* dir = std::getenv("TMPDIR");
        std::string pattern = std::string(dir && *dir ? dir : "/tmp") + "/kelvane_fuzz_XXXXXX";
        pattern += suffix;
        std::string buffer = pattern;
        const int fd = ::mkstemps(&buffer[0], static_cast<int>(std::string(suffix).size()));
        if (fd < 0) std::abort();
        ::close(fd);
        path = buffer;
        static struct Remover {
            ~Remover() { ::unlink(path.c_str()); }
        } remover;
    }
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    if (size && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);
    return path.c_str();
}

// No message reaches the terminal, and debug output stays off.
inline void Quiet() {
    SetMessageHook([](const char*) {});
}

}  // namespace fuzz
