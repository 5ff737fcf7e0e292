#include "api/session.h"
#include "base/debug_print.h"
#include "cooling/camera_cool.h"

#include <vsccam.h>

#include <cstddef>
#include <iterator>

using namespace vsccam;

namespace {

constexpr int kMinExposureUs = 64; // Quirk, kept: reported for every model, whatever it can do
constexpr int kMaxOverClock = 30;

/// The cooler of a cooled model, nullptr otherwise.
CCameraCool *Cooler(CCameraBase &camera)
{
    return camera.Model().cooled ? static_cast<CCameraCool *>(&camera) : nullptr;
}

/// What the exported functions do with one control. Getters write the auto flag only where the
/// control has one.
struct Control {
    int (*get)(CCameraBase &, bool *pbAuto);
    void (*set)(CCameraBase &, int value, bool bAuto);
    int (*min)(const CameraModel &);
    int (*max)(const CameraModel &);
    bool (*available)(const CameraModel &);
    bool (*autoSupported)(const CameraModel &);
};

int GetExposure(CCameraBase &camera, bool *pbAuto)
{
    *pbAuto = camera.ExposureAuto();
    return static_cast<int>(camera.ExposureUs());
}

int GetBandwidth(CCameraBase &camera, bool *pbAuto)
{
    int percent = 0;
    (void)camera.GetFPSPerc(&percent, pbAuto); // models without the control report 0
    return percent;
}

template <int (CCameraBase::*Channel)() const> int GetBalance(CCameraBase &camera, bool *pbAuto)
{
    *pbAuto = camera.WhiteBalanceAuto();
    return (camera.*Channel)();
}

void SetCoolerOn(CCameraBase &camera, int value)
{
    CCameraCool *cooler = Cooler(camera);
    if (!cooler)
        return;
    cooler->SetAutoTemp(value > 0, static_cast<float>(camera.TargetTemp()));
    if (value <= 0)
        (void)cooler->SetPowerPerc(0.0F);
}

constexpr auto kNothing = [](CCameraBase &, int, bool) {};
constexpr auto kAlways = [](const CameraModel &) { return true; };
constexpr auto kNowhere = [](const CameraModel &) { return false; };
constexpr auto kColour = [](const CameraModel &model) { return model.colour; };
constexpr auto kCooled = [](const CameraModel &model) { return model.cooled; };
template <int Value> constexpr auto kFixed = [](const CameraModel &) { return Value; };

using Camera = CCameraBase;
using Model = CameraModel;

// By Control_TYPE.
constexpr Control kControls[] = {
    {.get = [](Camera &c, bool *a) { return c.GetGain(a); },
     .set = [](Camera &c, int v, bool a) { (void)c.SetGain(v, a); },
     .min = kFixed<0>,
     .max = [](const Model &m) { return m.gain.max; },
     .available = kAlways,
     .autoSupported = kAlways},
    {.get = GetExposure,
     // Sign-extended: a negative exposure is a huge one, which the model clamps.
     .set = [](Camera &c, int v, bool a) { (void)c.SetExp(static_cast<unsigned long long>(v), a); },
     .min = kFixed<kMinExposureUs>,
     .max = [](const Model &m) { return m.exposureUs.max; },
     .available = kAlways,
     .autoSupported = kAlways},
    {.get = [](Camera &c, bool *) { return c.GetGamma(); },
     .set = [](Camera &c, int v, bool) { (void)c.SetGamma(v); },
     .min = kFixed<0>,
     .max = [](const Model &m) { return m.gamma.max; },
     .available = kAlways,
     .autoSupported = kNowhere},
    {.get = GetBalance<&Camera::Red>,
     .set = [](Camera &c, int v, bool a) { (void)c.SetRGBBalance(v, c.Blue(), a); },
     .min = kFixed<0>,
     .max = [](const Model &m) { return m.whiteBalance.max; },
     .available = kColour,
     .autoSupported = kAlways},
    {.get = GetBalance<&Camera::Blue>,
     .set = [](Camera &c, int v, bool a) { (void)c.SetRGBBalance(c.Red(), v, a); },
     .min = kFixed<0>,
     .max = [](const Model &m) { return m.whiteBalance.max; },
     .available = kColour,
     .autoSupported = kAlways},
    {.get = [](Camera &c, bool *) { return c.Brightness(); },
     .set = [](Camera &c, int v, bool) { (void)c.SetBrightness(v); },
     .min = kFixed<0>,
     .max = [](const Model &m) { return m.brightness.max; },
     .available = [](const Model &m) { return m.hasBrightness; },
     .autoSupported = kNowhere},
    {.get = GetBandwidth,
     .set = [](Camera &c, int v, bool a) { (void)c.SetFPSPerc(v, a); },
     .min = [](const Model &m) { return m.bandwidth.min; },
     .max = [](const Model &m) { return m.bandwidth.max; },
     .available = kAlways,
     .autoSupported = [](const Model &m) { return m.hasAutoBandwidth; }},
    {.get = [](Camera &c, bool *) { return c.OverClock(); },
     .set = [](Camera &c, int v, bool) { (void)c.SetOverCLKPerc(v); },
     .min = kFixed<0>,
     .max = kFixed<kMaxOverClock>,
     .available = kNowhere,
     .autoSupported = kNowhere},
    {.get = [](Camera &c, bool *) { return static_cast<int>(c.GetSensorTemp() * 10.0F); },
     .set = kNothing,
     .min = kFixed<-500>,
     .max = kFixed<1000>,
     .available = [](const Model &m) { return m.hasTemperature; },
     .autoSupported = kNowhere},
    {.get = [](Camera &c, bool *) { return c.HardwareBin() ? 1 : 0; },
     .set = [](Camera &c, int v, bool) { (void)c.SetHardwareBin(v > 0); },
     .min = kFixed<0>,
     .max = kFixed<1>,
     .available = [](const Model &m) { return m.hasHardwareBin; },
     .autoSupported = kNowhere},
    {.get = [](Camera &c, bool *) { return c.HighSpeed() ? 1 : 0; },
     .set = [](Camera &c, int v, bool) { (void)c.SetHighSpeedMode(v > 0); },
     .min = kFixed<0>,
     .max = kFixed<1>,
     .available = [](const Model &m) { return m.hasHighSpeed; },
     .autoSupported = kNowhere},
    {.get = [](Camera &c, bool *) { return static_cast<int>(c.CoolerPower()); },
     .set = kNothing,
     .min = kFixed<0>,
     .max = kFixed<100>,
     .available = kCooled,
     .autoSupported = kNowhere},
    {.get = [](Camera &c, bool *) { return c.TargetTemp(); },
     .set =
         [](Camera &c, int v, bool) {
             if (CCameraCool *cooler = Cooler(c))
                 cooler->SetAutoTemp(c.CoolerOn(), static_cast<float>(v));
         },
     .min = kFixed<-40>,
     .max = kFixed<30>,
     .available = kCooled,
     .autoSupported = kNowhere},
    {.get = [](Camera &c, bool *) { return c.CoolerOn() ? 1 : 0; },
     .set = [](Camera &c, int v, bool) { SetCoolerOn(c, v); },
     .min = kFixed<0>,
     .max = kFixed<1>,
     .available = kCooled,
     .autoSupported = kNowhere},
    {.get = [](Camera &c, bool *) { return c.MonoBin() ? 1 : 0; },
     .set = [](Camera &c, int v, bool) { c.SetMonoBin(v > 0); },
     .min = kFixed<0>,
     .max = kFixed<1>,
     .available = kNowhere,
     .autoSupported = kNowhere}, // Quirk, kept: it works, and is not announced
    {.get = [](Camera &c, bool *) { return c.FanOn() ? 1 : 0; },
     .set =
         [](Camera &c, int v, bool) {
             if (CCameraCool *cooler = Cooler(c))
                 (void)cooler->SetFanOn(v > 0);
         },
     .min = kFixed<0>,
     .max = kFixed<1>,
     .available = kCooled,
     .autoSupported = kNowhere},
};
static_assert(std::size(kControls) == CONTROL_FAN_ON + 1);

/// The row of a control, nullptr when there is no such control or no camera.
const Control *RowOf(Control_TYPE control)
{
    const bool known = control >= 0 && control < static_cast<int>(std::size(kControls));
    return known && CurrentCamera() ? &kControls[control] : nullptr;
}

} // namespace

