#include "api/session.h"
#include "base/debug_print.h"
#include "cooling/camera_cool.h"

#include <vsccam.h>

#include <cstddef>
#include <iterator>
#include <mutex>
#include <optional>

using namespace vsccam;

namespace {

using Camera = CCameraBase;

/// A control of the exported interface: the one of the newer interface, but for what stands here.
struct Control {
    VSC_CONTROL_TYPE type;
    std::optional<int> min = {};
    void (*set)(Camera &, int value, bool bAuto) = nullptr;
    bool pausesCapture = false; // while it is set
};

// Quirk, kept: these are reported for every model, whatever it can do.
constexpr int kMin = 0;
constexpr int kMinExposureUs = 64;

/// The cooler of a cooled model, nullptr otherwise.
CCameraCool *Cooler(Camera &camera)
{
    return camera.model.cooled ? static_cast<CCameraCool *>(&camera) : nullptr;
}

void SetExposure(Camera &camera, int us, bool bAuto)
{
    // Sign-extended: a negative exposure is a huge one, which the model clamps.
    (void)camera.SetExp(static_cast<unsigned long long>(us), bAuto);
}

// Held while one of switch and target is set and the other kept as it is.
RequestSection g_regulation;

void SetTargetTemp(Camera &camera, int celsius, bool)
{
    const std::lock_guard lock(g_regulation);
    if (CCameraCool *cooler = Cooler(camera))
        cooler->SetAutoTemp(camera.cooler.state.Now().on, static_cast<float>(celsius));
}

void SetCoolerOn(Camera &camera, int value, bool)
{
    CCameraCool *cooler = Cooler(camera);
    if (!cooler)
        return;
    const std::lock_guard lock(g_regulation);
    cooler->SetAutoTemp(value > 0, static_cast<float>(camera.cooler.state.Now().targetC));
    if (value <= 0)
        (void)cooler->SetPowerPerc(0.0F); // a host has no way to be told
}

void SetFanOn(Camera &camera, int value, bool)
{
    if (CCameraCool *cooler = Cooler(camera))
        (void)cooler->SetFanOn(value > 0);
}

// By Control_TYPE.
constexpr Control kControls[] = {
    {.type = kControlGain, .min = kMin},
    {.type = kControlExposure, .min = kMinExposureUs, .set = SetExposure},
    {.type = kControlGamma, .min = kMin},
    {.type = kControlRed, .min = kMin},
    {.type = kControlBlue, .min = kMin},
    {.type = kControlBrightness, .min = kMin},
    {.type = kControlBandwidth},
    {.type = kControlOverClock},
    {.type = kControlTemperature},
    {.type = kControlHardwareBin, .pausesCapture = true},
    {.type = kControlHighSpeed, .pausesCapture = true},
    {.type = kControlCoolerPower},
    {.type = kControlTargetTemp, .set = SetTargetTemp},
    {.type = kControlCoolerOn, .set = SetCoolerOn},
    {.type = kControlMonoBin},
    {.type = kControlFanOn, .set = SetFanOn},
};
static_assert(std::size(kControls) == CONTROL_FAN_ON + 1);

/// The row of a control, nullptr when there is no such control.
const Control *RowOf(Control_TYPE control)
{
    const bool known = control >= 0 && control < static_cast<int>(std::size(kControls));
    return known ? &kControls[control] : nullptr;
}

/// What `ask` says of a control of the open camera, 0 when there is no such control or no camera.
template <class Ask> int OfControl(Control_TYPE control, Ask ask)
{
    const Call camera;
    const Control *row = RowOf(control);
    return row && camera ? static_cast<int>(ask(*row, *camera)) : 0;
}

} // namespace

int getValue(Control_TYPE control, bool *pbAuto)
{
    int32_t automatic = 0;
    const int result = OfControl(control, [&](const Control &row, Camera &camera) {
        if (row.type == kControlTemperature) // here always a fresh one
            return static_cast<int32_t>(camera.GetSensorTemp() * 10.0F);
        int32_t value = 0; // of the cooler that a model does not have
        (void)camera.GetControlValue(row.type, &value, &automatic);
        return value;
    });
    if (pbAuto)
        *pbAuto = automatic != 0;
    return result;
}

void setValue(Control_TYPE control, int value, bool bAuto)
{
    OutputDbgPrint("Set Control %d value %d\n", control, value);
    const Control *row = RowOf(control);
    if (!row)
        return;
    const Call camera(row->pausesCapture ? Call::Kind::InTurn : Call::Kind::Beside);
    if (camera && row->set)
        row->set(*camera, value, bAuto);
    else if (camera)
        (void)camera->SetControlValue(row->type, value, bAuto);
}

int getMin(Control_TYPE control)
{
    return OfControl(control, [](const Control &row, Camera &camera) {
        return row.min.value_or(RangeOf(camera.model, row.type).min);
    });
}

int getMax(Control_TYPE control)
{
    return OfControl(control, [](const Control &row, Camera &camera) {
        return RangeOf(camera.model, row.type).max;
    });
}

VSC_BOOL isAutoSupported(Control_TYPE control)
{
    return OfControl(control, [](const Control &row, Camera &camera) {
        return HasAuto(camera.model, row.type);
    });
}

VSC_BOOL isAvailable(Control_TYPE control)
{
    // Quirk, kept: binning to mono works, and is not announced.
    return OfControl(control, [](const Control &row, Camera &camera) {
        return row.type != kControlMonoBin && Offers(camera.model, row.type);
    });
}

void setAutoPara(int maxGain, int maxExp, int targetBrightness)
{
    if (const Call camera; camera)
        camera->SetAutoPara(maxGain, maxExp, targetBrightness);
}

void getAutoPara(int *maxGain, int *maxExp, int *targetBrightness)
{
    const Call camera;
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
