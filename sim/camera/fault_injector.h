#pragma once

#include "camera/camera.h"

#include <random>

namespace vscsim {

/// Counts requests and frames, and tells which rules of the plan hit the present one.
class FaultInjector {
  public:
    FaultInjector(const FaultPlan &plan, uint64_t seed);

    /// Another plan, which counts from now on.
    void Plan(const FaultPlan &plan);

    std::vector<FaultRule> ForRequest(uint8_t request);
    std::vector<FaultRule> ForFrame();
    std::vector<FaultRule> ForReset();
    /// Those whose time has come. Time begins with the first call.
    std::vector<FaultRule> ForTime(Time now);
    /// When there will be more of them.
    Time NextByTime() const;

  private:
    struct Armed {
        FaultRule rule;
        uint64_t seen = 0;
    };
    bool Strikes(Armed &armed);
    std::vector<FaultRule> Hits(std::vector<Armed> &rules);
    std::vector<Armed> &CountedWith(const FaultRule &rule);

    std::vector<Armed> m_onRequests;
    std::vector<Armed> m_onFrames;
    std::vector<Armed> m_onResets;
    std::vector<FaultRule> m_byTime; // that have not struck yet
    std::optional<Time> m_began;
    std::mt19937_64 m_random;
};

} // namespace vscsim
