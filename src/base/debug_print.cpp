#include "base/debug_print.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace vsccam {

namespace {
std::atomic<bool> g_bDebugPrint{false};
constexpr char kTag[] = "<VSC SDK> ";
constexpr size_t kTagLength = sizeof(kTag) - 1;
constexpr size_t kMessageSize = 128; // with the final zero

/// Writes to a descriptor. When that is a pipe that nobody reads any more, the signal for it
/// must not end the host: it is kept from this thread and taken back, unless one was there before.
void WriteQuietly(Output output, std::string_view text)
{
    sigset_t brokenPipe;
    sigset_t before;
    sigset_t pending;
    (void)sigemptyset(&brokenPipe);
    (void)sigaddset(&brokenPipe, SIGPIPE);
    (void)sigpending(&pending);
    (void)pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    const bool broken =
        write(static_cast<int>(output), text.data(), text.size()) < 0 && errno == EPIPE;
    if (broken && sigismember(&pending, SIGPIPE) == 0) {
        constexpr timespec kNow{};
        (void)sigtimedwait(&brokenPipe, nullptr, &kNow);
    }
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

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
    WriteQuietly(Output::kStandardOutput, {line, std::strlen(line)});
}

void OutputAlways(Output output, const char *text)
{
    WriteQuietly(output, text);
}

} // namespace vsccam
