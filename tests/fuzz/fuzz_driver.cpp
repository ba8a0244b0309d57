// The plain driver of the fuzz targets, for compilers without libFuzzer: it
// runs every file of the corpus directories, then a fixed number of
// mutations of them from a fixed seed, so that a run is the same on every
// machine. It understands the libFuzzer options the tests use:
//   -runs=N  -seed=S  -timeout=SECONDS  -rss_limit_mb=MB
// An input that crashes, trips a sanitizer, takes longer than the timeout
// or drives the process above the memory limit ends the run with its
// bytes saved as crash-<n> in the working directory; one that leaks memory
// (under the sanitizers) ends it with its bytes saved as leak-<n>.
#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Present in the sanitizer runtimes: lets the driver see every allocation.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*))
    __attribute__((weak));
// LeakSanitizer's check on demand: reports what is lost so far and returns
// non-zero if anything is.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace {

using Bytes = std::vector<uint8_t>;

// The input being run, and null outside RunOne: the handlers also run after
// main has returned (LeakSanitizer's check at exit aborts), when the inputs
// of main's frame are gone.
const Bytes* volatile g_current = nullptr;
size_t g_limitBytes = 512u << 20;
volatile sig_atomic_t g_reporting = 0;
std::atomic<size_t> g_mallocs{0}, g_frees{0};

// Exit codes of the findings that are no signal.
constexpr int kExitLeak = 73, kExitOutsideInput = 74;

void SaveCurrent(const char* why, const char* prefix = "crash") {
    if (g_reporting) return;
    g_reporting = 1;
    const Bytes* input = g_current;
    char name[64];
    std::snprintf(name, sizeof name, "%s-%d", prefix, static_cast<int>(::getpid()));
    if (std::FILE* f = input ? std::fopen(name, "wb") : nullptr) {
        if (!input->empty()) std::fwrite(input->data(), 1, input->size(), f);
        std::fclose(f);
    }
    std::fprintf(stderr, "fuzz driver: %s; input of %zu bytes saved as %s\n", why,
                 input ? input->size() : 0, name);
}

void OnAlarm(int) {
    SaveCurrent("input took longer than the timeout");
    std::_Exit(70);
}

void OnMalloc(const volatile void*, size_t size) {
    g_mallocs.fetch_add(1, std::memory_order_relaxed);
    if (size > g_limitBytes) {
        SaveCurrent("allocation above the memory limit");
        std::_Exit(71);
    }
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KELVANE_FUZZ_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KELVANE_FUZZ_ASAN 1
#endif

#ifndef KELVANE_FUZZ_ASAN
// Without a sanitizer runtime to hook, the driver puts itself in front of
// the C library's allocator: a huge block that is never touched would
// otherwise pass unseen, since it does not raise the resident size.
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);

}  // namespace

extern "C" void* malloc(size_t size) {
    OnMalloc(nullptr, size);
    return __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
    size_t bytes;
    OnMalloc(nullptr, __builtin_mul_overflow(count, size, &bytes) ? SIZE_MAX : bytes);
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, size_t size) {
    OnMalloc(nullptr, size);
    return __libc_realloc(block, size);
}