int getValue(Control_TYPE control, bool *pbAuto)
{
    bool ignored = false;
    bool *automatic = pbAuto ? pbAuto : &ignored;
    *automatic = false;
    const Control *row = RowOf(control);
    return row ? row->get(*CurrentCamera(), automatic) : 0;
}

void setValue(Control_TYPE control, int value, bool bAuto)
{
    OutputDbgPrint("Set Control %d value %d\n", control, value);
    if (const Control *row = RowOf(control))
        row->set(*CurrentCamera(), value, bAuto);
}

int getMin(Control_TYPE control)
{
    const Control *row = RowOf(control);
    return row ? row->min(CurrentCamera()->Model()) : 0;
}

int getMax(Control_TYPE control)
{
    const Control *row = RowOf(control);
    return row ? row->max(CurrentCamera()->Model()) : 0;
}

VSC_BOOL isAutoSupported(Control_TYPE control)
{
    const Control *row = RowOf(control);
    return row && row->autoSupported(CurrentCamera()->Model());
}

VSC_BOOL isAvailable(Control_TYPE control)
{
    const Control *row = RowOf(control);
    return row && row->available(CurrentCamera()->Model());
}

void setAutoPara(int maxGain, int maxExp, int targetBrightness)
{
    if (CCameraBase *camera = CurrentCamera())
        camera->SetAutoPara(maxGain, maxExp, targetBrightness);
}

void getAutoPara(int *maxGain, int *maxExp, int *targetBrightness)
{
    CCameraBase *camera = CurrentCamera();
    if (!camera)
        return;
    int values[3] = {};
    camera->GetAutoPara(&values[0], &values[1], &values[2]);
    int *const targets[] = {maxGain, maxExp, targetBrightness};
    for (size_t i = 0; i < std::size(targets); ++i) {
        if (targets[i])
            *targets[i] = values[i];
    }
}
