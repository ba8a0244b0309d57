// The driver's own test: a target that loses memory on every input. The run
// must end at the first input with LeakSanitizer's report and the input
// saved, not wait for the check at exit.
#include <cstddef>
#include <cstdint>

namespace {
char* volatile g_block;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t*, size_t size) {
    // Eight blocks whose only pointer is overwritten: a stale copy on the
    // stack could keep the last one in sight, never all of them.
    for (int i = 0; i < 8; i++) g_block = new char[size + 32];
    g_block = nullptr;
    return 0;
}
