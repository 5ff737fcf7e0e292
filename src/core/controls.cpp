#include "core/controls.h"

#include "base/debug_print.h"
#include "core/camera_base.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace vsccam {

namespace {

using Camera = CCameraBase;
using Model = CameraModel;

/// How a control reaches the camera. Setters return whether the camera took the value, getters
/// write the auto flag only where the control has one.
struct ControlAccess {
    VSC_CONTROL_TYPE type;
    int32_t (*get)(Camera &, int32_t *pbAuto);
    bool (*set)(Camera &, int32_t value, bool bAuto) = nullptr; // not settable here
    ControlRange (*range)(const Model &) = nullptr;             // where models differ
};

constexpr auto kNothing = [](Camera &, int32_t, bool) { return true; };
template <ControlRange Model::*Field>
constexpr auto kOfModel = [](const Model &m) { return m.*Field; };
template <auto Settings::*Value> int32_t GetSetting(Camera &camera, int32_t *)
{
    return static_cast<int32_t>(camera.settings.Now().*Value);
}
template <auto CoolerState::*Value> int32_t GetCooler(Camera &camera, int32_t *)
{
    return static_cast<int32_t>(camera.cooler.state.Now().*Value);
}
template <int Settings::*Channel> int32_t GetBalance(Camera &camera, int32_t *pbAuto)
{
    const Settings now = camera.settings.Now();
    *pbAuto = now.whiteBalanceAuto;
    return now.*Channel;
}

constexpr int32_t kUsPerS = 1'000'000;

const ControlFacts &FactsOf(VSC_CONTROL_TYPE type)
{
    return *std::ranges::find(kControlList, type, &ControlFacts::type);
}

ControlRange AutoExposureRange(const Model &model)
{
    ControlRange range = *FactsOf(kControlAutoMaxExposure).range;
    range.max = std::min(model.exposureUs.max / kUsPerS, range.max);
    return range;
}

ControlRange AutoGainRange(const Model &model)
{
    return {model.gain.min, model.gain.max, (model.gain.min + model.gain.max) / 2};
}

template <int WhiteBalanceRange::*Initial> ControlRange BalanceRange(const Model &model)
{
    const WhiteBalanceRange &range = model.whiteBalance;
    return {range.min, range.max, range.*Initial};
}

ControlRange BandwidthRange(const Model &model)
{
    return {model.bandwidth.min, model.bandwidth.max, 50};
}

template <int AutoLimits::*Limit> int32_t GetAutoLimit(Camera &camera, int32_t *)
{
    return camera.settings.Now().autoLimits.*Limit;
}
template <int AutoLimits::*Limit> bool SetAutoLimit(Camera &camera, int32_t value, bool)
{
    camera.settings.With([value](Settings &s) { s.autoLimits.*Limit = value; });
    return true;
}

int32_t GetGain(Camera &camera, int32_t *pbAuto)
{
    bool automatic = false;
    const int gain = camera.GetGain(&automatic);
    *pbAuto = automatic;
    return gain;
}

int32_t GetExposure(Camera &camera, int32_t *pbAuto)
{
    const Settings now = camera.settings.Now();
    *pbAuto = now.exposureAuto;
    return static_cast<int32_t>(now.exposureUs);
}

/// Sets an exposure unless it is the one that was asked for last.
bool SetExposure(Camera &camera, int32_t us, bool bAuto)
{
    const Programming::Scope scope(camera.programming); // what is kept is what is set
    ControlListing &controls = camera.controls;
    // Quirk, kept: only what was asked for through this interface counts, not what is set by now.
    if (us == controls.exposureAskedUs && bAuto == controls.exposureAutoAsked)
        return true;
    OutputDbgPrint("SetExp->\n");
    controls.exposureAskedUs = us;
    controls.exposureAutoAsked = bAuto;
    return camera.SetExp(static_cast<unsigned long long>(us), bAuto);
}

int32_t GetBandwidth(Camera &camera, int32_t *pbAuto)
{
    int percent = 0;
    bool automatic = false;
    (void)camera.GetFPSPerc(&percent, &automatic); // models without the control report 0
    *pbAuto = automatic;
    return percent;
}

/// Sets one part of the balance, and whether both set themselves.
bool SetRed(Camera &camera, int32_t red, bool bAuto)
{
    const Programming::Scope scope(camera.programming); // the automatic may be setting both
    (void)camera.SetRGBBalance(red, camera.settings.Now().blue, bAuto);
    return true; // Quirk, kept: never a refusal
}

bool SetBlue(Camera &camera, int32_t blue, bool bAuto)
{
    const Programming::Scope scope(camera.programming); // as above
    (void)camera.SetRGBBalance(camera.settings.Now().red, blue, bAuto);
    return true; // Quirk, kept: as above
}

bool SetMonoBin(Camera &camera, int32_t value, bool)
{
    camera.settings.With([value](Settings &s) { s.monoBin = value >= 1; });
    return true;
}

constexpr int32_t kFlipH = 1;
constexpr int32_t kFlipV = 2;

int32_t GetFlip(Camera &camera, int32_t *)
{
    const Settings now = camera.settings.Now();
    return (now.flipH ? kFlipH : 0) | (now.flipV ? kFlipV : 0);
}

bool SetFlip(Camera &camera, int32_t value, bool)
{
    if (value >= 0 && value <= (kFlipH | kFlipV))
        camera.settings.With([value](Settings &s) {
            s.flipH = (value & kFlipH) != 0;
            s.flipV = (value & kFlipV) != 0;
        });
    return true;
}

constexpr ControlAccess kAccess[] = {
    {kControlGain, GetGain, [](Camera &c, int32_t v, bool a) { return c.SetGain(v, a); },
     kOfModel<&Model::gain>},
    {kControlExposure, GetExposure, SetExposure, kOfModel<&Model::exposureUs>},
    {kControlGamma, [](Camera &c, int32_t *) { return int32_t{c.GetGamma()}; },
     [](Camera &c, int32_t v, bool) { return c.SetGamma(v); }, kOfModel<&Model::gamma>},
    {kControlRed, GetBalance<&Settings::red>, SetRed, BalanceRange<&WhiteBalanceRange::red>},
    {kControlBlue, GetBalance<&Settings::blue>, SetBlue, BalanceRange<&WhiteBalanceRange::blue>},
    {kControlBrightness, GetSetting<&Settings::brightness>,
     [](Camera &c, int32_t v, bool) { return c.SetBrightness(v); }, kOfModel<&Model::brightness>},
    {kControlBandwidth, GetBandwidth,
     [](Camera &c, int32_t v, bool a) { return c.SetFPSPerc(v, a); }, BandwidthRange},
    {kControlOverClock, [](Camera &, int32_t *) { return int32_t{0}; }, // no model has it
     [](Camera &c, int32_t v, bool) { return c.SetOverCLKPerc(v); }},
    {kControlTemperature,
     [](Camera &c, int32_t *) { return static_cast<int32_t>(c.GetTemp() * 10.0F); }, kNothing},
    {kControlFlip, GetFlip, SetFlip},
    {kControlAutoMaxGain, GetAutoLimit<&AutoLimits::maxGain>, SetAutoLimit<&AutoLimits::maxGain>,
     AutoGainRange},
    {kControlAutoMaxExposure, GetAutoLimit<&AutoLimits::maxExposureS>,
     SetAutoLimit<&AutoLimits::maxExposureS>, AutoExposureRange},
    {kControlAutoBrightness, GetAutoLimit<&AutoLimits::targetBrightness>,
     SetAutoLimit<&AutoLimits::targetBrightness>},
    {kControlHardwareBin, GetSetting<&Settings::hardwareBin>,
     [](Camera &c, int32_t v, bool) { return c.SetHardwareBin(v >= 1); }},
    {kControlHighSpeed, GetSetting<&Settings::highSpeed>,
     [](Camera &c, int32_t v, bool) { return c.SetHighSpeedMode(v >= 1); }},
    {kControlCoolerPower, GetCooler<&CoolerState::powerPercent>, kNothing},
    // Quirk, kept: the three of the cooler are announced as writable. The target is taken and
    // forgotten, the two switches are refused: the exported functions set them.
    {kControlTargetTemp, GetCooler<&CoolerState::targetC>, kNothing},
    {kControlCoolerOn, GetCooler<&CoolerState::on>},
    {kControlMonoBin, GetSetting<&Settings::monoBin>, SetMonoBin},
    {kControlFanOn, GetCooler<&CoolerState::fanOn>},
};

constexpr const ControlAccess *AccessTo(int type)
{
    const auto *found = std::ranges::find(kAccess, type, &ControlAccess::type);
    return found == std::end(kAccess) ? nullptr : found;
}

constexpr bool HasAccess(const ControlFacts &control)
{
    return AccessTo(control.type) != nullptr;
}
static_assert(std::size(kAccess) == kControlTypes);
static_assert(std::ranges::all_of(kControlList, HasAccess));

template <size_t Size> void CopyText(char (&target)[Size], const char *text)
{
    std::snprintf(target, Size, "%s", text);
}

} // namespace

