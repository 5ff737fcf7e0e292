#include "guide_axis.h"

#include <chrono>
#include <utility>

namespace vscindi {

using std::chrono::milliseconds;

GuideAxis::GuideAxis(std::function<void(bool)> ended)
    : m_ended(std::move(ended)), m_thread([this] { Run(); })
{
}

GuideAxis::~GuideAxis()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void GuideAxis::Pulse(GuideD direction, int ms)
{
    {
        const std::lock_guard lock(m_mutex);
        m_waiting.push_back({direction, ms});
    }
    m_changed.notify_all();
}

void GuideAxis::Clear()
{
    const std::lock_guard lock(m_mutex);
    m_waiting.clear();
}

void GuideAxis::Run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_ending || !m_waiting.empty(); });
        if (m_ending)
            return;
        const Waiting pulse = m_waiting.front();
        m_waiting.pop_front();
        lock.unlock();
        const auto begin = std::chrono::steady_clock::now();
        pulseGuide(pulse.direction, pulse.ms);
        // Without a camera, or when it is closed, a pulse ends before its time.
        m_ended(std::chrono::steady_clock::now() - begin >= milliseconds(pulse.ms));
        lock.lock();
    }
}

} // namespace vscindi
