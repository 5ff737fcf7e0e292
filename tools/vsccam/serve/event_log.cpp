#include "serve/event_log.h"

#include <algorithm>
#include <iterator>

namespace vsctool::serve {
namespace {

constexpr size_t kMostKept = 500;

} // namespace

void EventLog::Add(const std::string &text)
{
    const auto now = std::chrono::floor<Microseconds>(std::chrono::system_clock::now());
    const std::lock_guard lock(m_mutex);
    m_events.push_back({++m_last, now, text});
    if (m_events.size() > kMostKept)
        m_events.pop_front();
    m_console.Note(text);
}

std::vector<Event> EventLog::After(uint64_t number) const
{
    const std::lock_guard lock(m_mutex);
    std::vector<Event> newer;
    std::ranges::copy_if(m_events, std::back_inserter(newer),
                         [number](const Event &event) { return event.number > number; });
    return newer;
}

} // namespace vsctool::serve
