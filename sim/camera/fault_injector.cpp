#include "camera/fault_injector.h"

namespace vscsim {
namespace {

bool CountsRequests(const FaultRule &rule)
{
    const FaultTarget target = TargetOf(rule.fault);
    return target == FaultTarget::Requests ||
           (target == FaultTarget::Device && rule.request.has_value());
}

} // namespace

FaultInjector::FaultInjector(const FaultPlan &plan, uint64_t seed) : m_random(seed)
{
    for (const FaultRule &rule : plan)
        (CountsRequests(rule) ? m_onRequests : m_onFrames).push_back({.rule = rule});
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

std::vector<FaultRule> FaultInjector::ForFrame()
{
    std::vector<FaultRule> hits;
    for (Armed &armed : m_onFrames)
        if (Strikes(armed))
            hits.push_back(armed.rule);
    return hits;
}

} // namespace vscsim
