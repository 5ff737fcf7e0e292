#include "core/controls.h"

#include "base/debug_print.h"
#include "core/camera_base.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <mutex>

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
template <bool (Camera::*Flag)() const> int32_t GetFlag(Camera &camera, int32_t *)
{
    return (camera.*Flag)() ? 1 : 0;
}
template <int (Camera::*Number)() const> int32_t GetNumber(Camera &camera, int32_t *)
{
    return (camera.*Number)();
}
template <int (Camera::*Channel)() const> int32_t GetBalance(Camera &camera, int32_t *pbAuto)
{
    *pbAuto = camera.WhiteBalanceAuto();
    return (camera.*Channel)();
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

/// The three limits of automatic exposure, in the order of their controls.
struct AutoLimits {
    int values[3];

    explicit AutoLimits(const Camera &camera)
    {
        camera.GetAutoPara(&values[0], &values[1], &values[2]);
    }
};
template <int Which> int32_t GetAutoLimit(Camera &camera, int32_t *)
{
    return AutoLimits(camera).values[Which];
}
template <int Which> bool SetAutoLimit(Camera &camera, int32_t value, bool)
{
    AutoLimits limits(camera);
    limits.values[Which] = value;
    camera.SetAutoPara(limits.values[0], limits.values[1], limits.values[2]);
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
    *pbAuto = camera.ExposureAuto();
    return static_cast<int32_t>(camera.ExposureUs());
}

int32_t GetBandwidth(Camera &camera, int32_t *pbAuto)
{
    int percent = 0;
    bool automatic = false;
    (void)camera.GetFPSPerc(&percent, &automatic); // models without the control report 0
    *pbAuto = automatic;
    return percent;
}

template <auto Set> bool SetBalance(Camera &camera, int32_t value, bool bAuto)
{
    (camera.*Set)(value, bAuto);
    return true; // Quirk, kept: never a refusal
}

bool SetMonoBin(Camera &camera, int32_t value, bool)
{
    camera.SetMonoBin(value >= 1);
    return true;
}

constexpr int32_t kFlipH = 1;
constexpr int32_t kFlipV = 2;

int32_t GetFlip(Camera &camera, int32_t *)
{
    return (camera.FlipH() ? kFlipH : 0) | (camera.FlipV() ? kFlipV : 0);
}

bool SetFlip(Camera &camera, int32_t value, bool)
{
    if (value >= 0 && value <= (kFlipH | kFlipV))
        camera.SetFlip((value & kFlipH) != 0, (value & kFlipV) != 0);
    return true;
}

constexpr ControlAccess kAccess[] = {
    {kControlGain, GetGain, [](Camera &c, int32_t v, bool a) { return c.SetGain(v, a); },
     kOfModel<&Model::gain>},
    {kControlExposure, GetExposure,
     [](Camera &c, int32_t v, bool a) { return c.SetExposureControl(v, a); },
     kOfModel<&Model::exposureUs>},
    {kControlGamma, [](Camera &c, int32_t *) { return int32_t{c.GetGamma()}; },
     [](Camera &c, int32_t v, bool) { return c.SetGamma(v); }, kOfModel<&Model::gamma>},
    {kControlRed, GetBalance<&Camera::Red>, SetBalance<&Camera::SetRed>,
     BalanceRange<&WhiteBalanceRange::red>},
    {kControlBlue, GetBalance<&Camera::Blue>, SetBalance<&Camera::SetBlue>,
     BalanceRange<&WhiteBalanceRange::blue>},
    {kControlBrightness, GetNumber<&Camera::Brightness>,
     [](Camera &c, int32_t v, bool) { return c.SetBrightness(v); }, kOfModel<&Model::brightness>},
    {kControlBandwidth, GetBandwidth,
     [](Camera &c, int32_t v, bool a) { return c.SetFPSPerc(v, a); }, BandwidthRange},
    {kControlOverClock, [](Camera &, int32_t *) { return int32_t{0}; }, // no model has it
     [](Camera &c, int32_t v, bool) { return c.SetOverCLKPerc(v); }},
    {kControlTemperature,
     [](Camera &c, int32_t *) { return static_cast<int32_t>(c.GetTemp() * 10.0F); }, kNothing},
    {kControlFlip, GetFlip, SetFlip},
    {kControlAutoMaxGain, GetAutoLimit<0>, SetAutoLimit<0>, AutoGainRange},
    {kControlAutoMaxExposure, GetAutoLimit<1>, SetAutoLimit<1>, AutoExposureRange},
    {kControlAutoBrightness, GetAutoLimit<2>, SetAutoLimit<2>},
    {kControlHardwareBin, GetFlag<&Camera::HardwareBin>,
     [](Camera &c, int32_t v, bool) { return c.SetHardwareBin(v >= 1); }},
    {kControlHighSpeed, GetFlag<&Camera::HighSpeed>,
     [](Camera &c, int32_t v, bool) { return c.SetHighSpeedMode(v >= 1); }},
    {kControlCoolerPower,
     [](Camera &c, int32_t *) { return static_cast<int32_t>(c.CoolerPower()); }, kNothing},
    // Quirk, kept: the three of the cooler are announced as writable. The target is taken and
    // forgotten, the two switches are refused: the exported functions set them.
    {kControlTargetTemp, GetNumber<&Camera::TargetTemp>, kNothing},
    {kControlCoolerOn, GetFlag<&Camera::CoolerOn>},
    {kControlMonoBin, GetFlag<&Camera::MonoBin>, SetMonoBin},
    {kControlFanOn, GetFlag<&Camera::FanOn>},
};
static_assert(std::size(kAccess) == kControlTypes);

const ControlAccess *AccessTo(int type)
{
    const auto *found = std::ranges::find(kAccess, type, &ControlAccess::type);
    return found == std::end(kAccess) ? nullptr : found;
}

template <size_t Size> void CopyText(char (&target)[Size], const char *text)
{
    std::snprintf(target, Size, "%s", text);
}

} // namespace

