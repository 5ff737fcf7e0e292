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
    int min;
    int (*max)(const CameraModel &);
    bool (*available)(const CameraModel &);
    bool autoSupported = false;
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
constexpr auto kNever = [](const CameraModel &) { return false; };
constexpr auto kColour = [](const CameraModel &model) { return model.colour; };
constexpr auto kCooled = [](const CameraModel &model) { return model.cooled; };
template <int Value> constexpr auto kMax = [](const CameraModel &) { return Value; };

using Camera = CCameraBase;
using Model = CameraModel;

// By Control_TYPE.
constexpr Control kControls[] = {
    {.get = [](Camera &c, bool *a) { return c.GetGain(a); },
     .set = [](Camera &c, int v, bool a) { (void)c.SetGain(v, a); },
     .min = 0,
     .max = [](const Model &m) { return m.gain.max; },
     .available = kAlways,
     .autoSupported = true},
    {.get = GetExposure,
     // Sign-extended: a negative exposure is a huge one, which the model clamps.
     .set = [](Camera &c, int v, bool a) { (void)c.SetExp(static_cast<unsigned long long>(v), a); },
     .min = kMinExposureUs,
     .max = [](const Model &m) { return m.exposureUs.max; },
     .available = kAlways,
     .autoSupported = true},
    {.get = [](Camera &c, bool *) { return c.GetGamma(); },
     .set = [](Camera &c, int v, bool) { (void)c.SetGamma(v); },
     .min = 0,
     .max = [](const Model &m) { return m.gamma.max; },
     .available = kAlways},
    {.get = GetBalance<&Camera::Red>,
     .set = [](Camera &c, int v, bool a) { (void)c.SetRGBBalance(v, c.Blue(), a); },
     .min = 0,
     .max = [](const Model &m) { return m.whiteBalance.max; },
     .available = kColour,
     .autoSupported = true},
    {.get = GetBalance<&Camera::Blue>,
     .set = [](Camera &c, int v, bool a) { (void)c.SetRGBBalance(c.Red(), v, a); },
     .min = 0,
     .max = [](const Model &m) { return m.whiteBalance.max; },
     .available = kColour,
     .autoSupported = true},
    {.get = [](Camera &c, bool *) { return c.Brightness(); },
     .set = [](Camera &c, int v, bool) { (void)c.SetBrightness(v); },
     .min = 0,
     .max = [](const Model &m) { return m.brightness.max; },
     .available = [](const Model &m) { return m.hasBrightness; }},
    {.get = GetBandwidth,
     .set = [](Camera &c, int v, bool a) { (void)c.SetFPSPerc(v, a); },
     .min = 0, // the model's, see getMin
     .max = [](const Model &m) { return m.bandwidth.max; },
     .available = kAlways}, // auto: the model's, see isAutoSupported
    {.get = [](Camera &c, bool *) { return c.OverClock(); },
     .set = [](Camera &c, int v, bool) { (void)c.SetOverCLKPerc(v); },
     .min = 0,
     .max = kMax<kMaxOverClock>,
     .available = kNever},
    {.get = [](Camera &c, bool *) { return static_cast<int>(c.GetSensorTemp() * 10.0F); },
     .set = kNothing,
     .min = -500,
     .max = kMax<1000>,
     .available = [](const Model &m) { return m.hasTemperature; }},
    {.get = [](Camera &c, bool *) { return c.HardwareBin() ? 1 : 0; },
     .set = [](Camera &c, int v, bool) { (void)c.SetHardwareBin(v > 0); },
     .min = 0,
     .max = kMax<1>,
     .available = [](const Model &m) { return m.hasHardwareBin; }},
    {.get = [](Camera &c, bool *) { return c.HighSpeed() ? 1 : 0; },
     .set = [](Camera &c, int v, bool) { (void)c.SetHighSpeedMode(v > 0); },
     .min = 0,
     .max = kMax<1>,
     .available = [](const Model &m) { return m.hasHighSpeed; }},
    {.get = [](Camera &c, bool *) { return static_cast<int>(c.CoolerPower()); },
     .set = kNothing,
     .min = 0,
     .max = kMax<100>,
     .available = kCooled},
    {.get = [](Camera &c, bool *) { return c.TargetTemp(); },
     .set =
         [](Camera &c, int v, bool) {
             if (CCameraCool *cooler = Cooler(c))
                 cooler->SetAutoTemp(c.CoolerOn(), static_cast<float>(v));
         },
     .min = -40,
     .max = kMax<30>,
     .available = kCooled},
    {.get = [](Camera &c, bool *) { return c.CoolerOn() ? 1 : 0; },
     .set = [](Camera &c, int v, bool) { SetCoolerOn(c, v); },
     .min = 0,
     .max = kMax<1>,
     .available = kCooled},
    {.get = [](Camera &c, bool *) { return c.MonoBin() ? 1 : 0; },
     .set = [](Camera &c, int v, bool) { c.SetMonoBin(v > 0); },
     .min = 0,
     .max = kMax<1>,
     .available = kNever}, // Quirk, kept: it works, and is not announced
    {.get = [](Camera &c, bool *) { return c.FanOn() ? 1 : 0; },
     .set =
         [](Camera &c, int v, bool) {
             if (CCameraCool *cooler = Cooler(c))
                 (void)cooler->SetFanOn(v > 0);
         },
     .min = 0,
     .max = kMax<1>,
     .available = kCooled},
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
    if (!row)
        return 0;
    return control == CONTROL_BANDWIDTH ? CurrentCamera()->Model().bandwidth.min : row->min;
}

int getMax(Control_TYPE control)
{
    const Control *row = RowOf(control);
    return row ? row->max(CurrentCamera()->Model()) : 0;
}

VSC_BOOL isAutoSupported(Control_TYPE control)
{
    const Control *row = RowOf(control);
    if (!row)
        return false;
    return control == CONTROL_BANDWIDTH ? CurrentCamera()->Model().hasAutoBandwidth
                                        : row->autoSupported;
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
