#include "camera/fault_injector.h"

#include <algorithm>

namespace vscsim {
namespace {

/// Since the beginning.
Time MomentOf(const FaultRule &rule)
{
    constexpr uint64_t kLongestMs = 1'000'000'000;
    return std::chrono::milliseconds(std::min(*rule.atMs, kLongestMs));
}

} // namespace

std::vector<FaultInjector::Armed> &FaultInjector::CountedWith(const FaultRule &rule)
{
    switch (TargetOf(rule.fault)) {
    case FaultTarget::Requests:
        return m_onRequests;
    case FaultTarget::Resets:
        return m_onResets;
    case FaultTarget::Device:
        return rule.request ? m_onRequests : m_onFrames;
    case FaultTarget::Frames:
        break;
    }
    return m_onFrames;
}

FaultInjector::FaultInjector(const FaultPlan &plan, uint64_t seed) : m_random(seed)
{
    Plan(plan);
}

void FaultInjector::Plan(const FaultPlan &plan)
{
    for (auto *rules : {&m_onRequests, &m_onFrames, &m_onResets})
        rules->clear();
    m_byTime.clear();
    m_began.reset();
    for (const FaultRule &rule : plan) {
        if (rule.atMs)
            m_byTime.push_back(rule);
        else
            CountedWith(rule).push_back({.rule = rule});
    }
}

bool FaultInjector::Strikes(Armed &armed)
{
    const FaultRule &rule = armed.rule;
    const uint64_t number = armed.seen++;
    if (number < rule.from || number - rule.from >= rule.count)
        return false;
    return rule.probability >= 1.0 ||
           std::uniform_real_distribution<double>(0.0, 1.0)(m_random) < rule.probability;
}

std::vector<FaultRule> FaultInjector::ForRequest(uint8_t request)
{
    std::vector<FaultRule> hits;
    for (Armed &armed : m_onRequests)
        if (armed.rule.request.value_or(request) == request && Strikes(armed))
            hits.push_back(armed.rule);
    return hits;
}

std::vector<FaultRule> FaultInjector::Hits(std::vector<Armed> &rules)
{
    std::vector<FaultRule> hits;
    for (Armed &armed : rules)
        if (Strikes(armed))
            hits.push_back(armed.rule);
    return hits;
}

std::vector<FaultRule> FaultInjector::ForFrame()
{
    return Hits(m_onFrames);
}

std::vector<FaultRule> FaultInjector::ForReset()
{
    return Hits(m_onResets);
}

std::vector<FaultRule> FaultInjector::ForTime(Time now)
{
    if (!m_began)
        m_began = now;
    std::vector<FaultRule> hits;
    std::erase_if(m_byTime, [&](const FaultRule &rule) {
        const bool strikes = now - *m_began >= MomentOf(rule);
        if (strikes)
            hits.push_back(rule);
        return strikes;
    });
    return hits;
}

Time FaultInjector::NextByTime() const
{
    Time next = kNever;
    for (const FaultRule &rule : m_byTime)
        next = std::min(next, m_began.value_or(Time(0)) + MomentOf(rule));
    return next;
}

} // namespace vscsim
