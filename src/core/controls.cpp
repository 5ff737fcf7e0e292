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

/// What the interface does with one control. Setters return whether the camera took the value,
/// getters write the auto flag only where the control has one.
struct ControlRow {
    const char *name;
    const char *description;
    ControlRange (*range)(const Model &);
    bool (*available)(const Model &);
    int32_t (*get)(Camera &, int32_t *pbAuto);
    bool (*set)(Camera &, int32_t value, bool bAuto) = nullptr; // not settable here
    bool (*hasAuto)(const Model &) = [](const Model &) { return false; };
    bool writable = true;
    bool ofCooler = false; // has no value without one
};

constexpr auto kAlways = [](const Model &) { return true; };
constexpr auto kNowhere = [](const Model &) { return false; };
constexpr auto kColour = [](const Model &m) { return m.colour; };
constexpr auto kCooled = [](const Model &m) { return m.cooled; };
constexpr auto kNothing = [](Camera &, int32_t, bool) { return true; };
template <int Min, int Max, int Initial>
constexpr auto kFixed = [](const Model &) {
    return ControlRange{Min, Max, Initial};
};
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
constexpr int32_t kLongestAutoExposureS = 60;

ControlRange AutoExposureRange(const Model &model)
{
    return {1, std::min(model.exposureUs.max / kUsPerS, kLongestAutoExposureS), 30};
}

