#include "serve/recording.h"

#include <utility>

namespace vsctool::serve {
namespace {

using namespace std::chrono_literals;

constexpr size_t kMostWaitingBytes = sizeof(size_t) > 4 ? 256 << 20 : 64 << 20;
constexpr auto kIdle = 250ms;

} // namespace

Recording::Recording(const RecordingPlan &plan, const SerHeader &header, int64_t dropped)
    : m_plan(plan), m_droppedBefore(dropped), m_writer(plan.file, header, false),
      m_thread([this] { Write(); })
{
}

Recording::~Recording()
{
    Finish();
    m_thread.join();
}

bool Recording::IsBeyondLimits(Clock::time_point now) const
{
    return (m_plan.limits.duration && m_first && now - *m_first >= *m_plan.limits.duration) ||
           (m_plan.limits.frames && m_accepted >= *m_plan.limits.frames);
}

bool Recording::Put(const FramePtr &frame)
{
    const auto now = Clock::now();
    const std::lock_guard lock(m_mutex);
    if (m_finished || m_failure || IsBeyondLimits(now))
        return false;
    m_first = m_first.value_or(now);
    m_state.elapsed = std::chrono::floor<Microseconds>(now - *m_first);
    const size_t bytes = frame->picture.bytes.size();
    if (!m_waiting.empty() && m_waitingBytes + bytes > kMostWaitingBytes) {
        ++m_refused;
    } else {
        m_waiting.push_back(frame);
        m_waitingBytes += bytes;
        ++m_accepted;
        m_changed.notify_one();
    }
    m_state.dropped = frame->dropped - m_droppedBefore + m_refused;
    return !IsBeyondLimits(now);
}

void Recording::Finish()
{
    const std::lock_guard lock(m_mutex);
    m_finished = true;
    m_changed.notify_one();
}

RecordingState Recording::State() const
{
    const std::lock_guard lock(m_mutex);
    RecordingState state = m_state;
    state.waiting = static_cast<int64_t>(m_waiting.size());
    return state;
}

bool Recording::IsClosed() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed;
}

void Recording::CheckResult() const
{
    const std::lock_guard lock(m_mutex);
    if (m_failure)
        std::rethrow_exception(m_failure);
}

void Recording::Write()
{
    std::exception_ptr failure;
    const auto attempt = [&failure](const auto &work) {
        try {
            work();
        } catch (const std::exception &) {
            if (!failure)
                failure = std::current_exception();
        }
    };
    attempt([this] { WriteFrames(); });
    attempt([this] { m_writer.Close(); }); // after a failure, too: what is whole stays readable
    const std::lock_guard lock(m_mutex);
    m_waiting.clear();
    m_failure = failure;
    m_closed = true;
}

void Recording::WriteFrames()
{
    while (const FramePtr frame = Next()) {
        m_writer.Add(frame->picture.bytes, frame->at);
        const std::lock_guard lock(m_mutex);
        ++m_state.frames;
        m_state.bytes += static_cast<int64_t>(frame->picture.bytes.size());
    }
}

/// The frame that has waited longest; nothing at the end. Waits for it.
FramePtr Recording::Next()
{
    std::unique_lock lock(m_mutex);
    while (m_waiting.empty() && !m_finished) {
        if (m_changed.wait_for(lock, kIdle) == std::cv_status::no_timeout)
            continue;
        lock.unlock();
        m_writer.Checkpoint();
        lock.lock();
    }
    if (m_waiting.empty())
        return nullptr;
    FramePtr frame = std::move(m_waiting.front());
    m_waiting.pop_front();
    m_waitingBytes -= frame->picture.bytes.size();
    return frame;
}

} // namespace vsctool::serve
