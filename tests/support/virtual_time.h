#pragma once

#include "base/time_source.h"
#include "standin/bus.h"
#include "standin/virtual_clock.h"

#include <cstddef>
#include <map>
#include <memory>
#include <memory_resource>
#include <mutex>

namespace vsccam {

/// One virtual time line for the library and the simulated bus, as long as the object lives. The
/// calling thread takes part in it; further threads of a test are started with vsccam::Thread.
class VirtualTime final : private TimeSource {
  public:
    explicit VirtualTime(vscsim::Time start = vscsim::VirtualClock::kStart,
                         std::optional<uint64_t> seed = {})
        : m_clock(start, vscsim::VirtualClock::kLimit, seed)
    {
        m_clock.ThreadStarts();
        vscsim::Bus::Instance().UseClock(&m_bus);
        UseTimeSource(this);
    }
    VirtualTime(const VirtualTime &) = delete;
    VirtualTime &operator=(const VirtualTime &) = delete;
    ~VirtualTime()
    {
        UseTimeSource(nullptr);
        vscsim::Bus::Instance().UseClock(nullptr);
        m_clock.ThreadEnds();
    }

    vscsim::VirtualClock &Clock() { return m_clock; }

  private:
    static constexpr size_t kRoom = 1 << 20;

    int64_t NowNs() override { return m_clock.Now().count(); }
    uint64_t WakeCount(const void *object) override { return Of(object).WakeCount(); }
    void WaitForWake(const void *object, uint64_t seen, int64_t deadlineNs) override
    {
        Of(object).WaitForWake(seen, vscsim::Time(deadlineNs), "a wait of the library");
    }
    void Wake(const void *object) override
    {
        Of(object).Wake();
        m_clock.Yield();
    }
    vscsim::VirtualClock::Channel &Of(const void *object)
    {
        const std::lock_guard lock(m_mutex);
        return m_channels.try_emplace(object, m_clock).first->second;
    }
    void ThreadStarts() override { m_clock.ThreadStarts(); }
    void ThreadDoesNotStart() override { m_clock.ThreadDoesNotStart(); }
    void ThreadRuns() override { m_clock.ThreadRuns(); }
    void ThreadEnds(const void *thread) override
    {
        Of(thread).Wake();
        m_clock.ThreadEnds();
    }

    vscsim::VirtualClock m_clock;
    vscsim::VirtualClock::Channel m_bus{m_clock};
    std::mutex m_mutex; // guards the map
    // By what is waited for, in room of its own: some tests let allocations fail.
    std::unique_ptr<std::byte[]> m_room{new std::byte[kRoom]};
    std::pmr::monotonic_buffer_resource m_memory{m_room.get(), kRoom};
    std::pmr::map<const void *, vscsim::VirtualClock::Channel> m_channels{&m_memory};
};

} // namespace vsccam
