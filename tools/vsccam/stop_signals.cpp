#include "stop_signals.h"

#include "failure.h"

#include <csignal>

namespace vsctool {

namespace {

sigset_t StopSet()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

} // namespace

void StopSignals::Block()
{
    const sigset_t set = StopSet();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void StopSignals::SleepFor(std::chrono::milliseconds time)
{
    const sigset_t set = StopSet();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    timespec wait{};
    wait.tv_sec = static_cast<time_t>(seconds.count());
    wait.tv_nsec = static_cast<long>((time - seconds).count() * 1'000'000);
    const int signal = sigtimedwait(&set, nullptr, &wait);
    if (signal > 0)
        throw Failure(static_cast<int>(Exit::kSignal) + signal, "stopped");
}

} // namespace vsctool
