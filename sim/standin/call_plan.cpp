#include "standin/call_plan.h"

namespace vscsim {

CallPlan::Begun CallPlan::Begin(std::string_view function)
{
    const uint64_t call = m_calls++;
    Begun begun;
    begun.failure = FailureOf(function, call);
    for (const Departure &departure : m_departures) {
        if (departure.call == call)
            begun.unplug.push_back(departure.device);
    }
    return begun;
}

int CallPlan::FailureOf(std::string_view function, std::optional<uint64_t> call)
{
    const uint64_t callOfFunction = m_callsOf[function]++;
    int code = 0;
    for (const Failure &failure : m_failures) {
        const auto number = failure.function.empty()       ? call
                            : failure.function == function ? std::optional(callOfFunction)
                                                           : std::nullopt;
        if (number && *number >= failure.from && *number - failure.from < failure.count)
            code = failure.code;
    }
    return code;
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