ControlRange RangeOf(const CameraModel &model, const ControlFacts &control)
{
    const ControlAccess &access = *AccessTo(control.type);
    return access.range ? access.range(model) : *control.range;
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
    m_controlCount = 0;
    for (const ControlFacts &control : kControlList) {
        if (Offers(m_model, control))
            m_controlList[static_cast<size_t>(m_controlCount++)] = control.type;
    }
}

bool CCameraBase::GetControlCaps(int index, _VSC_CONTROL_CAPS *caps) const
{
    if (index < 0 || index >= m_controlCount)
        return false;
    caps->type = m_controlList[static_cast<size_t>(index)];
    const ControlFacts &control = FactsOf(caps->type);
    const ControlRange range = RangeOf(m_model, control);
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

bool CCameraBase::SetExposureControl(int32_t us, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection); // what is stored is what is set
    // Quirk, kept: only what was asked for through this interface counts, not what is set by now.
    if (us == m_lastExposureAsked && bAuto == m_lastExposureAutoAsked)
        return true;
    OutputDbgPrint("SetExp->\n");
    m_lastExposureAsked = us;
    m_lastExposureAutoAsked = bAuto;
    return SetExp(static_cast<unsigned long long>(us), bAuto);
}

bool CCameraBase::GetControlValue(VSC_CONTROL_TYPE type, int32_t *pValue, int32_t *pbAuto)
{
    *pbAuto = 0;
    const ControlAccess *control = AccessTo(type);
    if (!control || (FactsOf(type).offered == OfferedBy::Cooled && !m_model.cooled))
        return false;
    *pValue = control->get(*this, pbAuto);
    return true;
}

void CCameraBase::GetCameraProperty(_VSC_CAMERA_INFO *info) const
{
    constexpr int32_t kImageTypes[] = {0, 1, 3, 2, -1}; // every model delivers all of them
    CopyText(info->name, m_model.name);
    info->maxHeight = m_maxSize.height;
    info->maxWidth = m_maxSize.width;
    info->colour = m_model.colour;
    info->bayer = m_model.bayer;
    std::ranges::copy(m_model.bins, info->bins);
    std::ranges::fill(info->imageTypes, -1);
    std::ranges::copy(kImageTypes, info->imageTypes);
    info->pixelSizeUm = m_model.pixelSizeUm;
    info->mechanicalShutter = 0;
    info->guidePort = 1;
    info->cooled = m_model.cooled;
    info->usb3Host = m_usb3Host;
    info->usb3Camera = m_model.usb3Camera;
    info->electronsPerAdu = m_model.electronsPerAdu;
}

bool CCameraBase::LowerBandwidth(int step)
{
    const std::lock_guard lock(m_settingsSection); // the host may be switching it off
    return m_bandwidthAuto &&
           SetControlValue(kControlBandwidth, m_bandwidth - step, true) == kControlSet;
}

} // namespace vsccam
