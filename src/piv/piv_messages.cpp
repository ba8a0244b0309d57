#include "piv_messages.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

std::atomic<int> g_debugLevel{0};
std::atomic<bool> g_warnings{true};
std::atomic<PIVMessageHook> g_hook{nullptr};

constexpr int kBufferSize = 4096;

// Each thread formats into its own buffer, so messages from the worker threads
// of an evaluation do not overwrite each other before reaching the sink.
char* messageBuffer() {
    static thread_local char buffer[kBufferSize];
    return buffer;
}

void sendFormatted(const char* prefix, const char* format, va_list args) {
    char* buffer = messageBuffer();
    int used = 0;
    if (prefix) used = std::snprintf(buffer, kBufferSize, "%s", prefix);
    std::vsnprintf(buffer + used, kBufferSize - used, format ? format : "", args);
    SendDebugMessageToOutputWindow(buffer);
}

}  // namespace

void SendDebugMessageToOutputWindow(const char* text) {
    if (!text) return;
    PIVMessageHook hook = g_hook.load();
    if (hook) {
        hook(text);
        return;
    }
    std::size_t n = std::strlen(text);
    std::fputs(text, stderr);
    if (n == 0 || text[n - 1] != '\n') std::fputc('\n', stderr);
}

void SetMessageHook(PIVMessageHook hook) {
    g_hook.store(hook);
}
PIVMessageHook MessageHook() {
    return g_hook.load();
}

#define KELVANE_FORWARD(prefix)          \
    va_list args;                        \
    va_start(args, format);              \
    sendFormatted(prefix, format, args); \
    va_end(args)

void DebugPrint(const char* format, ...) {
    if (g_debugLevel.load() <= 0) return;
    KELVANE_FORWARD(nullptr);
}

void DebugMessage(const char* format, ...) {
    if (g_debugLevel.load() <= 0) return;
    KELVANE_FORWARD(nullptr);
}

void DebugPrintExt(int level, const char* format, ...) {
    if (g_debugLevel.load() < level) return;
    KELVANE_FORWARD(nullptr);
}

void DebugMessageExt(int level, const char* format, ...) {
    if (g_debugLevel.load() < level) return;
    KELVANE_FORWARD(nullptr);
}

void ShowStatus(const char* format, ...) {
    KELVANE_FORWARD(nullptr);
}

void PrintWarning(const char* format, ...) {
    if (!g_warnings.load()) return;
    KELVANE_FORWARD("Warning - ");
}

#undef KELVANE_FORWARD

void SetDebugLevel(int level) {
    g_debugLevel.store(level);
    if (level < 1)
        ShowStatus("Disabling debugging messages");
    else
        ShowStatus("Setting debugging to level %d", level);
}

int DebugLevel() {
    return g_debugLevel.load();
}
void EnableWarnings(bool enable) {
    g_warnings.store(enable);
}
bool WarningsEnabled() {
    return g_warnings.load();
}
