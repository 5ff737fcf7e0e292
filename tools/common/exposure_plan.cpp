#include "exposure_plan.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

constexpr Microseconds kNever = Microseconds::max();

Microseconds Whole(Microseconds time, Microseconds step)
{
    return time / step * step;
}

/// A gate in the camera's FPGA: one sleep up to a second, fifths of a second beyond.
Microseconds ByGate(Microseconds set)
{
    return Whole(set, set < 1001ms ? 1ms : 200ms);
}

/// The same with a sensor that is put to sleep and woken again meanwhile: tenths of a second,
/// rounded, from two seconds on.
Microseconds BySleepingSensor(Microseconds set)
{
    const Microseconds whole = Whole(set, 1ms);
    return set < 2s ? whole : Whole(whole + 50ms, 100ms);
}

/// The clock of the sensor stands still. What is no whole step is slept besides.
Microseconds ByClock(Microseconds set)
{
    return Whole(set, 1ms);
}

/// Models are told apart by how their names begin and end, without the maker.
struct Family {
    std::string_view begin;
    std::string_view end;
    Microseconds from;         // which the host times
    Microseconds fromUsb2Port; // the same with the longer lines there
    Microseconds (*plan)(Microseconds);
};

// Of the sensors of the USB 2.0 cameras the host times what is more than 65,535 lines. At a USB 3.0
// port a line has 1,390 clocks at 24 MHz; elsewhere lines are longer, and 4 s are the limit.
constexpr Microseconds kManyShortLines = 3'795'628us;
constexpr Microseconds kOverFourSeconds = 4s + 1us;

constexpr Family kFamilies[] = {
    {"VSC2800", "", 1s, 1s, BySleepingSensor},
    {"VSC048", "", kNever, kNever, ByClock},
    {"VSC340", "-S", kManyShortLines, kOverFourSeconds, ByGate},
    {"VSC340", "", kOverFourSeconds, kOverFourSeconds, ByClock},
    {"VSC350", "", kOverFourSeconds, kOverFourSeconds, ByClock},
    {"VSC047", "", kOverFourSeconds, kOverFourSeconds, ByClock},
    {"VSC052", "", kOverFourSeconds, kOverFourSeconds, ByClock},
    {"VSC056", "", kOverFourSeconds, kOverFourSeconds, ByClock},
    {"", "", 1s, 1s, ByGate}, // the Sony sensors
};

const Family &FamilyOf(std::string_view model)
{
    const std::string_view name = model.substr(model.rfind(' ') + 1);
    return *std::ranges::find_if(kFamilies, [name](const Family &family) {
        return name.starts_with(family.begin) && name.ends_with(family.end);
    });
}

} // namespace

Microseconds PlannedExposure(const std::string &model, bool usb3Port, Microseconds set)
{
    const Family &family = FamilyOf(model);
    return PlannedExposure(model, set, set >= (usb3Port ? family.from : family.fromUsb2Port));
}

Microseconds PlannedExposure(const std::string &model, Microseconds set, bool byHost)
{
    return byHost ? FamilyOf(model).plan(set) : set;
}

} // namespace vsctool