ControlRange AutoGainRange(const Model &model)
{
    return {model.gain.min, model.gain.max, (model.gain.min + model.gain.max) / 2};
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

int32_t GetBandwidth(Camera &camera, int32_t *pbAuto)
{
    int percent = 0;
    bool automatic = false;
    (void)camera.GetFPSPerc(&percent, &automatic); // models without the control report 0
    *pbAuto = automatic;
    return percent;
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

// By VSC_CONTROL_TYPE.
constexpr ControlRow kControls[] = {
    {.name = "Gain",
     .description = "Gain",
     .range = kOfModel<&Model::gain>,
     .available = kAlways,
     .get = GetGain,
     .set = [](Camera &c, int32_t v, bool a) { return c.SetGain(v, a); },
     .hasAuto = kAlways},
    {.name = "Exposure",
     .description = "Exposure Time(us)",
     .range = kOfModel<&Model::exposureUs>,
     .available = kAlways,
     .get =
         [](Camera &c, int32_t *pbAuto) {
             *pbAuto = c.ExposureAuto();
             return static_cast<int32_t>(c.ExposureUs());
         },
     .set = [](Camera &c, int32_t v, bool a) { return c.SetExposureControl(v, a); },
     .hasAuto = kAlways},
    {.name = "Gamma",
     .description = "Gamma",
     .range = kOfModel<&Model::gamma>,
     .available = kAlways,
     .get = [](Camera &c, int32_t *) { return int32_t{c.GetGamma()}; },
     .set = [](Camera &c, int32_t v, bool) { return c.SetGamma(v); }},
    {.name = "WB_R",
     .description = "White balance: Red",
     .range =
         [](const Model &m) {
             return ControlRange{m.whiteBalance.min, m.whiteBalance.max, m.whiteBalance.red};
         },
     .available = kColour,
     .get = GetBalance<&Camera::Red>,
     .set =
         [](Camera &c, int32_t v, bool a) {
             c.SetRed(v, a);
             return true; // Quirk, kept: never a refusal
         },
     .hasAuto = kAlways},
    {.name = "WB_B",
     .description = "White balance: Blue",
     .range =
         [](const Model &m) {
             return ControlRange{m.whiteBalance.min, m.whiteBalance.max, m.whiteBalance.blue};
         },
     .available = kColour,
     .get = GetBalance<&Camera::Blue>,
     .set =
         [](Camera &c, int32_t v, bool a) {
             c.SetBlue(v, a);
             return true; // Quirk, kept: as above
         },
     .hasAuto = kAlways},
    {.name = "Brightness",
     .description = "Brightness",
     .range = kOfModel<&Model::brightness>,
     .available = [](const Model &m) { return m.hasBrightness; },
     .get = GetNumber<&Camera::Brightness>,
     .set = [](Camera &c, int32_t v, bool) { return c.SetBrightness(v); }},
    {.name = "BandWidth",
     .description = "USB bandwidth percentage",
     .range =
         [](const Model &m) {
             return ControlRange{m.bandwidth.min, m.bandwidth.max, 50};
         },
     .available = kAlways,
     .get = GetBandwidth,
     .set = [](Camera &c, int32_t v, bool a) { return c.SetFPSPerc(v, a); },
     .hasAuto = kAlways},
    {.name = "OverCLK",
     .description = "Set over clocking percentage",
     .range = kFixed<0, 30, 0>,
     .available = kNowhere,
     .get = GetNumber<&Camera::OverClock>,
     .set = [](Camera &c, int32_t v, bool) { return c.SetOverCLKPerc(v); }},
    {.name = "Temperature",
     .description = "Sensor temperature(degrees Celsius)",
     .range = kFixed<-500, 1000, 20>,
     .available = kAlways,
     .get = [](Camera &c, int32_t *) { return static_cast<int32_t>(c.GetTemp() * 10.0F); },
     .set = kNothing,
     .writable = false},
    {.name = "Flip",
     .description = "Flip: 0->None 1->Horiz 2->Vert 3->Both",
     .range = kFixed<0, 3, 0>,
     .available = kAlways,
     .get = GetFlip,
     .set = SetFlip},
    {.name = "AutoExpMaxGain",
     .description = "Auto exposure maximum gain value",
     .range = AutoGainRange,
     .available = kAlways,
     .get = GetAutoLimit<0>,
     .set = SetAutoLimit<0>},
    {.name = "AutoExpMaxExp",
     .description = "Auto exposure maximum exposure value(unit second)",
     .range = AutoExposureRange,
     .available = kAlways,
     .get = GetAutoLimit<1>,
     .set = SetAutoLimit<1>},
    {.name = "AutoExpMaxBrightness",
     .description = "Auto exposure maximum brightness value",
     .range = kFixed<50, 160, 100>,
     .available = kAlways,
     .get = GetAutoLimit<2>,
     .set = SetAutoLimit<2>},
    {.name = "HardwareBin",
     .description = "Is hardware bin2:0->No 1->Yes",
     .range = kFixed<0, 1, 0>,
     .available = [](const Model &m) { return m.hasHardwareBin; },
     .get = GetFlag<&Camera::HardwareBin>,
     .set = [](Camera &c, int32_t v, bool) { return c.SetHardwareBin(v >= 1); }},
    {.name = "HighSpeedMode",
     .description = "Is high speed mode:0->No 1->Yes",
     .range = kFixed<0, 1, 0>,
     .available = kAlways,
     .get = GetFlag<&Camera::HighSpeed>,
     .set = [](Camera &c, int32_t v, bool) { return c.SetHighSpeedMode(v >= 1); }},
    {.name = "CoolPowerPerc",
     .description = "Cooler power percent",
     .range = kFixed<0, 100, 0>,
     .available = kCooled,
     .get = [](Camera &c, int32_t *) { return static_cast<int32_t>(c.CoolerPower()); },
     .set = kNothing,
     .writable = false,
     .ofCooler = true},
    // Quirk, kept: the three of the cooler are announced as writable. The target is taken and
    // forgotten, the two switches are refused: the older interface sets them.
    {.name = "TargetTemp",
     .description = "Target temperature(cool camera only)",
     .range = kFixed<-40, 30, 0>,
     .available = kCooled,
     .get = GetNumber<&Camera::TargetTemp>,
     .set = kNothing,
     .ofCooler = true},
    {.name = "Cooler on",
     .description = "turn on/off cooler(cool camera only)",
     .range = kFixed<0, 1, 0>,
     .available = kCooled,
     .get = GetFlag<&Camera::CoolerOn>,
     .ofCooler = true},
    {.name = "Mono bin",
     .description = "bin R G G B to one pixel for color camera, color will loss",
     .range = kFixed<0, 1, 0>,
     .available = kColour,
     .get = GetFlag<&Camera::MonoBin>,
     .set =
         [](Camera &c, int32_t v, bool) {
             c.SetMonoBin(v >= 1);
             return true;
         }},
    {.name = "Fan on",
     .description = "turn on/off fan(cool camera only)",
     .range = kFixed<0, 1, 0>,
     .available = kCooled,
     .get = GetFlag<&Camera::FanOn>,
     .ofCooler = true},
};
static_assert(std::size(kControls) == kControlTypes);

// The order in which cameras list their controls.
constexpr VSC_CONTROL_TYPE kListOrder[] = {
    kControlGain,        kControlExposure,    kControlGamma,           kControlRed,
    kControlBlue,        kControlBrightness,  kControlBandwidth,       kControlFlip,
    kControlOverClock,   kControlAutoMaxGain, kControlAutoMaxExposure, kControlAutoBrightness,
    kControlHardwareBin, kControlHighSpeed,   kControlMonoBin,         kControlTemperature,
    kControlCoolerPower, kControlTargetTemp,  kControlCoolerOn,        kControlFanOn,
};
static_assert(std::size(kListOrder) == kControlTypes);

const ControlRow *RowOf(VSC_CONTROL_TYPE type)
{
    return type >= 0 && type < kControlTypes ? &kControls[type] : nullptr;
}

template <size_t Size> void CopyText(char (&target)[Size], const char *text)
{
    std::snprintf(target, Size, "%s", text);
}

} // namespace

ControlRange RangeOf(const CameraModel &model, VSC_CONTROL_TYPE type)
{
    return RowOf(type)->range(model);
}

bool HasAuto(const CameraModel &model, VSC_CONTROL_TYPE type)
{
    return RowOf(type)->hasAuto(model);
}

bool Offers(const CameraModel &model, VSC_CONTROL_TYPE type)
{
    return RowOf(type)->available(model);
}

void CCameraBase::refreshControlList()
{
    m_controlCount = 0;
    for (const VSC_CONTROL_TYPE type : kListOrder) {
        if (Offers(m_model, type))
            m_controlList[static_cast<size_t>(m_controlCount++)] = type;
    }
}

bool CCameraBase::GetControlCaps(int index, _VSC_CONTROL_CAPS *caps) const
{
    if (index < 0 || index >= m_controlCount)
        return false;
    caps->type = m_controlList[static_cast<size_t>(index)];
    const ControlRow &control = *RowOf(caps->type);
    const ControlRange range = control.range(m_model);
    CopyText(caps->name, control.name);
    CopyText(caps->description, control.description);
    caps->maximum = range.max;
    caps->minimum = range.min;
    caps->initial = range.initial;
    caps->autoSupported = control.hasAuto(m_model);
    caps->writable = control.writable;
    return true;
}

int CCameraBase::SetControlValue(VSC_CONTROL_TYPE type, int32_t value, bool bAuto)
{
    const ControlRow *control = RowOf(type);
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
    const ControlRow *control = RowOf(type);
    if (!control || (control->ofCooler && !m_model.cooled))
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
