#include "controls.h"

#include "failure.h"
#include "nearest.h"
#include "units.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string_view>
#include <vector>

namespace vsctool {
namespace {

using enum ControlUnit;

constexpr bool HasWord(const NamedControl &control)
{
    return control.word != nullptr;
}

constexpr auto kControls = [] {
    std::array<NamedControl, std::ranges::count_if(vsccam::kControlList, HasWord)> controls{};
    std::ranges::copy_if(vsccam::kControlList, controls.begin(), HasWord);
    return controls;
}();

// The limits of automatic exposure have a function of their own in the library.
constexpr int kAutoLimits = 3;

constexpr bool IsAutoLimit(const NamedControl &control)
{
    return !control.exported;
}
static_assert(std::ranges::count_if(kControls, IsAutoLimit) == kAutoLimits);

size_t WhichAutoLimit(const NamedControl &control)
{
    return static_cast<size_t>(control.type - vsccam::kControlAutoMaxGain);
}

std::array<int, kAutoLimits> AutoLimits()
{
    std::array<int, kAutoLimits> limits{};
    getAutoPara(&limits[0], &limits[1], &limits[2]);
    return limits;
}

ControlState StateOfAutoLimit(const NamedControl &control)
{
    vsccam::ControlRange range = control.range.value_or(vsccam::ControlRange{});
    if (control.type == vsccam::kControlAutoMaxGain)
        range.max = getMax(CONTROL_GAIN);
    else if (control.unit == kSeconds) // at least one, also where exposures are shorter
        range.max = std::clamp(getMax(CONTROL_EXPOSURE) / 1'000'000, range.min, range.max);
    return {.available = true,
            .value = AutoLimits()[WhichAutoLimit(control)],
            .min = range.min,
            .max = range.max};
}

/// Takes a unit off the end, and the blanks before it.
std::string_view WithoutUnit(std::string_view text, std::string_view unit)
{
    if (text.ends_with(unit))
        text.remove_suffix(unit.size());
    while (text.ends_with(' '))
        text.remove_suffix(1);
    return text;
}

int ParseWhole(std::string_view text, const std::string &whole)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        throw Failure(Exit::kUsage, fmt::format("'{}' ends with no whole number", whole));
    return value;
}

int ParseWholeSeconds(const std::string &text, const std::string &whole)
{
    const Microseconds time = ParseTime(text);
    if (time % std::chrono::seconds(1) != Microseconds(0))
        throw Failure(Exit::kUsage, fmt::format("'{}' is set in whole seconds", whole));
    return static_cast<int>(std::min<int64_t>(time.count() / 1'000'000, INT32_MAX));
}

int ParseValue(const NamedControl &control, const std::string &text, const std::string &whole)
{
    switch (control.unit) {
    case kMicroseconds:
        return static_cast<int>(std::clamp<int64_t>(ParseTime(text).count(), 0, INT32_MAX));
    case kSeconds:
        return ParseWholeSeconds(text, whole);
    case kSwitch:
        for (const auto &[word, value] : {std::pair{"on", 1}, {"off", 0}, {"1", 1}, {"0", 0}}) {
            if (text == word)
                return value;
        }
        throw Failure(Exit::kUsage, fmt::format("'{}': a switch is on or off", whole));
    case kPercent:
        return ParseWhole(WithoutUnit(text, "%"), whole);
    case kCelsius:
    case kTenthCelsius:
        return ParseWhole(WithoutUnit(text, "C"), whole);
    case kPlain:
        break;
    }
    return ParseWhole(text, whole);
}

void SetAutoLimit(const NamedControl &control, int value)
{
    std::array<int, kAutoLimits> limits = AutoLimits();
    limits[WhichAutoLimit(control)] = value;
    setAutoPara(limits[0], limits[1], limits[2]);
}

} // namespace

std::span<const NamedControl> AllControls()
{
    return kControls;
}

const NamedControl &FindControl(const std::string &name)
{
    const auto found =
        std::ranges::find_if(kControls, [&](const NamedControl &c) { return name == c.word; });
    if (found != kControls.end())
        return *found;
    std::vector<std::string> words;
    for (const NamedControl &control : kControls)
        words.emplace_back(control.word);
    throw Failure(Exit::kUsage, fmt::format("no control '{}'; {}", name, Suggest(name, words)));
}

ControlState StateOf(const NamedControl &control)
{
    if (IsAutoLimit(control))
        return StateOfAutoLimit(control);
    const Control_TYPE number = *control.exported;
    // Colour cameras have those that the library does not announce.
    const bool unannounced = !control.announced && isColorCam();
    ControlState state = {.available = isAvailable(number) || unannounced};
    if (!state.available)
        return state;
    state.value = getValue(number, &state.automatic);
    state.min = getMin(number);
    state.max = getMax(number);
    state.hasAutomatic = isAutoSupported(number) != 0;
    return state;
}

std::string FormatValue(const NamedControl &control, int value)
{
    switch (control.unit) {
    case kMicroseconds:
        return FormatTime(Microseconds(value));
    case kSeconds:
        return fmt::format("{} s", value);
    case kSwitch:
        return value ? "on" : "off";
    case kPercent:
        return fmt::format("{} %", value);
    case kCelsius:
        return fmt::format("{} C", value);
    case kTenthCelsius:
        return fmt::format("{:.1f} C", value / 10.0);
    case kPlain:
        break;
    }
    return fmt::format("{}", value);
}

Setting ParseSetting(const std::string &text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw Failure(Exit::kUsage, fmt::format("'{}' sets nothing; write gain=200", text));
    const NamedControl &control = FindControl(text.substr(0, equals));
    if (!control.writable)
        throw Failure(Exit::kUsage, fmt::format("{} can only be read", control.word));
    const std::string value = text.substr(equals + 1);
    if (value == "auto")
        return {.control = &control, .automatic = true};
    return {.control = &control, .value = ParseValue(control, value, text)};
}

void Check(const Setting &setting)
{
    const NamedControl &control = *setting.control;
    const ControlState state = StateOf(control);
    if (!state.available)
        throw Failure(Exit::kNotSupported, fmt::format("this camera has no {}", control.word));
    if (setting.automatic && !state.hasAutomatic)
        throw Failure(Exit::kNotSupported, fmt::format("{} cannot set itself", control.word));
    // The library tells one shortest exposure for all models; some go below and clamp it
    // themselves.
    const int smallest = control.exported == CONTROL_EXPOSURE ? 0 : state.min;
    if (!setting.automatic && (setting.value < smallest || setting.value > state.max))
        throw Failure(Exit::kUsage, fmt::format("{} {} is outside {} to {}", control.word,
                                                FormatValue(control, setting.value),
                                                FormatValue(control, state.min),
                                                FormatValue(control, state.max)));
}

void Apply(const Setting &setting)
{
    Check(setting);
    const NamedControl &control = *setting.control;
    const int value = setting.automatic ? StateOf(control).value : setting.value;
    if (IsAutoLimit(control))
        SetAutoLimit(control, value);
    else
        setValue(*control.exported, value, setting.automatic);
}

void Set(const std::string &name, int value)
{
    Apply({.control = &FindControl(name), .value = value});
}

} // namespace vsctool
