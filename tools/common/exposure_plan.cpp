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

ExposurePlan OneSleep(Microseconds time, Microseconds switching = 0ms)
{
    const Microseconds planned = Whole(time, 1ms);
    return {.planned = planned,
            .byHost = true,
            .slept = planned - switching,
            .step = planned - switching};
}

ExposurePlan Steps(Microseconds time, Microseconds step)
{
    const Microseconds planned = Whole(time, step);
    return {.planned = planned, .byHost = true, .slept = planned, .step = step};
}

/// A gate in the camera's FPGA: one sleep up to a second, fifths of a second beyond.
ExposurePlan ByGate(Microseconds set)
{
    return set < 1001ms ? OneSleep(set) : Steps(set, 200ms);
}

/// The same with a sensor that is put to sleep and woken again meanwhile: tenths of a second,
/// rounded, from two seconds on. What the switching takes is only subtracted from the one sleep.
ExposurePlan BySleepingSensor(Microseconds set)
{
    constexpr Microseconds kSwitching = 20ms;
    ExposurePlan plan = set < 2s ? OneSleep(set, kSwitching) : Steps(Whole(set, 1ms) + 50ms, 100ms);
    plan.switching = kSwitching;
    return plan;
}

/// The clock of the sensor stands still. What is no whole step is slept besides.
ExposurePlan ByClock(Microseconds set)
{
    ExposurePlan plan = OneSleep(set);
    plan.step = set < 10s ? 200ms : 500ms;
    return plan;
}

/// Models are told apart by how their names begin and end, without the maker.
struct Family {
    std::string_view begin;
    std::string_view end;
    Microseconds from;         // which the host times
    Microseconds fromUsb2Port; // the same with the longer lines there
    ExposurePlan (*plan)(Microseconds);
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

ExposurePlan PlanExposure(const std::string &model, bool usb3Port, Microseconds set)
{
    const Family &family = FamilyOf(model);
    return PlanExposure(model, set, set >= (usb3Port ? family.from : family.fromUsb2Port));
}

ExposurePlan PlanExposure(const std::string &model, Microseconds set, bool byHost)
{
    return byHost ? FamilyOf(model).plan(set) : ExposurePlan{.planned = set};
}

} // namespace vsctool