namespace {
#endif

void OnFree(const volatile void*) {
    g_frees.fetch_add(1, std::memory_order_relaxed);
}

void OnCrash(int sig) {
    if (!g_current) {
        // Before the first input or after main: at exit that is
        // LeakSanitizer, whose report stands above. Nothing to save, and
        // the exit code, not a second abort, tells the finding.
        std::fprintf(stderr, "fuzz driver: %s outside any input; see the report above\n",
                     sig == SIGABRT ? "abort" : "crash");
        std::_Exit(kExitOutsideInput);
    }
    SaveCurrent(sig == SIGABRT ? "abort" : "crash");
    signal(sig, SIG_DFL);
    raise(sig);
}

long PeakRssMb() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

void ReadCorpus(const std::string& dir, std::vector<Bytes>& corpus) {
    DIR* d = ::opendir(dir.c_str());
    if (!d) return;
    std::vector<std::string> names;
    while (dirent* e = ::readdir(d))
        if (e->d_name[0] != '.') names.push_back(e->d_name);
    ::closedir(d);
    std::sort(names.begin(), names.end());  // the same order on every file system
    for (const std::string& name : names)
        if (std::ifstream in{dir + "/" + name, std::ios::binary})
            corpus.emplace_back(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}

// Values that sit on the edges of sizes and counts.
const uint32_t kInteresting[] = {0,       1,          2,          0x7f,       0x80,
                                 0xff,    0x100,      0x7fff,     0x8000,     0xffff,
                                 0x10000, 0x7fffffff, 0x80000000, 0xffffffff, 1000000};

void Mutate(Bytes& b, std::mt19937& rng) {
    auto pick = [&](size_t n) {
        return n ? std::uniform_int_distribution<size_t>(0, n - 1)(rng) : 0;
    };
    const int steps = 1 + static_cast<int>(pick(4));
    for (int s = 0; s < steps; s++) {
        // Headers decide the sizes: most changes land in the first 512 bytes.
        const size_t span = pick(4) == 0 ? b.size() : std::min<size_t>(b.size(), 512);
        switch (pick(7)) {
            case 0:  // flip a bit
                if (span) b[pick(span)] ^= static_cast<uint8_t>(1u << pick(8));
                break;
            case 1:  // a random byte
                if (span) b[pick(span)] = static_cast<uint8_t>(rng());
                break;
            case 2: {  // an edge value, either byte order, 1, 2 or 4 bytes
                const size_t width = size_t(1) << pick(3);
                if (span < width) break;
                const size_t at = pick(span - width + 1);
                const uint32_t v = kInteresting[pick(sizeof kInteresting / sizeof *kInteresting)];
                const bool big = pick(2) == 0;
                for (size_t i = 0; i < width; i++)
                    b[at + i] = static_cast<uint8_t>(v >> (8 * (big ? width - 1 - i : i)));
                break;
            }
            case 3:  // cut the file short
                if (!b.empty()) b.resize(pick(b.size()));
                break;
            case 4: {  // insert a few bytes
                const size_t at = pick(span + 1);
                const size_t n = 1 + pick(8);
                b.insert(b.begin() + static_cast<long>(at), n, static_cast<uint8_t>(rng()));
                break;
            }
            case 5:  // erase a few bytes
                if (span) {
                    const size_t at = pick(span);
                    const size_t n = std::min(b.size() - at, 1 + pick(8));
                    b.erase(b.begin() + static_cast<long>(at),
                            b.begin() + static_cast<long>(at + n));
                }
                break;
            default: {  // a digit of a text header
                if (!span) break;
                const size_t at = pick(span);
                if (b[at] >= '0' && b[at] <= '9')
                    b[at] = static_cast<uint8_t>('0' + pick(10));
                else
                    b.insert(b.begin() + static_cast<long>(at),
                             static_cast<uint8_t>('0' + pick(10)));
                break;
            }
        }
    }
}

// As libFuzzer does: an input after which more blocks are allocated than
// freed is checked for leaks at once, so that a leak is caught with the
// input that made it, not in one report at exit.
void RunOne(const Bytes& input, long timeout) {
    const size_t mallocs = g_mallocs.load(), frees = g_frees.load();
    g_current = &input;
    if (timeout) alarm(static_cast<unsigned>(timeout));
    LLVMFuzzerTestOneInput(input.data(), input.size());
    if (timeout) alarm(0);
    if (__lsan_do_recoverable_leak_check && g_mallocs.load() - mallocs > g_frees.load() - frees &&
        __lsan_do_recoverable_leak_check()) {
        SaveCurrent("a memory leak", "leak");
        std::_Exit(kExitLeak);
    }
    g_current = nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    long runs = 0, seed = 1, timeout = 0, rssMb = 0;
    const std::pair<std::string, long*> options[] = {
        {"-runs=", &runs}, {"-seed=", &seed}, {"-timeout=", &timeout}, {"-rss_limit_mb=", &rssMb}};
    std::vector<Bytes> corpus;
    for (int i = 1; i < argc; i++) {
        const std::string a = argv[i];
        const auto o = std::find_if(std::begin(options), std::end(options),
                                    [&](const auto& o) { return a.rfind(o.first, 0) == 0; });
        if (o != std::end(options))
            *o->second = std::atol(a.c_str() + o->first.size());
        else if (a[0] == '-')
            std::fprintf(stderr, "fuzz driver: ignoring %s\n", a.c_str());
        else
            ReadCorpus(a, corpus);
    }
    if (rssMb > 0) g_limitBytes = static_cast<size_t>(rssMb) << 20;
    signal(SIGALRM, OnAlarm);
    for (int sig : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS}) signal(sig, OnCrash);
    if (__sanitizer_install_malloc_and_free_hooks)
        __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);
    if (corpus.empty()) corpus.emplace_back();

    auto checkRss = [&] {
        if (rssMb > 0 && PeakRssMb() > rssMb) {
            SaveCurrent("resident memory above the limit");
            std::_Exit(72);
        }
    };
    for (const Bytes& input : corpus) {
        RunOne(input, timeout);
        checkRss();
    }
    std::mt19937 rng(static_cast<uint32_t>(seed));
    Bytes input;
    for (long r = 0; r < runs; r++) {
        input = corpus[std::uniform_int_distribution<size_t>(0, corpus.size() - 1)(rng)];
        Mutate(input, rng);
        RunOne(input, timeout);
        checkRss();
    }
    std::printf("fuzz driver: %zu corpus inputs and %ld mutations (seed %ld), peak %ld MB\n",
                corpus.size(), runs, seed, PeakRssMb());
    return 0;
}
