#pragma once

#include "base/time_source.h"
#include "standin/bus.h"
#include "standin/virtual_clock.h"

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
    int64_t NowNs() override { return m_library.Now().count(); }
    uint64_t WakeCount() override { return m_library.WakeCount(); }
    void WaitForWake(uint64_t seen, int64_t deadlineNs) override
    {
        m_library.WaitForWake(seen, vscsim::Time(deadlineNs), "a wait of the library");
    }
    void Wake() override
    {
        m_library.Wake();
        m_clock.Yield();
    }
    void ThreadStarts() override { m_clock.ThreadStarts(); }
    void ThreadRuns() override { m_clock.ThreadRuns(); }
    void ThreadEnds() override
    {
        m_library.Wake();
        m_clock.ThreadEnds();
    }

    vscsim::VirtualClock m_clock;
    vscsim::VirtualClock::Channel m_bus{m_clock};
    vscsim::VirtualClock::Channel m_library{m_clock};
};

} // namespace vsccam
