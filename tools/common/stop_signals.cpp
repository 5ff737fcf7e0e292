#include "stop_signals.h"

#include "failure.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>

namespace vsctool {

using namespace std::chrono_literals;

namespace {

/// nohup starts programs so. Who blocks a signal and waits for it gets it even when it is ignored.
bool IsIgnored(int signal)
{
    struct sigaction present = {};
    sigaction(signal, nullptr, &present);
    return present.sa_handler == SIG_IGN;
}

sigset_t StopSet()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    if (!IsIgnored(SIGHUP))
        sigaddset(&set, SIGHUP);
    return set;
}

/// Nothing when it has passed.
timespec TimeUntil(std::chrono::steady_clock::time_point end)
{
    using namespace std::chrono;
    const auto left = std::max<nanoseconds>(end - steady_clock::now(), 0ns);
    const auto whole = duration_cast<seconds>(left);
    timespec time{};
    time.tv_sec = static_cast<time_t>(whole.count());
    time.tv_nsec = static_cast<long>((left - whole).count());
    return time;
}

} // namespace

void StopSignals::Block()
{
    const sigset_t set = StopSet();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a reader that went away is an error of the write
    std::signal(SIGXFSZ, SIG_IGN); // and so is a file that gets larger than the user may have it
    std::signal(SIGCHLD, SIG_DFL); // ignored, as some start us, it hides how a hook has ended
}

void StopSignals::SleepFor(std::chrono::milliseconds time)
{
    const sigset_t set = StopSet();
    const auto end = std::chrono::steady_clock::now() + time;
    do {
        const timespec wait = TimeUntil(end);
        const int signal = sigtimedwait(&set, nullptr, &wait);
        if (signal > 0)
            throw Failure(static_cast<int>(Exit::kSignal) + signal, "stopped");
    } while (errno == EINTR); // the program was suspended and goes on
}

void StopSignals::WaitForInput(int descriptor)
{
    const sigset_t set = StopSet();
    const int signals = signalfd(-1, &set, SFD_CLOEXEC);
    pollfd both[] = {{.fd = signals, .events = POLLIN, .revents = 0},
                     {.fd = descriptor, .events = POLLIN, .revents = 0}};
    while (poll(both, std::size(both), -1) < 0 && errno == EINTR)
        continue;
    close(signals);
    SleepFor(0ms); // takes the signal, if there is one
}

} // namespace vsctool
