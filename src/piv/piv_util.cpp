#include "piv_util.h"

#include <omp.h>
#if __has_include(<malloc.h>)
#include <malloc.h>
#endif
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <numeric>
#include <string>

#include "piv_record.h"

namespace {

std::atomic<int> g_maxThreads{0};
char g_softwareName[PIV::MaxPathLength] = "SODREL Kelvane Software";

using Clock = std::chrono::steady_clock;
Clock::time_point& timerStart() {
    static Clock::time_point start = Clock::now();
    return start;
}

}  // namespace

int PIV::MaxThreadsPossible() {
    return std::max(1, omp_get_num_procs());
}

int PIV::MaxThreads() {
    int n = g_maxThreads.load();
    if (n <= 0) {
        n = MaxThreadsPossible();
        g_maxThreads.store(n);
    }
    return n;
}

void PIV::SetMaxThreads(int n) {
    const int possible = MaxThreadsPossible();
    g_maxThreads.store((n < 1 || n > possible) ? possible : n);
}

std::string PIV::CreationDate() {
    const std::time_t now = std::time(nullptr);
    char text[32] = {0};
    std::strncpy(text, std::ctime(&now), 31);
    const std::size_t n = std::strlen(text);
    if (n > 0) text[n - 1] = '\0';
    return text;
}

unsigned long long PIV::PhysicalMemoryBytes() {
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) return ~0ULL;
    return static_cast<unsigned long long>(pages) * static_cast<unsigned long long>(pageSize);
}

bool PIV::KeepFreedFramesInHeap() {
#if defined(M_MMAP_THRESHOLD) && defined(M_TRIM_THRESHOLD)
    // Blocks up to 32 MB (a 2560 x 2160 float frame is 22 MB) come from the
    // heap, and up to 512 MB of free heap stay with the process.
    return mallopt(M_MMAP_THRESHOLD, 32 << 20) == 1 && mallopt(M_TRIM_THRESHOLD, 512 << 20) == 1;
#else
    return false;
#endif
}

const char* PIV::SoftwareName(const char* name) {
    if (!name) return g_softwareName;
    std::string clean(name);
    if (clean.size() >= 2 && clean.front() == '"' && clean.back() == '"')
        clean = clean.substr(1, clean.size() - 2);
    clean.erase(std::remove(clean.begin(), clean.end(), '"'), clean.end());
    std::replace(clean.begin(), clean.end(), '\\', '/');

    std::string head = clean.substr(0, 7);
    for (char& c : head) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const char* prefix = head == "kelvane" ? "SODREL Kelvane Module - " : "SODREL - ";
    CopyText(g_softwareName, (prefix + clean).c_str());
    return g_softwareName;
}

double PIV::GetElapsedTime(bool reset) {
    const Clock::time_point now = Clock::now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now - timerStart());
    if (reset) timerStart() = now;
    return ms.count() / 1000.0;
}

void PIV::HeapSort(float* values, int n) {
    if (!values || n < 2) return;
    std::make_heap(values, values + n);
    std::sort_heap(values, values + n);
}

void PIV::IndexSort(const float* values, int* index, int n) {
    if (!values || !index || n < 1) return;
    std::iota(index, index + n, 0);
    std::stable_sort(index, index + n, [values](int a, int b) { return values[a] < values[b]; });
}

float PIV::CreateNiceFloatValue(float value) {
    if (value == 0.0f || !std::isfinite(value)) return value;
    const double magnitude = std::fabs(value);
    const double decade = std::pow(10.0, std::floor(std::log10(magnitude)));
    const double mantissa = magnitude / decade;  // 1 <= mantissa < 10
    static const double nice[] = {1.0, 2.0, 2.5, 5.0, 10.0};
    double best = nice[0];
    for (double candidate : nice)
        if (std::fabs(candidate - mantissa) < std::fabs(best - mantissa)) best = candidate;
    return static_cast<float>(std::copysign(best * decade, value));
}

bool PIV::IsSystemBigEndian() {
    const uint16_t probe = 0x0102;
    unsigned char first;
    std::memcpy(&first, &probe, 1);
    return first == 0x01;
}

char* PIV::ReplaceBackslashes(char* path) {
    if (path)
        for (char* p = path; *p; ++p)
            if (*p == '\\') *p = '/';
    return path;
}

const char* PIV::LibraryVersion() {
    return "3.6.0.a";
}

const char* PIV::LibraryVersionLine() {
    static thread_local char line[128];
    std::snprintf(line, sizeof(line), "LIBTORVO Version: %s  (Build: %s, %s)", LibraryVersion(),
                  __DATE__, __TIME__);
    return line;
}
