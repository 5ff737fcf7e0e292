#include "video_pump.h"

#include <utility>

namespace vscindi {

using namespace std::chrono_literals;

namespace {

constexpr auto kLongestStop = 2s; // a recording that is being closed may take longer

} // namespace

VideoPump::VideoPump(Hand hand) : m_hand(std::move(hand))
{
    for (std::vector<uint8_t> &buffer : m_buffers)
        m_free.push_back(&buffer);
    m_thread = std::thread([this] { Run(); });
}

VideoPump::~VideoPump()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

uint8_t *VideoPump::TryBegin(size_t bytes)
{
    {
        const std::lock_guard lock(m_mutex);
        if (!m_runs || m_free.empty())
            return nullptr;
        m_filling = m_free.front();
        m_free.pop_front();
    }
    m_filling->resize(bytes);
    return m_filling->data();
}

void VideoPump::End(bool isFrame)
{
    {
        const std::lock_guard lock(m_mutex);
        auto &queue = isFrame && m_runs ? m_ready : m_free;
        queue.push_back(std::exchange(m_filling, nullptr));
    }
    m_changed.notify_all();
}

void VideoPump::Start()
{
    const std::lock_guard lock(m_mutex);
    m_runs = true;
}

void VideoPump::Stop()
{
    std::unique_lock lock(m_mutex);
    m_runs = false;
    m_free.insert(m_free.end(), m_ready.begin(), m_ready.end());
    m_ready.clear();
    if (std::this_thread::get_id() != m_thread.get_id())
        m_changed.wait_for(lock, kLongestStop, [this] { return !m_handing; });
}

void VideoPump::Run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_ending || !m_ready.empty(); });
        if (m_ending)
            return;
        std::vector<uint8_t> *const frame = m_ready.front();
        m_ready.pop_front();
        m_handing = true;
        lock.unlock();
        m_hand(*frame);
        lock.lock();
        m_handing = false;
        m_free.push_back(frame);
        m_changed.notify_all();
    }
}

} // namespace vscindi