ControlRange RangeOf(const CameraModel &model, const ControlFacts &control)
{
    const ControlAccess &access = *AccessTo(control.type);
    return access.range ? access.range(model) : control.range.value_or(ControlRange{});
}

bool Offers(const CameraModel &model, const ControlFacts &control)
{
    switch (control.offered) {
    case OfferedBy::All:
        return true;
    case OfferedBy::None:
        return false;
    case OfferedBy::Colour:
        return model.colour;
    case OfferedBy::Cooled:
        return model.cooled;
    case OfferedBy::WithBrightness:
        return model.hasBrightness;
    case OfferedBy::WithHardwareBin:
        return model.hasHardwareBin;
    }
    return false;
}

void CCameraBase::refreshControlList()
{
    controls.count = 0;
    for (const ControlFacts &control : kControlList) {
        if (Offers(model, control))
            controls.types[static_cast<size_t>(controls.count++)] = control.type;
    }
}

bool CCameraBase::GetControlCaps(int index, _VSC_CONTROL_CAPS *caps) const
{
    if (index < 0 || index >= controls.count)
        return false;
    caps->type = controls.types[static_cast<size_t>(index)];
    const ControlFacts &control = FactsOf(caps->type);
    const ControlRange range = RangeOf(model, control);
    CopyText(caps->name, control.name);
    CopyText(caps->description, control.description);
    caps->maximum = range.max;
    caps->minimum = range.min;
    caps->initial = range.initial;
    caps->autoSupported = control.automatic;
    caps->writable = control.writable;
    return true;
}

