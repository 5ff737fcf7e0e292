#pragma once

#include <vsccam.h>

#include <cstdint>
#include <optional>

/// What is said of the controls. The exported functions, the newer interface and the words of the
/// programs follow from this list; how a control reaches the camera stands in core/controls.cpp.
namespace vsccam {

/// The controls of the newer interface.
enum VSC_CONTROL_TYPE : int {
    kControlGain = 0,
    kControlExposure,
    kControlGamma,
    kControlRed,
    kControlBlue,
    kControlBrightness,
    kControlBandwidth,
    kControlOverClock,
    kControlTemperature,
    kControlFlip,
    kControlAutoMaxGain,
    kControlAutoMaxExposure,
    kControlAutoBrightness,
    kControlHardwareBin,
    kControlHighSpeed,
    kControlCoolerPower,
    kControlTargetTemp,
    kControlCoolerOn,
    kControlMonoBin,
    kControlFanOn,
};

/// How people write and read a value.
enum class ControlUnit : uint8_t {
    kPlain,
    kPercent,
    kMicroseconds,
    kSeconds,
    kCelsius,
    kTenthCelsius,
    kSwitch
};

/// Which models offer a control.
enum class OfferedBy : uint8_t { All, None, Colour, Cooled, WithBrightness, WithHardwareBin };

struct ControlRange {
    int min = 0;
    int max = 0;
    int initial = 0;
};

struct ControlFacts {
    VSC_CONTROL_TYPE type;
    const char *name;
    const char *description;
    const char *word = nullptr;                // what people type, where programs have it
    std::optional<Control_TYPE> exported = {}; // its number for getValue, setValue and their like
    ControlUnit unit = ControlUnit::kPlain;
    OfferedBy offered = OfferedBy::All;
    std::optional<ControlRange> range = {}; // nothing where it is the model's own
    bool automatic = false;                 // it can set itself
    bool writable = true;

