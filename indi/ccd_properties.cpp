// The properties of the driver beside those of the base class, and what clients ask for with them.
#include "ccd_driver.h"
#include "ramp.h"

#include <algorithm>
#include <iterator>

namespace vscindi {
namespace {

constexpr const char *kControlsTab = "Camera Controls";
constexpr const char *kCoolingTab = "Cooling";
constexpr const char *kAccountTab = "Account";

/// A control in CCD_CONTROLS.
struct Shown {
    Control_TYPE control;
    const char *name;
    const char *label;
};
constexpr Shown kShown[] = {
    {CONTROL_BANDWIDTH, "BANDWIDTH", "USB bandwidth (%)"},
    {CONTROL_HIGH_SPEED, "HIGH_SPEED", "Fast read-out"},
    {CONTROL_HARDWARE_BIN, "HARDWARE_BIN", "Binning by the sensor"},
    {CONTROL_MONO_BIN, "MONO_BIN", "Binning without colour"},
    {CONTROL_GAMMA, "GAMMA", "Gamma"},
    {CONTROL_WB_RED, "WB_RED", "White balance, red"},
    {CONTROL_WB_BLUE, "WB_BLUE", "White balance, blue"},
};
constexpr Shown kAutomatic[] = {
    {CONTROL_GAIN, "AUTO_GAIN", "Gain"},
    {CONTROL_EXPOSURE, "AUTO_EXPOSURE", "Exposure (video)"},
    {CONTROL_WB_RED, "AUTO_WB", "White balance"},
    {CONTROL_BANDWIDTH, "AUTO_BANDWIDTH", "Bandwidth"},
};

} // namespace

bool CcdDriver::initProperties()
{
    INDI::CCD::initProperties();
    SetCCDCapability(CCD_CAN_ABORT | CCD_CAN_BIN | CCD_CAN_SUBFRAME | CCD_HAS_ST4_PORT |
                     CCD_HAS_STREAMING);
    TemperatureRampNP[size_t{RAMP_SLOPE}].setValue(vsctool::kUsualWarmingCPerMin);
    addAuxControls();
    FillProperties();
    return true;
}

/// Fills in what to do when a client has set it.
template <class Property> void CcdDriver::Keep(Property &property, std::function<void()> use)
{
    property.onUpdate([&property, use = std::move(use)] {
        property.setState(IPS_OK);
        use();
        property.apply();
    });
}

void CcdDriver::FillProperties()
{
    const char *const device = getDeviceName();
    char selector[MAXINDIDEVICE] = "";
    IUGetConfigText(device, "CCD_CAMERA", "SELECTOR", selector, MAXINDIDEVICE);
    m_choice[0U].fill("SELECTOR", "MODEL, usb:1-2.3 or id:HEX", selector);
    m_choice.fill(device, "CCD_CAMERA", "Camera", CONNECTION_TAB, IP_RW, 0, IPS_IDLE);
    Keep(m_choice, [this] { saveConfig(true, "CCD_CAMERA"); });
    m_camera[0U].fill("MODEL", "Model", "");
    m_camera[1U].fill("PORT", "Port", "");
    m_camera[2U].fill("IDENTITY", "Identity", "");
    m_camera[3U].fill("NOT_VERIFIED", "Not verified", "");
    m_camera.fill(device, "CCD_CAMERA_INFO", "Open camera", INFO_TAB, IP_RO, 0, IPS_OK);

    m_flip[0U].fill("FLIP_X", "Left to right", ISS_OFF);
    m_flip[1U].fill("FLIP_Y", "Top to bottom", ISS_OFF);
    m_flip.fill(device, "CCD_FLIP", "Mirror", kControlsTab, IP_RW, ISR_NOFMANY, 0, IPS_IDLE);
    Keep(m_flip, [this] {
        m_flipX = m_flip[0U].getState() == ISS_ON;
        m_flipY = m_flip[1U].getState() == ISS_ON;
        m_session.SetFlips(m_flipX, m_flipY);
        ShowMosaic();
    });

    m_cooler[0U].fill("COOLER_ON", "On", ISS_OFF);
    m_cooler[1U].fill("COOLER_OFF", "Off", ISS_ON);
    m_cooler.fill(device, "CCD_COOLER", "Cooler", kCoolingTab, IP_RW, ISR_1OFMANY, 0, IPS_IDLE);
    Keep(m_cooler, [this] {
        if (m_cooler[0U].getState() == ISS_ON)
            return (void)TakeTarget(m_target.value_or(ValueOf(TemperatureNP)));
        m_target.reset();
        m_cooler.setState(IPS_BUSY); // until it is off
        Show(TemperatureNP, IPS_IDLE);
        m_session.Warm(Ramp());
    });
    m_coolerPower[0U].fill("CCD_COOLER_VALUE", "Power (%)", "%.f", 0, 100, 0, 0);
    m_coolerPower.fill(device, "CCD_COOLER_POWER", "Cooler", kCoolingTab, IP_RO, 0, IPS_IDLE);
    m_setPoint[0U].fill("SET_POINT", "Now (C)", "%.f", -50, 50, 0, 0);
    m_setPoint.fill(device, "CCD_SET_POINT", "Set point", kCoolingTab, IP_RO, 0, IPS_IDLE);
    m_fan[0U].fill("FAN_ON", "On", ISS_OFF);
    m_fan[1U].fill("FAN_OFF", "Off", ISS_ON);
    m_fan.fill(device, "CCD_FAN", "Fan", kCoolingTab, IP_RW, ISR_1OFMANY, 0, IPS_IDLE);
    Keep(m_fan,
         [this] { m_session.Set(CONTROL_FAN_ON, {.value = m_fan[0U].getState() == ISS_ON}); });

    const char *const names[][2] = {{"FRAMES", "Frames"},
                                    {"DROPPED", "Dropped by the library"},
                                    {"DISCARDED", "Discarded by the driver"},
                                    {"NOT_SENT", "Not sent by the base class"},
                                    {"RECONNECTS", "Reconnects"},
                                    {"WORST_GAP_MS", "Worst gap (ms)"}};
    for (size_t i = 0; i < std::size(names); ++i)
        m_counts[i].fill(names[i][0], names[i][1], "%.f", 0, 1e12, 0, 0);
    m_counts.fill(device, "CCD_STATISTICS", "Statistics", kAccountTab, IP_RO, 0, IPS_IDLE);
    m_status[0U].fill("STATE", "State", NameOf(State::Closed));
    m_status[1U].fill("LAST_ERROR", "Last error", "");
    m_status.fill(device, "CCD_STATUS", "Status", kAccountTab, IP_RO, 0, IPS_IDLE);
    m_timing[0U].fill("ASKED", "Asked for (s)", "%.6f", 0, 1e5, 0, 0);
    m_timing[1U].fill("PLANNED", "Planned (s)", "%.6f", 0, 1e5, 0, 0);
    m_timing[2U].fill("MEASURED", "Measured (s), 0: not", "%.6f", 0, 1e5, 0, 0);
    m_timing[3U].fill("UNCERTAINTY", "Start, +- (s)", "%.6f", 0, 1e5, 0, 0);
    m_timing.fill(device, "CCD_TIMING", "Last exposure", kAccountTab, IP_RO, 0, IPS_IDLE);
    m_timingUtc[0U].fill("START", "Start", "");
    m_timingUtc.fill(device, "CCD_TIMING_UTC", "Start (UTC)", kAccountTab, IP_RO, 0, IPS_IDLE);
}

/// What the open model has.
void CcdDriver::FillControls()
{
    const char *const device = getDeviceName();
    const auto &has = m_facts.controls;
    const auto fill = [&](INDI::PropertyNumber &property, size_t i, Control_TYPE control,
                          const char *name, const char *label) {
        const vsctool::ControlState &state = has.at(control);
        property[i].fill(name, label, "%.f", state.min, state.max, 1, state.value);
    };
    fill(m_gain, 0, CONTROL_GAIN, "GAIN", "Gain");
    m_gain.fill(device, "CCD_GAIN", "Gain", kControlsTab, IP_RW, 0, IPS_IDLE);
    Keep(m_gain, [this] {
        m_session.Set(CONTROL_GAIN, {.value = static_cast<int>(m_gain[0U].getValue())});
    });
    fill(m_offset, 0, CONTROL_BRIGHTNESS, "OFFSET", "Offset");
    m_offset.fill(device, "CCD_OFFSET", "Offset", kControlsTab, IP_RW, 0, IPS_IDLE);
    Keep(m_offset, [this] {
        m_session.Set(CONTROL_BRIGHTNESS, {.value = static_cast<int>(m_offset[0U].getValue())});
    });

    m_shownControls.clear();
    m_controls.resize(0);
    for (const Shown &shown : kShown) {
        if (!has.at(shown.control).available)
            continue;
        m_controls.resize(m_shownControls.size() + 1);
        fill(m_controls, m_shownControls.size(), shown.control, shown.name, shown.label);
        m_shownControls.push_back(shown.control);
    }
    m_controls.fill(device, "CCD_CONTROLS", "Controls", kControlsTab, IP_RW, 0, IPS_IDLE);
    m_shownAutomatic.clear();
    m_automatic.resize(0);
    for (const Shown &shown : kAutomatic) {
        if (!has.at(shown.control).hasAutomatic)
            continue;
        m_automatic.resize(m_shownAutomatic.size() + 1);
        m_automatic[m_shownAutomatic.size()].fill(
            shown.name, shown.label, has.at(shown.control).automatic ? ISS_ON : ISS_OFF);
        m_shownAutomatic.push_back(shown.control);
    }
    m_automatic.fill(device, "CCD_AUTO", "Automatic", kControlsTab, IP_RW, ISR_NOFMANY, 0,
                     IPS_IDLE);
    const auto isAutomatic = [this](Control_TYPE control) {
        const auto at = std::ranges::find(m_shownAutomatic, control);
        return at != m_shownAutomatic.end() &&
               m_automatic[static_cast<size_t>(at - m_shownAutomatic.begin())].getState() == ISS_ON;
    };
    // A control that a client sets is what it was set to, unless it is one that sets itself.
    Keep(m_controls, [this, isAutomatic] {
        for (size_t i = 0; i < m_shownControls.size(); ++i)
            m_session.Set(m_shownControls[i], {.value = static_cast<int>(m_controls[i].getValue()),
                                               .automatic = isAutomatic(m_shownControls[i])});
    });
    Keep(m_automatic, [this, isAutomatic] {
        for (const Control_TYPE control : m_shownAutomatic)
            m_session.SetAutomatic(control, isAutomatic(control));
    });
}

std::vector<INDI::Property *> CcdDriver::OwnProperties()
{
    std::vector<INDI::Property *> all = {&static_cast<INDI::Property &>(m_camera)};
    const auto add = [&all](INDI::Property &property) { all.push_back(&property); };
    const auto has = [this](Control_TYPE control) {
        const auto at = m_facts.controls.find(control);
        return at != m_facts.controls.end() && at->second.available;
    };
    if (has(CONTROL_GAIN))
        add(m_gain);
    if (has(CONTROL_BRIGHTNESS))
        add(m_offset);
    add(m_controls);
    add(m_automatic);
    add(m_flip);
    if (m_facts.cooled) {
        add(m_cooler);
        add(m_coolerPower);
        add(m_setPoint);
        add(m_fan);
    }
    add(m_counts);
    add(m_status);
    add(m_timing);
    add(m_timingUtc);
    return all;
}

void CcdDriver::ISGetProperties(const char *device)
{
    INDI::CCD::ISGetProperties(device);
    defineProperty(m_choice);
}

bool CcdDriver::updateProperties()
{
    if (isConnected()) {
        FillControls();
        INDI::CCD::updateProperties();
        if (m_facts.thermometer && !m_facts.cooled)
            defineProperty(&TemperatureNP);
        for (INDI::Property *property : OwnProperties())
            defineProperty(*property);
        return true;
    }
    for (INDI::Property *property : OwnProperties())
        deleteProperty(property->getName());
    if (m_facts.thermometer && !m_facts.cooled)
        deleteProperty("CCD_TEMPERATURE");
    return INDI::CCD::updateProperties();
}

bool CcdDriver::saveConfigItems(FILE *file)
{
    INDI::CCD::saveConfigItems(file);
    m_choice.save(file);
    if (!isConnected())
        return true;
    m_gain.save(file);
    m_offset.save(file);
    m_controls.save(file);
    m_automatic.save(file);
    m_flip.save(file);
    return true;
}

void CcdDriver::ShowControls(const Controls &controls)
{
    const auto update = [&](auto &property, size_t i, double value) {
        const bool changed = property[i].getValue() != value;
        property[i].setValue(value);
        return changed;
    };
    const auto value = [&](Control_TYPE control) { return controls.at(control).value; };
    if (controls.empty())
        return;
    if (update(m_gain, 0, value(CONTROL_GAIN)))
        m_gain.apply();
    if (update(m_offset, 0, value(CONTROL_BRIGHTNESS)))
        m_offset.apply();
    m_binsWithoutColour = value(CONTROL_MONO_BIN) != 0;
    bool changed = false;
    for (size_t i = 0; i < m_shownControls.size(); ++i)
        changed |= update(m_controls, i, value(m_shownControls[i]));
    if (changed)
        m_controls.apply();
    changed = false;
    for (size_t i = 0; i < m_shownAutomatic.size(); ++i) {
        const ISState state = controls.at(m_shownAutomatic[i]).automatic ? ISS_ON : ISS_OFF;
        changed |= m_automatic[i].getState() != state;
        m_automatic[i].setState(state);
    }
    if (changed)
        m_automatic.apply();
    const bool fan = value(CONTROL_FAN_ON) != 0;
    if (m_facts.cooled && fan != (m_fan[0U].getState() == ISS_ON)) {
        m_fan[0U].setState(fan ? ISS_ON : ISS_OFF);
        m_fan[1U].setState(fan ? ISS_OFF : ISS_ON);
        m_fan.apply();
    }
}

} // namespace vscindi
