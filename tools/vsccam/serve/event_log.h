#pragma once

#include "console.h"
#include "units.h"

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace vsctool::serve {

/// What happened, and when.
struct Event {
    uint64_t number = 0; // from 1
    UtcTime at;
    std::string text;
};

/// What happened lately, for all who look; the console is told, too. Any thread may use it.
class EventLog {
  public:
    explicit EventLog(Console &console) : m_console(console) {}

    void Add(const std::string &text);
    /// Those that are newer than a number, the oldest first.
    std::vector<Event> After(uint64_t number) const;

  private:
    Console &m_console;
    mutable std::mutex m_mutex; // guards what follows, and the console
    std::deque<Event> m_events;
    uint64_t m_last = 0;
};

} // namespace vsctool::serve
