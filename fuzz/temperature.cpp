#include "cooling/temperature_control.h"
#include "core/thermistor.h"
#include "fuzz.h"
#include "models/thermometer.h"

using namespace vsccam;

// Whatever thermometers tell, and however long they are silent, the cooler's drive stays within its
// limits and each turn ends.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    Decisions decisions({bytes, size});
    TemperatureControl control;
    control.Restart({.p = 0.2F, .i = 0.0F, .d = 0.6F});
    const auto target = static_cast<float>(TargetDegrees(static_cast<float>(decisions.Number())));
    const bool thermistor = decisions.Flag();
    DriveSetting now = DriveForPower(0);
    uint32_t tick = static_cast<uint32_t>(decisions.Number());
    while (!decisions.UsedUp()) {
        const uint8_t low = decisions.Byte();
        const auto celsius = thermistor ? ThermistorTemperature(low, 10)
                                        : ThermometerTemperature(low, decisions.Byte());
        Must(!celsius || (*celsius >= -128 && *celsius <= 128));
        tick += decisions.Byte() * uint32_t{40};
        const auto change = celsius ? control.TakeReading(*celsius, tick) : std::nullopt;
        if (!celsius || (change && change->IsGlitch()))
            continue;
        ApplyCorrection(control.Step(target, *celsius), now, [&now](float percent) {
            now = DriveForPower(percent);
            Must(now.code >= kMaxCurrentCode && now.code <= kNoCurrentCode);
            Must(now.percent >= 0 && now.percent <= 100 && CalculIPerc(now.code) <= 100);
            return now;
        });
    }
    return 0;
}
