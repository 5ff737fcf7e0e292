#include "cooling.h"

#include "failure.h"
#include "stop_signals.h"

#include <vsccam.h>

#include <cmath>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

constexpr auto kPollInterval = 1s;
constexpr auto kNoteInterval = 10s;
constexpr auto kLongestWait = 20min;
constexpr double kWarmEnoughC = 1; // below the warmest target, on a hot day

bool IsSignal(const Failure &failure)
{
    return failure.Code() >= static_cast<int>(Exit::kSignal);
}

} // namespace

void RequireCooler(const Camera &camera)
{
    if (!isCoolerCam())
        throw Failure(Exit::kNotSupported, camera.Entry().model + " has no cooler");
}

/// It is warm when regulation needs no power: also after a start with a sensor that was cold.
void WarmUp(double cPerMin, const std::function<void()> &wait)
{
    const auto start = std::chrono::steady_clock::now();
    const auto fromC = static_cast<double>(getSensorTemp());
    const double warmC = getMax(CONTROL_TARGET_TEMP);
    while (static_cast<double>(getSensorTemp()) < warmC - kWarmEnoughC &&
           getValue(CONTROL_COOLER_POWER, nullptr) > 0) {
        MoveTarget(OnRamp(fromC, warmC, cPerMin, std::chrono::steady_clock::now() - start));
        wait();
    }
    setValue(CONTROL_COOLER_ON, 0, false);
}

void WorkThenWarm(Console &console, const std::function<void()> &work,
                  const std::function<void()> &warm)
{
    try {
        work();
    } catch (const Failure &failure) {
        if (failure.Code() == static_cast<int>(Exit::kCameraLost))
            throw;
        if (IsSignal(failure) && getValue(CONTROL_COOLER_ON, nullptr))
            console.Note("warming the sensor; stop once more to end at once");
        warm();
        throw;
    }
    warm();
}

void WarmUp(Camera &camera, Console &console)
{
    int steps = 0;
    WarmUp(kUsualWarmingCPerMin, [&] {
        if (steps++ % 5 == 0)
            console.Note(fmt::format("warming: {:.1f} C, power {} %", getSensorTemp(),
                                     getValue(CONTROL_COOLER_POWER, nullptr)));
        StopSignals::SleepFor(kCoolingInterval);
        camera.CheckPresence();
    });
    console.Note(fmt::format("the cooler is off, the sensor at {:.1f} C", getSensorTemp()));
}

void CoolTo(Camera &camera, int targetC, std::optional<double> withinC, Console &console)
{
    RequireCooler(camera);
    Regulate(targetC);
    if (!withinC)
        return;
    for (auto waited = 0s; std::abs(getSensorTemp() - static_cast<float>(targetC)) > *withinC;
         waited += kPollInterval) {
        if (waited >= kLongestWait)
            throw Failure(
                Exit::kNoFrame,
                fmt::format("the sensor is at {:.1f} C after {} min, not at {} C; choose a "
                            "warmer target",
                            getSensorTemp(), kLongestWait.count(), targetC));
        if (waited % kNoteInterval == 0s)
            console.Note(fmt::format("cooling: {:.1f} C, target {} C, power {} %", getSensorTemp(),
                                     targetC, getValue(CONTROL_COOLER_POWER, nullptr)));
        StopSignals::SleepFor(kPollInterval);
        camera.CheckPresence();
    }
}

} // namespace vsctool