int CCameraBase::SetControlValue(VSC_CONTROL_TYPE type, int32_t value, bool bAuto)
{
    const ControlAccess *control = AccessTo(type);
    if (!control || !control->set)
        return kControlNotSettable;
    return control->set(*this, value, bAuto) ? kControlSet : kControlRefused;
}

bool CCameraBase::GetControlValue(VSC_CONTROL_TYPE type, int32_t *pValue, int32_t *pbAuto)
{
    *pbAuto = 0;
    const ControlAccess *control = AccessTo(type);
    if (!control || (FactsOf(type).offered == OfferedBy::Cooled && !model.cooled))
        return false;
    *pValue = control->get(*this, pbAuto);
    return true;
}

void CCameraBase::GetCameraProperty(_VSC_CAMERA_INFO *info) const
{
    constexpr int32_t kImageTypes[] = {0, 1, 3, 2, -1}; // every model delivers all of them
    CopyText(info->name, model.name);
    info->maxHeight = MaxSizeOf(model).height;
    info->maxWidth = MaxSizeOf(model).width;
    info->colour = model.colour;
    info->bayer = model.bayer;
    std::ranges::copy(model.bins, info->bins);
    std::ranges::fill(info->imageTypes, -1);
    std::ranges::copy(kImageTypes, info->imageTypes);
    info->pixelSizeUm = model.pixelSizeUm;
    info->mechanicalShutter = 0;
    info->guidePort = 1;
    info->cooled = model.cooled;
    info->usb3Host = settings.Now().usb3Host;
    info->usb3Camera = model.usb3Camera;
    info->electronsPerAdu = model.electronsPerAdu;
}

} // namespace vsccam