    // Of the exported functions alone.
    std::optional<int> exportedMin = {}; // Quirk, kept: for every model, whatever it can do
    bool pausesCapture = false;          // while it is set
    bool announced = true;               // by isAvailable, too
};

inline constexpr ControlRange kOnOff = {0, 1, 0};

/// In the order in which cameras list them.
inline constexpr ControlFacts kControlList[] = {
    {.type = kControlGain,
     .name = "Gain",
     .description = "Gain",
     .word = "gain",
     .exported = CONTROL_GAIN,
     .automatic = true,
     .exportedMin = 0},
    {.type = kControlExposure,
     .name = "Exposure",
     .description = "Exposure Time(us)",
     .word = "exposure",
     .exported = CONTROL_EXPOSURE,
     .unit = ControlUnit::kMicroseconds,
     .automatic = true,
     .exportedMin = 64},
    {.type = kControlGamma,
     .name = "Gamma",
     .description = "Gamma",
     .word = "gamma",
     .exported = CONTROL_GAMMA,
     .exportedMin = 0},
    {.type = kControlRed,
     .name = "WB_R",
     .description = "White balance: Red",
     .word = "red",
     .exported = CONTROL_WB_RED,
     .offered = OfferedBy::Colour,
     .automatic = true,
     .exportedMin = 0},
    {.type = kControlBlue,
     .name = "WB_B",
     .description = "White balance: Blue",
     .word = "blue",
     .exported = CONTROL_WB_BLUE,
     .offered = OfferedBy::Colour,
     .automatic = true,
     .exportedMin = 0},
    {.type = kControlBrightness,
     .name = "Brightness",
     .description = "Brightness",
     .word = "offset",
     .exported = CONTROL_BRIGHTNESS,
     .offered = OfferedBy::WithBrightness,
     .exportedMin = 0},
    {.type = kControlBandwidth,
     .name = "BandWidth",
     .description = "USB bandwidth percentage",
     .word = "bandwidth",
     .exported = CONTROL_BANDWIDTH,
     .unit = ControlUnit::kPercent,
     .automatic = true},
    {.type = kControlFlip,
     .name = "Flip",
     .description = "Flip: 0->None 1->Horiz 2->Vert 3->Both",
     .range = {{0, 3, 0}}},
    {.type = kControlOverClock,
     .name = "OverCLK",
     .description = "Set over clocking percentage",
     .word = "overclock",
     .exported = CONTROL_OVERCLOCK,
     .unit = ControlUnit::kPercent,
     .offered = OfferedBy::None,
     .range = {{0, 30, 0}}},
    {.type = kControlAutoMaxGain,
     .name = "AutoExpMaxGain",
     .description = "Auto exposure maximum gain value",
     .word = "auto-max-gain"},
    {.type = kControlAutoMaxExposure,
     .name = "AutoExpMaxExp",
     .description = "Auto exposure maximum exposure value(unit second)",
     .word = "auto-max-exposure",
     .unit = ControlUnit::kSeconds,
     .range = {{1, 60, 30}}}, // and no longer than the model exposes
    {.type = kControlAutoBrightness,
     .name = "AutoExpMaxBrightness",
     .description = "Auto exposure maximum brightness value",
     .word = "auto-brightness",
     .range = {{50, 160, 100}}},
    {.type = kControlHardwareBin,
     .name = "HardwareBin",
     .description = "Is hardware bin2:0->No 1->Yes",
     .word = "hardware-bin",
     .exported = CONTROL_HARDWARE_BIN,
     .unit = ControlUnit::kSwitch,
     .offered = OfferedBy::WithHardwareBin,
     .range = kOnOff,
     .pausesCapture = true},
    {.type = kControlHighSpeed,
     .name = "HighSpeedMode",
     .description = "Is high speed mode:0->No 1->Yes",
     .word = "high-speed",
     .exported = CONTROL_HIGH_SPEED,
     .unit = ControlUnit::kSwitch,
     .range = kOnOff,
     .pausesCapture = true},
    {.type = kControlMonoBin,
     .name = "Mono bin",
     .description = "bin R G G B to one pixel for color camera, color will loss",
     .word = "mono-bin",
     .exported = CONTROL_MONO_BIN,
     .unit = ControlUnit::kSwitch,
     .offered = OfferedBy::Colour,
     .range = kOnOff,
     .announced = false}, // Quirk, kept: it works all the same
    {.type = kControlTemperature,
     .name = "Temperature",
     .description = "Sensor temperature(degrees Celsius)",
     .word = "temperature",
     .exported = CONTROL_TEMPERATURE,
     .unit = ControlUnit::kTenthCelsius,
     .range = {{-500, 1000, 20}},
     .writable = false},
    {.type = kControlCoolerPower,
     .name = "CoolPowerPerc",
     .description = "Cooler power percent",
     .word = "cooler-power",
     .exported = CONTROL_COOLER_POWER,
     .unit = ControlUnit::kPercent,
     .offered = OfferedBy::Cooled,
     .range = {{0, 100, 0}},
     .writable = false},
    {.type = kControlTargetTemp,
     .name = "TargetTemp",
     .description = "Target temperature(cool camera only)",
     .word = "target-temp",
     .exported = CONTROL_TARGET_TEMP,
     .unit = ControlUnit::kCelsius,
     .offered = OfferedBy::Cooled,
     .range = {{-40, 30, 0}}},
    {.type = kControlCoolerOn,
     .name = "Cooler on",
     .description = "turn on/off cooler(cool camera only)",
     .word = "cooler",
     .exported = CONTROL_COOLER_ON,
     .unit = ControlUnit::kSwitch,
     .offered = OfferedBy::Cooled,
     .range = kOnOff},
    {.type = kControlFanOn,
     .name = "Fan on",
     .description = "turn on/off fan(cool camera only)",
     .word = "fan",
     .exported = CONTROL_FAN_ON,
     .unit = ControlUnit::kSwitch,
     .offered = OfferedBy::Cooled,
     .range = kOnOff},
};

} // namespace vsccam
