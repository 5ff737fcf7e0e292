#include "base/sync.h"

#include "base/debug_print.h"

#include <exception>

namespace vsccam {

namespace {

/// An exception that leaves a thread would end the host's whole program.
void RunGuarded(const std::function<void()> &body)
{
    try {
        body();
    } catch (const std::exception &failure) { // short of memory
        OutputDbgPrint("thread failed: %s\n", failure.what());
    }
}

} // namespace

bool Thread::Start(std::function<void()> body)
{
    Join();
    m_finished = false;
    TimeSource *source = CurrentTimeSource();
    if (source)
        source->ThreadStarts();
    try {
        m_thread = std::thread([this, source, body = std::move(body)] {
            if (source)
                source->ThreadRuns();
            RunGuarded(body);
            m_finished = true;
            if (source)
                source->ThreadEnds(this);
        });
    } catch (const std::exception &) {
        if (source)
            source->ThreadDoesNotStart();
        return false;
    }
    return true;
}

void Thread::Join()
{
    if (!m_thread.joinable())
        return;
    if (TimeSource *source = CurrentTimeSource()) {
        for (uint64_t seen = source->WakeCount(this); !m_finished; seen = source->WakeCount(this))
            source->WaitForWake(this, seen, TimeSource::kForever);
    }
    m_thread.join();
}

} // namespace vsccam
