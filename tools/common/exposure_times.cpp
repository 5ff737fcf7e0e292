#include "exposure_times.h"

#include "exposure_plan.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

// Beginnings of the library's messages.
constexpr std::string_view kBegins = "working thread begin";
constexpr std::string_view kOpensGate = "Begin long exp ";
constexpr std::string_view kGateIsOpen = "wait:";
constexpr std::string_view kExposed = "exposed:";
constexpr std::string_view kDropped = "drop frames:"; // another frame is taken instead
constexpr std::string_view kWhole = "snap: EXP_SUCCESS";

constexpr Microseconds kHearing = 1ms; // between a message and the time that it gets here

std::optional<int> NumberAfter(std::string_view beginning, std::string_view line)
{
    const std::string_view text = After(beginning, line);
    int number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    return end.ec == std::errc() ? std::optional(number) : std::nullopt;
}

template <class Duration> Microseconds ToMicroseconds(Duration time)
{
    return std::chrono::duration_cast<Microseconds>(time);
}

} // namespace

UtcTime UtcOf(std::chrono::steady_clock::time_point time)
{
    const auto ago = std::chrono::steady_clock::now() - time;
    return std::chrono::floor<Microseconds>(std::chrono::system_clock::now() - ago);
}

void ExposureTimes::Hear(const std::vector<LibraryLine> &lines)
{
    for (const LibraryLine &line : lines) {
        const auto begins = [&line](std::string_view text) { return line.text.starts_with(text); };
        if (begins(kBegins) || begins(kDropped))
            m_begun = line.at;
        else if (begins(kOpensGate))
            m_opening = line.at;
        else if (begins(kGateIsOpen))
            m_opened = line.at;
        else if (begins(kWhole))
            m_whole = line.at;
        if (const auto ms = NumberAfter(kExposed, line.text))
            m_measured = std::chrono::milliseconds(*ms);
        if (const auto dropped = NumberAfter(kDropped, line.text))
            m_dropped = *dropped;
    }
}

ExposureTimes::Account ExposureTimes::Tell(const std::string &model, Microseconds set) const
{
    Account account;
    account.planned = PlannedExposure(model, set, m_opening.has_value());
    account.measured = m_measured;
    if (m_opening) {
        const auto half = (m_opened.value_or(*m_opening) - *m_opening) / 2;
        account.start = UtcOf(*m_opening + half);
        account.uncertainty = ToMicroseconds(half) + kHearing;
        return account;
    }
    const auto begun = m_begun.value_or(m_asked);
    const auto all = ToMicroseconds(m_whole.value_or(Clock::now()) - begun);
    // An exposure that is shorter than the read-out stands at the end of its period.
    const Microseconds late = std::max(all / 2 - set, 0us);
    account.start = UtcOf(begun + late);
    account.uncertainty = std::max(late, all - set - late) + kHearing;
    return account;
}

} // namespace vsctool
