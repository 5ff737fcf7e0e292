#include "base/debug_print.h"

#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace vsccam {

namespace {
std::atomic<bool> g_bDebugPrint{false};
constexpr char kTag[] = "<VSC SDK> ";
constexpr size_t kTagLength = sizeof(kTag) - 1;
constexpr size_t kMessageSize = 128; // with the final zero
} // namespace

void SetDebugPrint(bool on)
{
    g_bDebugPrint.store(on, std::memory_order_relaxed);
}

void OutputDbgPrint(const char *format, ...)
{
    if (!g_bDebugPrint.load(std::memory_order_relaxed))
        return;
    char line[kTagLength + kMessageSize];
    std::memcpy(line, kTag, kTagLength);
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(line + kTagLength, kMessageSize, format, arguments);
    va_end(arguments);
    // A closed standard output is no reason to disturb the host.
    if (write(STDOUT_FILENO, line, std::strlen(line)) < 0)
        return;
}

} // namespace vsccam
