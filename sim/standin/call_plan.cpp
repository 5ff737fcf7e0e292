#include "standin/call_plan.h"

namespace vscsim {

CallPlan::Begun CallPlan::Begin(std::string_view function)
{
    const uint64_t call = m_calls++;
    const uint64_t callOfFunction = m_callsOf[function]++;
    Begun begun;
    for (const Failure &failure : m_failures) {
        const bool any = failure.function.empty();
        const uint64_t number = any ? call : callOfFunction;
        const bool meant = any || failure.function == function;
        if (meant && number >= failure.from && number - failure.from < failure.count)
            begun.failure = failure.code;
    }
    for (const Departure &departure : m_departures) {
        if (departure.call == call)
            begun.unplug.push_back(departure.device);
    }
    return begun;
}

uint64_t CallPlan::Count(std::string_view function) const
{
    if (function.empty())
        return m_calls;
    const auto found = m_callsOf.find(function);
    return found == m_callsOf.end() ? 0 : found->second;
}

void CallPlan::Fail(uint64_t from, uint64_t count, int code, std::string_view function)
{
    m_failures.push_back({from, count, code, std::string(function)});
}

void CallPlan::Unplug(int device, uint64_t call)
{
    m_departures.push_back({device, call});
}

} // namespace vscsim
