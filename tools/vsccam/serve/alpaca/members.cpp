#include "serve/alpaca/members.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace vsctool::serve {

namespace {

using nlohmann::ordered_json;
using Call = AlpacaCall;

[[noreturn]] void NotImplemented(const char *what)
{
    throw AlpacaError(AlpacaError::kNotImplemented, fmt::format("there is no {}", what));
}

[[noreturn]] void Invalid(const std::string &why)
{
    throw AlpacaError(AlpacaError::kInvalidValue, why);
}

void CheckRange(const char *name, double value, double min, double max)
{
    if (!(value >= min && value <= max))
        Invalid(fmt::format("{} {} is outside {} to {}", name, value, min, max));
}

/// Nothing more is to be done.
Job::Work Done()
{
    return nullptr;
}

const CameraFacts &Facts(const Call &call)
{
    return call.device.Facts();
}

std::shared_ptr<const Snapshot> Now(const Call &call)
{
    return call.device.Works().Now();
}

/// What the client has set or got.
template <class Value> Value Own(const Call &call, Value AlpacaClient::*member)
{
    return call.device.With(call.client,
                            [member](const AlpacaClient &client) { return client.*member; });
}

template <class Change> Job::Work Set(const Call &call, Change change)
{
    call.device.With(call.client, change);
    return Done();
}

// ---- controls of the camera

std::optional<ControlState> StateOfControl(const Call &call, const char *word)
{
    for (const ControlNews &news : Now(call)->controls)
        if (word == std::string_view(news.control->word))
            return news.state;
    return std::nullopt;
}

ControlState RequireControl(const Call &call, const char *word)
{
    const auto state = StateOfControl(call, word);
    if (!state)
        NotImplemented(word);
    return *state;
}

template <int ControlState::*Part> ordered_json PartOfControl(const Call &call, const char *word)
{
    return RequireControl(call, word).*Part;
}

Job::Work SetControl(const Call &call, const char *word, const char *parameter)
{
    const int value = call.parameters.Whole(parameter);
    const ControlState state = RequireControl(call, word);
    CheckRange(parameter, value, state.min, state.max);
    const Setting setting = {.control = &FindControl(word), .value = value};
    return [setting](CameraWorks &works) { works.SetControl(setting); };
}

// ---- what the sensor is

ordered_json SensorType(const Call &call)
{
    enum { kMonochrome = 0, kColour = 1, kRggb = 2 };
    const PixelFormat format = Own(call, &AlpacaClient::format);
    const auto blends = StateOfControl(call, "mono-bin");
    const bool isBlended = blends && blends->value != 0 && Own(call, &AlpacaClient::bin) > 1;
    if (format == PixelFormat::kRgb24)
        return kColour;
    return Facts(call).colour && format != PixelFormat::kY8 && !isBlended ? kRggb : kMonochrome;
}

template <int Mosaic::*Part> ordered_json BayerOffset(const Call &call)
{
    if (!Facts(call).colour)
        NotImplemented("mosaic");
    const PictureForm form = Now(call)->form;
    return MosaicOf(Facts(call).bayerCode, form.flipX, form.flipY).*Part;
}

/// Steps of the converter fill the upper bits of a sample.
int UnusedBits(const Call &call)
{
    const int bits = Facts(call).adcBits;
    return bits > 0 && bits < 16 ? 16 - bits : 0;
}

ordered_json MaxAdu(const Call &call)
{
    const int unused = UnusedBits(call);
    return Own(call, &AlpacaClient::format) == PixelFormat::kRaw16 ? 0xFFFF >> unused << unused
                                                                   : 0xFF;
}

ordered_json ElectronsPerAdu(const Call &call)
{
    if (Facts(call).electronsPerAdu <= 0 || Own(call, &AlpacaClient::format) != PixelFormat::kRaw16)
        NotImplemented("figure for electrons per ADU");
    return Facts(call).electronsPerAdu / (1 << UnusedBits(call));
}

ordered_json FullWellCapacity(const Call &call)
{
    if (Facts(call).electronsPerAdu <= 0 || Facts(call).adcBits == 0)
        NotImplemented("figure for the full well");
    return std::round(Facts(call).electronsPerAdu * (1 << Facts(call).adcBits));
}

ordered_json SensorName(const Call &call)
{
    return Facts(call).model.substr(Facts(call).model.rfind(' ') + 1);
}

int LargestBin(const Call &call)
{
    return std::ranges::max(Facts(call).bins);
}

Job::Work SetBin(const Call &call, const char *parameter)
{
    const int bin = call.parameters.Whole(parameter);
    if (std::ranges::count(Facts(call).bins, bin) == 0)
        Invalid(fmt::format("the camera has no binning {}", bin));
    return Set(call, [bin](AlpacaClient &client) { client.bin = bin; });
}

template <int Region::*Part> Job::Work SetRegion(const Call &call, const char *parameter)
{
    const int value = call.parameters.Whole(parameter);
    return Set(call, [value](AlpacaClient &client) { client.region.*Part = value; });
}

ordered_json ReadoutModes(const Call &call)
{
    ordered_json modes = ordered_json::array();
    for (const PixelFormat format : Facts(call).formats)
        modes.push_back(FormatName(format));
    return modes;
}

ordered_json ReadoutMode(const Call &call)
{
    const auto &formats = Facts(call).formats;
    return std::ranges::find(formats, Own(call, &AlpacaClient::format)) - formats.begin();
}

Job::Work SetReadoutMode(const Call &call)
{
    const int mode = call.parameters.Whole("ReadoutMode");
    const auto &formats = Facts(call).formats;
    CheckRange("ReadoutMode", mode, 0, static_cast<double>(formats.size()) - 1);
    const PixelFormat format = formats[static_cast<size_t>(mode)];
    return Set(call, [format](AlpacaClient &client) { client.format = format; });
}

// ---- exposures

ordered_json CameraState(const Call &call)
{
    enum { kIdle = 0, kWaiting = 1, kExposing = 2, kError = 5 };
    switch (Now(call)->mode) {
    case Mode::kExposing:
        return kExposing;
    case Mode::kWaiting:
        return kWaiting;
    case Mode::kLost:
        return kError;
    case Mode::kIdle:
    case Mode::kVideo:
        break;
    }
    return Own(call, &AlpacaClient::failure).empty() || Own(call, &AlpacaClient::exposing) ? kIdle
                                                                                           : kError;
}

ordered_json ImageReady(const Call &call)
{
    if (const std::string failure = Own(call, &AlpacaClient::failure); !failure.empty())
        throw AlpacaError(AlpacaError::kOther, failure);
    return Own(call, &AlpacaClient::picture) != nullptr;
}

ordered_json PercentCompleted(const Call &call)
{
    const auto now = Now(call);
    if (!Own(call, &AlpacaClient::exposing) || !now->series)
        return Own(call, &AlpacaClient::picture) ? 100 : 0;
    const std::chrono::duration<double> elapsed = ExposureRun::Clock::now() - now->series->since;
    const double whole = std::max(Seconds(now->series->plan.exposure), 1e-6);
    return static_cast<int>(std::clamp(100 * elapsed.count() / whole, 0.0, 99.0));
}

PictureFacts FactsOfLast(const Call &call)
{
    const auto picture = Own(call, &AlpacaClient::picture);
    if (!picture)
        throw AlpacaError(AlpacaError::kInvalidOperation, "no exposure has ended yet");
    return picture->facts;
}

ordered_json LastDuration(const Call &call)
{
    const PictureFacts facts = FactsOfLast(call);
    return Seconds(facts.measured.value_or(facts.planned));
}

ordered_json LastStart(const Call &call)
{
    return FormatUtc(FactsOfLast(call).start);
}

Job::Work StartExposure(const Call &call)
{
    const double seconds = call.parameters.Number("Duration");
    return call.device.StartExposure(call.client, seconds, call.parameters.Flag("Light"));
}

// ---- guiding and cooling

ordered_json IsPulseGuiding(const Call &call)
{
    return call.device.Works().Guide().IsPulsing();
}

Job::Work PulseGuide(const Call &call)
{
    const int direction = call.parameters.Whole("Direction");
    const int ms = call.parameters.Whole("Duration");
    CheckRange("Direction", direction, 0, 3);
    CheckRange("Duration", ms, 0, static_cast<double>(GuidePort::kLongest.count()));
    if (!call.device.Works().Guide().Pulse(direction, GuidePort::milliseconds(ms)))
        throw AlpacaError(AlpacaError::kInvalidOperation, "a pulse is under way on this axis");
    return Done();
}

CoolingNews Cooling(const Call &call)
{
    const auto news = Now(call)->cooling;
    if (!news)
        NotImplemented("cooler");
    return *news;
}

ordered_json Temperature(const Call &call)
{
    if (!Now(call)->celsius)
        NotImplemented("thermometer");
    return *Now(call)->celsius;
}

Job::Work SetTemperature(const Call &call)
{
    const double celsius = call.parameters.Number("SetCCDTemperature");
    const bool isOn = Cooling(call).on;
    const ControlState range = RequireControl(call, "target-temp");
    CheckRange("SetCCDTemperature", celsius, range.min, range.max);
    const int targetC = static_cast<int>(std::lround(celsius));
    if (isOn)
        return [targetC](CameraWorks &works) { works.SetCooling({.targetC = targetC}); };
    const Setting setting = {.control = &FindControl("target-temp"), .value = targetC};
    return [setting](CameraWorks &works) { works.SetControl(setting); };
}

Job::Work SwitchCooler(const Call &call)
{
    const bool on = call.parameters.Flag("CoolerOn");
    const CoolingWish wish = {.on = on, .targetC = Cooling(call).targetC};
    return [wish](CameraWorks &works) { works.SetCooling(wish); };
}

// ---- what all devices have

Job::Work SetConnected(const Call &call, bool connect)
{
    call.device.Connect(call.client, connect);
    return Done();
}

ordered_json DeviceState(const Call &call)
{
    ordered_json state = ordered_json::array();
    const auto add = [&](const char *name, ordered_json (*get)(const Call &)) {
        try {
            state.push_back({{"Name", name}, {"Value", get(call)}});
        } catch (const AlpacaError &) {
            return; // it has none, or none at this moment
        }
    };
    add("CameraState", CameraState);
    add("CCDTemperature", Temperature);
    add("CoolerPower", [](const Call &c) -> ordered_json { return Cooling(c).powerPerCent; });
    add("ImageReady", ImageReady);
    add("IsPulseGuiding", IsPulseGuiding);
    add("PercentCompleted", PercentCompleted);
    const auto now = std::chrono::floor<Microseconds>(std::chrono::system_clock::now());
    state.push_back({{"Name", "TimeStamp"}, {"Value", FormatUtc(now)}});
    return state;
}

// The table's columns: what is got, what is put.
#define GET [](const Call &c) -> ordered_json
#define PUT [](const Call &c) -> Job::Work

constexpr AlpacaMember kMembers[] = {
    // What all devices have; most of it can be asked for before a connection.
    {"action", nullptr,
     PUT{throw AlpacaError(AlpacaError::kActionNotImplemented,
                           "there is no action " + c.parameters.Text("Action"));
} // namespace
, false
} // namespace vsctool::serve
, {"commandblind", nullptr, PUT{(void)c;
NotImplemented("raw command");
}
, false
}
, {"commandbool", nullptr, PUT{(void)c;
NotImplemented("raw command");
}
, false
}
, {"commandstring", nullptr, PUT{(void)c;
NotImplemented("raw command");
}
, false
}
, {"connect", nullptr, PUT{return SetConnected(c, true);
}
, false
}
, {"connected", GET{return c.device.IsConnected(c.client);
}
, PUT
{
    return SetConnected(c, c.parameters.Flag("Connected"));
}
, false
}
, {"connecting", GET{(void)c;
return false;
}
, nullptr, false
}
, {"description", GET{return Facts(c).model + (Facts(c).simulated ? ", simulated" : "");
}
, nullptr, false
}
, {"devicestate", DeviceState}, {"disconnect", nullptr, PUT{return SetConnected(c, false);
}
, false
}
, {"driverinfo", GET{(void)c;
return "vsccam serve, " VSCCAM_VERSION;
}
, nullptr, false
}
, {"driverversion", GET{(void)c;
return VSCCAM_VERSION;
}
, nullptr, false
}
, {"interfaceversion", GET{(void)c;
return 4;
}
, nullptr, false
}
, {"name", GET{return Facts(c).model;
}
, nullptr, false
}
, {"supportedactions", GET{(void)c;
return ordered_json::array();
}
, nullptr, false
}
,
    // What is fixed.
    {"bayeroffsetx", BayerOffset<&Mosaic::redColumn>},
    {"bayeroffsety", BayerOffset<&Mosaic::redRow>}, {"camerastate", CameraState},
    {"cameraxsize", GET{return c.device.Width();
}
}
, {"cameraysize", GET{return c.device.Height();
}
}
, {"canabortexposure", GET{(void)c;
return true;
}
}
, {"canasymmetricbin", GET{(void)c;
return false;
}
}
, {"canfastreadout", GET{(void)c;
return false;
}
}
, {"cangetcoolerpower", GET{return Facts(c).cooled;
}
}
, {"canpulseguide", GET{(void)c;
return true;
}
}
, {"cansetccdtemperature", GET{return Facts(c).cooled;
}
}
, {"canstopexposure", GET{(void)c;
return false;
}
}
, {"electronsperadu", ElectronsPerAdu},
    {"exposuremax", GET{return Seconds(Facts(c).longestExposure);
}
}
, {"exposuremin", GET{return Seconds(Facts(c).shortestExposure);
}
}
, {"exposureresolution", GET{(void)c;
return 1e-6;
}
}
, {"fullwellcapacity", FullWellCapacity}, {"hasshutter", GET{(void)c;
return false;
}
}
, {"maxadu", MaxAdu}, {"maxbinx", GET{return LargestBin(c);
}
}
, {"maxbiny", GET{return LargestBin(c);
}
}
, {"pixelsizex", GET{return Facts(c).pixelUm;
}
}
, {"pixelsizey", GET{return Facts(c).pixelUm;
}
}
, {"readoutmodes", ReadoutModes}, {"sensorname", SensorName}, {"sensortype", SensorType},
    // Settings.
    {"binx", GET{return Own(c, &AlpacaClient::bin);
}
, PUT
{
    return SetBin(c, "BinX");
}
}
, {"biny", GET{return Own(c, &AlpacaClient::bin);
}
, PUT
{
    return SetBin(c, "BinY");
}
}
, {"fastreadout", GET{(void)c;
NotImplemented("fast read-out");
}
, PUT
{
    (void)c.parameters.Flag("FastReadout");
    NotImplemented("fast read-out");
}
}
, {"gain", GET{return PartOfControl<&ControlState::value>(c, "gain");
}
, PUT
{
    return SetControl(c, "gain", "Gain");
}
}
, {"gainmax", GET{return PartOfControl<&ControlState::max>(c, "gain");
}
}
, {"gainmin", GET{return PartOfControl<&ControlState::min>(c, "gain");
}
}
, {"gains", GET{(void)c;
NotImplemented("list of gains: they go from GainMin to GainMax");
}
}
, {"numx", GET{return Own(c, &AlpacaClient::region).width;
}
, PUT
{
    return SetRegion<&Region::width>(c, "NumX");
}
}
, {"numy", GET{return Own(c, &AlpacaClient::region).height;
}
, PUT
{
    return SetRegion<&Region::height>(c, "NumY");
}
}
, {"offset", GET{return PartOfControl<&ControlState::value>(c, "offset");
}
, PUT
{
    return SetControl(c, "offset", "Offset");
}
}
, {"offsetmax", GET{return PartOfControl<&ControlState::max>(c, "offset");
}
}
, {"offsetmin", GET{return PartOfControl<&ControlState::min>(c, "offset");
}
}
, {"offsets", GET{(void)c;
NotImplemented("list of offsets: they go from OffsetMin to OffsetMax");
}
}
, {"readoutmode", ReadoutMode, SetReadoutMode},
    {"startx", GET{return Own(c, &AlpacaClient::region).x;
}
, PUT
{
    return SetRegion<&Region::x>(c, "StartX");
}
}
, {"starty", GET{return Own(c, &AlpacaClient::region).y;
}
, PUT
{
    return SetRegion<&Region::y>(c, "StartY");
}
}
, {"subexposureduration", GET{(void)c;
NotImplemented("sub-exposure");
}
, PUT
{
    (void)c.parameters.Number("SubExposureDuration");
    NotImplemented("sub-exposure");
}
}
,
    // Exposures.
    {"abortexposure", nullptr, PUT{return c.device.AbortExposure(c.client);
}
}
, {"imageready", ImageReady}, {"lastexposureduration", LastDuration},
    {"lastexposurestarttime", LastStart}, {"percentcompleted", PercentCompleted},
    {"startexposure", nullptr, StartExposure}, {"stopexposure", nullptr, PUT{(void)c;
NotImplemented("way to end an exposure early");
}
}
,
    // Guiding and cooling.
    {"ccdtemperature", Temperature}, {"cooleron", GET{return Cooling(c).on;
}
, SwitchCooler
}
, {"coolerpower", GET{return Cooling(c).powerPerCent;
}
}
, {"heatsinktemperature", GET{(void)c;
NotImplemented("thermometer at the heat sink");
}
}
, {"ispulseguiding", IsPulseGuiding}, {"pulseguide", nullptr, PulseGuide},
    {"setccdtemperature", GET{return Cooling(c).targetC;
}
, SetTemperature
}
,
}
;
#undef GET
#undef PUT

} // namespace

std::span<const AlpacaMember> AlpacaMembers()
{
    return kMembers;
}

} // namespace vsctool::serve
