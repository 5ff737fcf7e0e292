#include "units.h"

#include "failure.h"

#include <fmt/chrono.h>

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

namespace vsctool {
namespace {

struct Unit {
    std::string_view name;
    double microseconds;
};

constexpr std::array kUnits = {Unit{"us", 1},     Unit{"ms", 1e3}, Unit{"s", 1e6},
                               Unit{"min", 60e6}, Unit{"h", 36e8}, Unit{"", 1e6}};
constexpr double kLongestUs = 1e15; // three decades; far from the end of 64 bits

/// Reads a number at the front of text and removes it.
template <class Number> bool Take(std::string_view &text, Number &number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return error == std::errc();
}

bool Skip(std::string_view &text, char wanted)
{
    if (!text.starts_with(wanted))
        return false;
    text.remove_prefix(1);
    return true;
}

} // namespace

Microseconds ParseTime(const std::string &text)
{
    std::string_view rest = text;
    double value = 0;
    if (Take(rest, value) && value >= 0) {
        for (const Unit &unit : kUnits) {
            if (rest == unit.name && value * unit.microseconds <= kLongestUs)
                return Microseconds(std::llround(value * unit.microseconds));
        }
    }
    throw Failure(Exit::kUsage,
                  fmt::format("'{}' is no time; write 250us, 20ms, 1.5s, 2min", text));
}

Region ParseRegion(const std::string &text)
{
    std::string_view rest = text;
    Region region;
    const bool complete = Take(rest, region.width) && Skip(rest, 'x') &&
                          Take(rest, region.height) && Skip(rest, '+') && Take(rest, region.x) &&
                          Skip(rest, '+') && Take(rest, region.y) && rest.empty();
    if (!complete || region.width <= 0 || region.height <= 0 || region.x < 0 || region.y < 0)
        throw Failure(
            Exit::kUsage,
            fmt::format("'{}' is no region; write WIDTHxHEIGHT+X+Y, as 640x480+100+50", text));
    return region;
}

std::string FormatTime(Microseconds time)
{
    const auto us = time.count();
    if (us < 1'000)
        return fmt::format("{}us", us);
    if (us < 1'000'000)
        return fmt::format("{}ms", static_cast<double>(us) / 1e3);
    return fmt::format("{}s", Seconds(time));
}

std::tm WholeSeconds(UtcTime time)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    return fmt::gmtime(std::chrono::system_clock::to_time_t(seconds));
}

std::string FormatUtc(UtcTime time)
{
    const auto fraction = time - std::chrono::floor<std::chrono::seconds>(time);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}", WholeSeconds(time), fraction.count());
}

double Seconds(Microseconds time)
{
    return std::chrono::duration<double>(time).count();
}

double Decimal(float value)
{
    return std::round(static_cast<double>(value) * 1e4) / 1e4;
}

} // namespace vsctool
