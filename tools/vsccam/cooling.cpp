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

} // namespace

void RequireCooler(const Camera &camera)
{
    if (!isCoolerCam())
        throw Failure(Exit::kNotSupported, camera.Entry().model + " has no cooler");
}

void Regulate(int targetC)
{
    Set("target-temp", targetC);
    Set("cooler", 1);
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
