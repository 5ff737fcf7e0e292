#include "api/session.h"
#include "base/debug_print.h"
#include "cooling/camera_cool.h"

#include <vsccam.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

using namespace vsccam;

namespace {

using Camera = CCameraBase;

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

// The cooler takes its switch and its target together. This is held from the reading of the one
// that stays as it is to the setting of both.
RequestSection g_regulation;

void SetTargetTemp(Camera &camera, int celsius, bool)
{
    const SectionLock lock(g_regulation);
    if (CCameraCool *cooler = Cooler(camera))
        cooler->SetAutoTemp(camera.cooler.state.Now().on, static_cast<float>(celsius));
}

void SetCoolerOn(Camera &camera, int value, bool)
{
    CCameraCool *cooler = Cooler(camera);
    if (!cooler)
        return;
    const SectionLock lock(g_regulation);
    cooler->SetAutoTemp(value > 0, static_cast<float>(camera.cooler.state.Now().targetC));
    if (value <= 0)
        (void)cooler->SetPowerPerc(0.0F); // a host has no way to be told
}

void SetFanOn(Camera &camera, int value, bool)
{
    if (CCameraCool *cooler = Cooler(camera))
        (void)cooler->SetFanOn(value > 0);
}

/// What sets a control here in another way than the newer interface does, nullptr for most.
auto OwnSetter(VSC_CONTROL_TYPE type) -> void (*)(Camera &, int value, bool bAuto)
{
    switch (type) {
    case kControlExposure:
        return SetExposure;
    case kControlTargetTemp:
        return SetTargetTemp;
    case kControlCoolerOn:
        return SetCoolerOn;
    case kControlFanOn:
        return SetFanOn;
    default:
        return nullptr;
    }
}

/// nullptr when there is no such control.
const ControlFacts *FactsOf(Control_TYPE control)
{
    const auto *found = std::ranges::find(kControlList, control, &ControlFacts::exported);
    return found == std::end(kControlList) ? nullptr : found;
}

/// What `ask` says of a control of the open camera, 0 when there is no such control or no camera.
template <class Ask> int OfControl(Control_TYPE control, Ask ask)
{
    const Call camera;
    const ControlFacts *facts = FactsOf(control);
    return facts && camera ? static_cast<int>(ask(*facts, *camera)) : 0;
}

} // namespace

int getValue(Control_TYPE control, bool *pbAuto)
{
    int32_t automatic = 0;
    const int result = OfControl(control, [&](const ControlFacts &facts, Camera &camera) {
        if (facts.type == kControlTemperature) // here always a fresh one
            return static_cast<int32_t>(camera.GetSensorTemp() * 10.0F);
        int32_t value = 0; // of the cooler that a model does not have
        (void)camera.GetControlValue(facts.type, &value, &automatic);
        return value;
    });
    if (pbAuto)
        *pbAuto = automatic != 0;
    return result;
}

void setValue(Control_TYPE control, int value, bool bAuto)
{
    OutputDbgPrint("Set Control %d value %d\n", control, value);
    const ControlFacts *facts = FactsOf(control);
    if (!facts)
        return;
    const Call camera(facts->pausesCapture ? Call::Kind::InTurn : Call::Kind::Beside);
    if (!camera)
        return;
    if (const auto set = OwnSetter(facts->type))
        set(*camera, value, bAuto);
    else
        (void)camera->SetControlValue(facts->type, value, bAuto); // a host has no way to be told
}

int getMin(Control_TYPE control)
{
    return OfControl(control, [](const ControlFacts &facts, Camera &camera) {
        return facts.exportedMin.value_or(RangeOf(camera.model, facts).min);
    });
}

int getMax(Control_TYPE control)
{
    return OfControl(control, [](const ControlFacts &facts, Camera &camera) {
        return RangeOf(camera.model, facts).max;
    });
}

VSC_BOOL isAutoSupported(Control_TYPE control)
{
    return OfControl(control, [](const ControlFacts &facts, Camera &) { return facts.automatic; });
}

VSC_BOOL isAvailable(Control_TYPE control)
{
    return OfControl(control, [](const ControlFacts &facts, Camera &camera) {
        return facts.announced && Offers(camera.model, facts);
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
