// The library's message functions. Every message ends in one sink,
// SendDebugMessageToOutputWindow, which forwards to a hook that the
// application installs (its log window); without a hook it writes to stderr.
#pragma once

#include <cstdarg>

#if defined(__GNUC__)
#define PIV_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define PIV_PRINTF(fmt, args)
#endif

// Printed when the debug level is above 0.
void DebugPrint(const char* format, ...) PIV_PRINTF(1, 2);
void DebugMessage(const char* format, ...) PIV_PRINTF(1, 2);
// Printed when the debug level is at least `level`.
void DebugPrintExt(int level, const char* format, ...) PIV_PRINTF(2, 3);
void DebugMessageExt(int level, const char* format, ...) PIV_PRINTF(2, 3);
// Always printed.
void ShowStatus(const char* format, ...) PIV_PRINTF(1, 2);
// Printed while warnings are enabled, behind "Warning - ".
void PrintWarning(const char* format, ...) PIV_PRINTF(1, 2);

void SetDebugLevel(int level);
int DebugLevel();
void EnableWarnings(bool enable);
bool WarningsEnabled();

// The one sink of all messages above.
void SendDebugMessageToOutputWindow(const char* text);

// Where the sink delivers; null restores the stderr default. The hook is
// called from worker threads too, so it must be safe to call concurrently.
using PIVMessageHook = void (*)(const char* text);
void SetMessageHook(PIVMessageHook hook);
PIVMessageHook MessageHook();
