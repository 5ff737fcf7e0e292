#include "ccd_driver.h"

#include "fits_keys.h"
#include "framing.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>

namespace vscindi {
namespace {

struct FormatWords {
    PixelFormat format;
    const char *name;
    const char *label;
    uint8_t bits;
};
constexpr FormatWords kFormats[] = {{PixelFormat::kRaw16, "RAW16", "Raw 16 bit", 16},
                                    {PixelFormat::kRaw8, "RAW8", "Raw 8 bit", 8},
                                    {PixelFormat::kRgb24, "RGB24", "RGB 24 bit", 8},
                                    {PixelFormat::kY8, "Y8", "Luminance 8 bit", 8}};

constexpr double kMicro = 1e6;
constexpr std::chrono::seconds kLongestToClose{15}; // a camera that was just being opened

INDI_PIXEL_FORMAT StreamFormat(PixelFormat format, const std::optional<vsctool::Mosaic> &mosaic)
{
    if (format == PixelFormat::kRgb24)
        return INDI_RGB;
    if (!mosaic)
        return INDI_MONO;
    constexpr INDI_PIXEL_FORMAT kByRedSite[] = {INDI_BAYER_RGGB, INDI_BAYER_GRBG, INDI_BAYER_GBRG,
                                                INDI_BAYER_BGGR};
    return kByRedSite[mosaic->redRow * 2 + mosaic->redColumn];
}

size_t BytesOf(int width, int height, PixelFormat format)
{
    return static_cast<size_t>(width) * static_cast<size_t>(height) *
           static_cast<size_t>(vsctool::BytesPerPixel(format));
}

int NumberAt(const char *name, const double values[], char *names[], int count)
{
    for (int i = 0; i < count; ++i)
        if (std::strcmp(names[i], name) == 0)
            return static_cast<int>(values[i]);
    return -1;
}

} // namespace

CcdDriver::CcdDriver(int wake)
    : m_buffer(PrimaryCCD, ccdBufferLock), m_pump([this](std::vector<uint8_t> &frame) {
          if (frame.size() != m_streamBytes) {
              ++m_wrongSize; // the base class would read beyond its end
              return;
          }
          if (m_streamsColour)
              for (size_t i = 0; i + 2 < frame.size(); i += 3)
                  std::swap(frame[i], frame[i + 2]);
          Streamer->newFrame(frame.data(), static_cast<uint32_t>(frame.size()));
      }),
      m_wakeDescriptor(wake), m_session(m_buffer, m_pump, [this] {
          constexpr uint64_t kOne = 1;
          (void)!write(m_wakeDescriptor, &kOne, sizeof kOne); // full: it is awake
      })
{
    setVersion(1, 0);
    IEAddCallback(
        m_wakeDescriptor,
        [](int descriptor, void *driver) {
            uint64_t count = 0;
            (void)!read(descriptor, &count, sizeof count); // another turn took it
            static_cast<CcdDriver *>(driver)->TakeEvents();
        },
        this);
}

CcdDriver::~CcdDriver() = default;

void CcdDriver::TakeEvents()
{
    while (const auto event = m_session.Next())
        std::visit([this](const auto &what) { Take(what); }, *event);
    TakeSent();
    m_hasEnded = m_session.HasEnded() && !m_sending;
}

void CcdDriver::Run()
{
    const std::string model = m_session.ModelOf("");
    m_name = "VSC CCD" + (model.empty() ? "" : " " + model.substr(model.rfind(' ') + 1));
    while (!m_hasEnded)
        IEDeferLoop(0, &m_hasEnded);
}

void CcdDriver::EndAtOnce()
{
    m_session.End(0);
    const auto end = std::chrono::steady_clock::now() + kLongestToClose;
    while (!m_session.HasEnded() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

void CcdDriver::End(bool atOnce)
{
    m_session.End(atOnce || !m_open ? 0 : Ramp());
}

// ------------------------------------------------------------------ what clients ask for

bool CcdDriver::ISNewSwitch(const char *device, const char *name, ISState *states, char *names[],
                            int count)
{
    if (device && std::strcmp(device, getDeviceName()) == 0) {
        if (std::strcmp(name, "CONNECTION") == 0)
            return Connecting(states, names, count);
        if (m_open && std::strcmp(name, "CCD_FRAME_RESET") == 0) {
            ResetFrame();
            return true;
        }
    }
    return INDI::CCD::ISNewSwitch(device, name, states, names, count);
}

bool CcdDriver::Connecting(const ISState *states, char *names[], int count)
{
    for (int i = 0; i < count; ++i) {
        if (states[i] != ISS_ON)
            continue;
        const bool wanted = std::strcmp(names[i], "CONNECT") == 0;
        if (wanted == m_open) {
            setConnected(wanted, wanted ? IPS_OK : IPS_IDLE);
        } else if (wanted) {
            setConnected(false, IPS_BUSY);
            m_session.Open(m_choice[0U].getText());
        } else {
            if (Streamer->isBusy())
                Streamer->setStream(false);
            setConnected(true, IPS_BUSY);
            m_session.Close(Ramp());
        }
    }
    return true;
}

bool CcdDriver::ISNewNumber(const char *device, const char *name, double values[], char *names[],
                            int count)
{
    if (device && std::strcmp(device, getDeviceName()) == 0 && m_open) {
        if (std::strcmp(name, "CCD_FRAME") == 0)
            return TakeRegion(values, names, count);
        if (std::strcmp(name, "CCD_BINNING") == 0)
            return TakeBinning(values, names, count);
        if (std::strcmp(name, "CCD_TEMPERATURE") == 0 && m_facts.cooled && count > 0)
            return TakeTarget(values[0]);
        const bool waits = m_sending && !m_whenSent.empty();
        if (std::strcmp(name, "CCD_EXPOSURE") == 0 && waits && count > 0) {
            // What was asked for before it comes before it.
            WhenSent([this, seconds = values[0]]() mutable {
                char element[] = "CCD_EXPOSURE_VALUE";
                char *elements[] = {element};
                ISNewNumber(getDeviceName(), "CCD_EXPOSURE", &seconds, elements, 1);
            });
            return true;
        }
    }
    return INDI::CCD::ISNewNumber(device, name, values, names, count);
}

bool CcdDriver::TakeRegion(const double values[], char *names[], int count)
{
    const auto number = [&](const char *name) { return NumberAt(name, values, names, count); };
    const Region asked{number("WIDTH"), number("HEIGHT"), number("X"), number("Y")};
    if (asked.x < 0 || asked.y < 0 || asked.width <= 0 || asked.height <= 0) {
        TellTrouble("a region needs X, Y, WIDTH and HEIGHT in pixels of the sensor");
        return true;
    }
    m_asked.region = asked;
    RequestFraming();
    return true;
}

bool CcdDriver::TakeBinning(const double values[], char *names[], int count)
{
    const int x = NumberAt("HOR_BIN", values, names, count);
    const int y = NumberAt("VER_BIN", values, names, count);
    if (x != y || std::ranges::find(m_facts.bins, x) == m_facts.bins.end()) {
        TellTrouble(fmt::format("{} has no binning {} x {}", m_facts.model, x, y));
        SetGeometry(m_inForce);
        return true;
    }
    m_asked.bin = x;
    RequestFraming();
    return true;
}

void CcdDriver::ResetFrame()
{
    m_asked.bin = 1;
    m_asked.region = Region{m_facts.maxWidth, m_facts.maxHeight, 0, 0};
    RequestFraming();
}

bool CcdDriver::SetCaptureFormat(uint8_t index)
{
    if (!m_open)
        return true;
    if (Streamer->isBusy()) {
        TellTrouble("stop the video before the format is changed");
        return false;
    }
    const std::string &name = m_CaptureFormats.at(index).name;
    const auto *const format =
        std::ranges::find_if(kFormats, [&](const auto &words) { return name == words.name; });
    m_asked.format = format->format;
    RequestFraming();
    return true;
}

/// Clients are told at once what will be in force; the camera confirms it.
void CcdDriver::RequestFraming()
{
    WhenSent([this] {
        if (Streamer->isBusy()) {
            TellTrouble("stop the video before the region is changed");
            m_asked = m_inForce;
            m_asked.region = OnSensor(*m_inForce.region, m_inForce.bin);
            return SetGeometry(m_inForce);
        }
        Framing framing = m_asked;
        framing.region = FitRegion(m_facts, *m_asked.region, m_asked.bin);
        m_inForce = framing;
        SetGeometry(framing);
        m_session.SetFraming(framing);
    });
}

bool CcdDriver::StartExposure(float seconds)
{
    m_seconds = static_cast<double>(seconds);
    m_begun = Clock::now();
    m_exposing = true;
    PrimaryCCD.setExposureDuration(m_seconds);
    m_session.Expose(++m_exposure, Microseconds(std::llround(m_seconds * kMicro)));
    return true;
}

/// A frame that is under way to here is discarded when it comes.
bool CcdDriver::AbortExposure()
{
    m_exposing = false;
    m_session.AbortExposure();
    return true;
}

IPState CcdDriver::Guide(GuideD direction, uint32_t ms)
{
    const bool northSouth = direction == GUIDE_NORTH || direction == GUIDE_SOUTH;
    ++m_pulses[northSouth ? 0 : 1];
    m_session.Guide(direction, static_cast<int>(ms));
    return IPS_BUSY;
}

bool CcdDriver::TakeTarget(double celsius)
{
    const auto &range = m_facts.controls.at(CONTROL_TARGET_TEMP);
    if (celsius < range.min || celsius > range.max) {
        TellTrouble(
            fmt::format("the cooler's target is between {} and {} C", range.min, range.max));
        Show(TemperatureNP, IPS_ALERT);
        return true;
    }
    m_target = celsius;
    Show(TemperatureNP, IPS_BUSY);
    m_session.Cool(celsius, Ramp());
    return true;
}

/// Degrees a minute; 0: at once.
double CcdDriver::Ramp()
{
    return TemperatureRampNP[size_t{RAMP_SLOPE}].getValue();
}

std::optional<vsctool::Mosaic> CcdDriver::MosaicOfFrames() const
{
    return MosaicIn(m_facts, m_inForce, m_flipX, m_flipY, m_binsWithoutColour);
}

bool CcdDriver::StartStreaming()
{
    const double seconds = Streamer->getTargetExposure();
    const auto mosaic = MosaicOfFrames();
    Streamer->setPixelFormat(StreamFormat(m_inForce.format, mosaic),
                             m_inForce.format == PixelFormat::kRaw16 ? 16 : 8);
    Streamer->setSize(static_cast<uint16_t>(m_inForce.region->width),
                      static_cast<uint16_t>(m_inForce.region->height));
    m_streamsColour = m_inForce.format == PixelFormat::kRgb24;
    m_streamBytes = BytesOf(m_inForce.region->width, m_inForce.region->height, m_inForce.format);
    m_exposing = false;
    m_pump.Start();
    m_session.StartVideo(Microseconds(std::llround(seconds * kMicro)));
    return true;
}

bool CcdDriver::StopStreaming()
{
    m_session.StopVideo();
    m_pump.Stop();
    return true;
}

// ------------------------------------------------------------------ what the session tells

void CcdDriver::Take(const Opened &event)
{
    m_facts = event.facts;
    m_inForce = event.framing;
    m_asked = m_inForce;
    m_asked.region = Region{m_facts.maxWidth, m_facts.maxHeight, 0, 0};
    uint32_t can =
        CCD_CAN_ABORT | CCD_CAN_BIN | CCD_CAN_SUBFRAME | CCD_HAS_ST4_PORT | CCD_HAS_STREAMING;
    can |= m_facts.cooled ? CCD_HAS_COOLER : 0;
    can |= m_facts.colour ? CCD_HAS_BAYER : 0;
    SetCCDCapability(can);
    for (const FormatWords &words : kFormats)
        if (std::ranges::find(m_facts.formats, words.format) != m_facts.formats.end())
            addCaptureFormat({.name = words.name,
                              .label = words.label,
                              .bitsPerPixel = words.bits,
                              .isDefault = words.format == m_inForce.format});
    Streamer->setStreamingExposureEnabled(true);
    SetReadOnly(TemperatureNP, !m_facts.cooled);
    const auto &target = m_facts.controls.at(CONTROL_TARGET_TEMP);
    SetRange(TemperatureNP, target.min, target.max);
    PrimaryCCD.setMinMaxStep("CCD_EXPOSURE", "CCD_EXPOSURE_VALUE", 0.000001,
                             static_cast<double>(m_facts.longestExposure.count()) / kMicro, 1,
                             false);
    PrimaryCCD.setMinMaxStep("CCD_BINNING", "HOR_BIN", 1, m_facts.bins.back(), 1, false);
    PrimaryCCD.setMinMaxStep("CCD_BINNING", "VER_BIN", 1, m_facts.bins.back(), 1, false);
    SetCCDParams(m_facts.maxWidth, m_facts.maxHeight, 16, static_cast<float>(m_facts.pixelUm),
                 static_cast<float>(m_facts.pixelUm));
    const size_t pixels =
        static_cast<size_t>(m_facts.maxWidth) * static_cast<size_t>(m_facts.maxHeight);
    m_buffer.Allocate(pixels * 3); // RGB24, the largest
    m_camera[0U].setText(m_facts.model);
    m_camera[1U].setText(m_facts.port);
    m_camera[2U].setText(m_facts.identity);
    m_camera[3U].setText(m_facts.notVerified);
    m_open = true;
    setConnected(true, IPS_OK);
    updateProperties();
    SetGeometry(m_inForce);
    ShowMosaic();
}

void CcdDriver::Take(const NotOpened &event)
{
    setConnected(false, IPS_ALERT);
    TellTrouble(event.why);
}

/// Not while the base class sends from what it is about to forget.
void CcdDriver::Take(const Closed &)
{
    if (!m_open)
        return;
    WhenSent([this] {
        m_open = false;
        setConnected(false, IPS_IDLE);
        updateProperties();
    });
}

void CcdDriver::Take(const FrameReady &event)
{
    if (!m_exposing || event.facts.exposure != m_exposure) {
        ++m_tooLate;
        m_buffer.Release();
        return;
    }
    m_exposing = false;
    m_sending = true;
    m_sendingSince = Clock::now();
    m_looksFailed = false;
    m_sent = false;
    const size_t bytes = BytesOf(event.facts.width, event.facts.height, event.facts.format);
    PrimaryCCD.setFrameBufferSize(static_cast<uint32_t>(bytes), false);
    PrimaryCCD.setImageExtension("fits");
    ShowTiming(event.facts);
    ExposureComplete(&PrimaryCCD);
    ContinueFastExposure();
}

/// The next exposure of a series runs while the frame of this one is sent; however long that takes,
/// the series goes on.
void CcdDriver::ContinueFastExposure()
{
    if (!IsOn(FastExposureToggleSP, INDI_ENABLED))
        return;
    const double left = ValueOf(FastExposureCountNP);
    if (left <= 1)
        return Show(FastExposureCountNP, IPS_IDLE);
    Show(FastExposureCountNP, IPS_BUSY, left - 1);
    StartExposure(static_cast<float>(m_seconds));
    PrimaryCCD.setExposureLeft(m_seconds);
}

void CcdDriver::Take(const ExposureFailed &event)
{
    if (!m_exposing || event.exposure != m_exposure)
        return;
    m_exposing = false;
    TellTrouble("no frame: " + event.why);
    Show(FastExposureCountNP, IPS_IDLE);
    PrimaryCCD.setExposureFailed();
}

void CcdDriver::Take(const Framed &event)
{
    m_inForce = event.framing;
    WhenSent([this, framing = event.framing] {
        SetGeometry(framing);
        ShowMosaic();
    });
    if (!event.refused.empty()) {
        m_asked = event.framing;
        m_asked.region = OnSensor(*event.framing.region, event.framing.bin);
        TellTrouble(event.refused);
    }
}

void CcdDriver::Take(const PulseEnded &event)
{
    const auto axis = static_cast<size_t>(event.axis);
    m_pulseBroken[axis] |= !event.whole;
    if (--m_pulses[axis] > 0)
        return;
    m_pulses[axis] = 0;
    GuideComplete(event.axis == Axis::NorthSouth ? AXIS_DE : AXIS_RA);
    if (!std::exchange(m_pulseBroken[axis], false))
        return;
    TellTrouble("a guide pulse ended before its time");
    auto property = getNumber(event.axis == Axis::NorthSouth ? "TELESCOPE_TIMED_GUIDE_NS"
                                                             : "TELESCOPE_TIMED_GUIDE_WE");
    property->setState(IPS_ALERT);
    property->apply();
}

void CcdDriver::Take(const Lost &)
{
    TellTrouble(m_facts.model + " was unplugged; everything is set again when it is back");
}

void CcdDriver::Take(const Recovered &event)
{
    if (event.differences.empty())
        LOGF_INFO("%s is back, and set as it was", m_facts.model.c_str());
    else
        TellTrouble("back, but not set as it was: " + event.differences);
}

void CcdDriver::Take(const Trouble &event)
{
    TellTrouble(event.what);
}

void CcdDriver::Take(const Report &event)
{
    if (!m_open)
        return;
    m_status[0U].setText(NameOf(event.state));
    m_status.setState(event.state == State::Recovering ? IPS_BUSY : IPS_OK);
    m_status.apply();
    ShowControls(event.controls);
    ShowMosaic();
    ShowTemperature(event);
    ShowStatistics(event.statistics);
    if (m_exposing) {
        const std::chrono::duration<double> elapsed = Clock::now() - m_begun;
        PrimaryCCD.setExposureLeft(std::max(m_seconds - elapsed.count(), 0.0));
    }
    CheckUpload();
}

// ------------------------------------------------------------------ frames that are sent

/// Regions and sizes that the base class reads while it sends a frame change after that.
void CcdDriver::WhenSent(std::function<void()> work)
{
    if (m_sending)
        m_whenSent.push_back(std::move(work));
    else
        work();
}

/// On the thread that has sent it.
void CcdDriver::UploadComplete(INDI::CCDChip *)
{
    m_sent = true;
    constexpr uint64_t kOne = 1;
    (void)!write(m_wakeDescriptor, &kOne, sizeof kOne);
}

void CcdDriver::TakeSent()
{
    if (!m_sending || !m_sent)
        return;
    m_sending = false;
    m_buffer.Release();
    if (m_exposing)
        PrimaryCCD.setExposureLeft(m_seconds); // the base class has just called it complete
    else if (IsOn(FastExposureToggleSP, INDI_ENABLED))
        PrimaryCCD.setExposureComplete(); // which it leaves out then
    for (const auto &work : std::exchange(m_whenSent, {}))
        work();
}

/// The base class does not tell when it cannot send or save a frame.
void CcdDriver::CheckUpload()
{
    using namespace std::chrono_literals;
    if (!m_sending || m_sent || Clock::now() - m_sendingSince < 2s || !ccdBufferLock.try_lock())
        return;
    ccdBufferLock.unlock();
    if (!std::exchange(m_looksFailed, true))
        return;
    ++m_notSent;
    TellTrouble("the frame could be neither sent nor saved");
    m_sent = true;
    TakeSent();
    PrimaryCCD.setExposureFailed();
}

void CcdDriver::SetGeometry(const Framing &framing)
{
    const Region region = OnSensor(*framing.region, framing.bin);
    PrimaryCCD.setBin(static_cast<uint8_t>(framing.bin), static_cast<uint8_t>(framing.bin));
    PrimaryCCD.setFrame(static_cast<uint32_t>(region.x), static_cast<uint32_t>(region.y),
                        static_cast<uint32_t>(region.width), static_cast<uint32_t>(region.height));
    PrimaryCCD.setNAxis(framing.format == PixelFormat::kRgb24 ? 3 : 2);
    PrimaryCCD.setBPP(framing.format == PixelFormat::kRaw16 ? 16 : 8);
    if (Streamer && !Streamer->isBusy())
        Streamer->setSize(static_cast<uint16_t>(framing.region->width),
                          static_cast<uint16_t>(framing.region->height));
}

// ------------------------------------------------------------------ what is shown

void CcdDriver::ShowMosaic()
{
    const auto mosaic = MosaicOfFrames();
    const char *const pattern = mosaic ? vsctool::BayerPattern(*mosaic) : "";
    if (!m_facts.colour || std::string_view(TextAt(BayerTP, 2)) == pattern)
        return;
    SetText(BayerTP, 2, pattern);
    Send(BayerTP);
}

void CcdDriver::ShowTiming(const FrameFacts &facts)
{
    m_timing[0U].setValue(vsctool::Seconds(facts.header.asked));
    m_timing[1U].setValue(vsctool::Seconds(facts.header.planned));
    m_timing[2U].setValue(vsctool::Seconds(facts.header.measured.value_or(Microseconds(0))));
    m_timing[3U].setValue(vsctool::Seconds(facts.uncertainty));
    m_timing.setState(IPS_OK);
    m_timing.apply();
    m_timingUtc[0U].setText(vsctool::FormatUtc(facts.header.start));
    m_timingUtc.setState(IPS_OK);
    m_timingUtc.apply();
}

void CcdDriver::ShowStatistics(const Statistics &statistics)
{
    const int64_t late = m_tooLate + m_wrongSize;
    const double numbers[] = {static_cast<double>(statistics.frames - late - m_notSent),
                              static_cast<double>(statistics.dropped),
                              static_cast<double>(statistics.discarded + late),
                              static_cast<double>(m_notSent),
                              static_cast<double>(statistics.reconnects),
                              static_cast<double>(statistics.worstGap.count()) / 1000};
    for (size_t i = 0; i < std::size(numbers); ++i)
        m_counts[i].setValue(numbers[i]);
    m_counts.setState(IPS_OK);
    m_counts.apply();
}

void CcdDriver::ShowTemperature(const Report &report)
{
    const auto threshold = TemperatureRampNP[size_t{RAMP_THRESHOLD}].getValue();
    if (report.temperatureC) {
        IPState state = IPS_OK;
        if (m_target && std::abs(*report.temperatureC - *m_target) > threshold)
            state = IPS_BUSY;
        Show(TemperatureNP, state, *report.temperatureC);
    }
    if (!m_facts.cooled)
        return;
    m_coolerPower[0U].setValue(report.coolerPerCent);
    m_coolerPower.setState(report.setPointC ? IPS_BUSY : IPS_IDLE);
    m_coolerPower.apply();
    m_setPoint[0U].setValue(report.setPointC.value_or(0));
    m_setPoint.setState(report.setPointC ? IPS_OK : IPS_IDLE);
    m_setPoint.apply();
    const bool on = report.setPointC && !report.warming;
    m_cooler[0U].setState(on ? ISS_ON : ISS_OFF);
    m_cooler[1U].setState(on ? ISS_OFF : ISS_ON);
    m_cooler.setState(report.warming ? IPS_BUSY : IPS_OK);
    m_cooler.apply();
}

void CcdDriver::TellTrouble(const std::string &what)
{
    LOGF_ERROR("%s", what.c_str());
    m_status[1U].setText(what);
    if (m_open)
        m_status.apply();
}

void CcdDriver::addFITSKeywords(VSCINDI_FITS_ARGUMENTS)
{
    INDI::CCD::addFITSKeywords(VSCINDI_FITS_PASSED);
    vsctool::PictureFacts facts = m_buffer.Facts().header;
    constexpr const char *kTypes[] = {"light", "bias", "dark", "flat"}; // as the base numbers them
    facts.type = kTypes[chip->getFrameType()];
#if VSCINDI_NEW_PROPERTIES
    for (const vsctool::FitsKey &key : vsctool::HeaderOf(facts))
        std::visit([&](const auto &value) { AddRecord(records, key.name, value, key.comment); },
                   key.value);
#else
    PutKeys(*chip->fitsFilePointer(), vsctool::HeaderOf(facts), facts.mosaic.has_value());
#endif
}

} // namespace vscindi
