#include "models/usb2/usb2_driver.h"

#include "base/debug_print.h"
#include "models/per_model.h"
#include "models/usb2/usb2_registers.h"

#include <algorithm>
#include <iterator>
#include <mutex>

namespace vsccam {

namespace {

constexpr int kPowerUpClockMHz = kUsb2FastInputMHz;
constexpr int kPowerUpLine = usb2::kShortestLine; // as the register lists leave it
constexpr int kExtraLine = 30;                    // clocks, for a link that drops data
constexpr int kPrintedLimitMs = 100;

/// Of the temperature sensor. Quirk, kept: all cameras of a model share the calibration of the
/// first one that was asked.
struct Calibration {
    Shared<uint16_t> at70; // 0: not read yet
    Shared<uint16_t> at55;
    Shared<float> lastC;
};

Calibration &CalibrationOf(const CameraModel &model)
{
    static PerModel<Calibration> calibrations;
    return calibrations.Of(model);
}

} // namespace

Usb2Driver::Usb2Driver(const CameraModel &model, const Usb2Traits &traits)
    : CCameraBase(model), m_traits(traits)
{
    OutputDbgPrint("CCAMERA::CCAMERA()\n");
    m_state.timing = {.clockMHz = kPowerUpClockMHz,
                      .lineLength = kPowerUpLine,
                      .frameLines = model.sensorHeight + usb2::kFrameOverhead};
}

bool Usb2Driver::InitCamera()
{
    if (!IsOpened())
        return false;
    if (!ProgramWhole([this] { return SetUp(); }))
        return false;
    PrintUnverified(m_model);
    OnInitialised();
    return true;
}

bool Usb2Driver::SetUp()
{
    const std::lock_guard lock(m_settingsSection);
    PowerUp();
    (void)GetSensorTemp(); // the first reading takes the calibration along
    SetGamma(GetGamma());
    SetRGBBalance(m_red, m_blue, m_whiteBalanceAuto);
    SetBrightness(m_brightness);
    if (m_usb3Host)
        m_bandwidth = m_model.bandwidth.max;
    if (m_bandwidthAuto)
        m_bandwidth = m_traits.bandwidth.automatic;
    SetCMOSClk();
    SetFPSPerc(m_bandwidth, m_bandwidthAuto);
    SetGain();
    SetExp();
    return true;
}

/// Everything of InitCamera that does not depend on what the host has set.
void Usb2Driver::PowerUp()
{
    const bool fast = SelectInputClock(kUsb2FastInputMHz);
    m_state.inputMHz = fast ? kUsb2FastInputMHz : kUsb2SlowClockMHz;
    PowerUpBoard();
    SendRegisterList(m_traits.powerUp,
                     [this](uint16_t address, uint16_t value) { Write(address, value); });
    m_state.timing.clockMHz = kPowerUpClockMHz;
    m_state.timing.lineLength = kPowerUpLine;
    m_longExposure = false;
}

bool Usb2Driver::RestoreSettings()
{
    if (!IsOpened())
        return false;
    const std::lock_guard lock(m_settingsSection);
    int line = m_state.timing.lineLength;
    const int chosenBefore = ChosenBandwidth();
    const bool usb3HostBefore = m_usb3Host;
    PowerUp();
    FollowLink(chosenBefore, ChosenBandwidth());
    if (m_usb3Host != usb3HostBefore)
        line = LineOfBandwidth(Usb2ClockMHz(ReadoutSize().width, m_output16Bits));
    SelectBitDepth(m_output16Bits);
    SetStartPos(m_startX, m_startY);
    StoreLineLength(line); // at slow exposures nothing else sets it
    Cam_SetResolution();
    SetExp();
    SetGain(); // last: its code depends on the clock that the exposure selected
    OnReconnected();
    return true;
}

bool Usb2Driver::SetResolution(int width, int height, int bin, IMAGE_TYPE type)
{
    const int64_t columns = int64_t{width} * bin;
    const int64_t rows = int64_t{height} * bin;
    if (width <= 0 || height <= 0 || bin <= 0 || columns > m_model.sensorWidth ||
        rows > m_model.sensorHeight || columns * rows % m_traits.frameBlock != 0 ||
        type < kByteImage || type > kRaw16)
        return false;
    const CapturePause pause(*this); // no frame mixes two sizes
    const std::lock_guard lock(m_settingsSection);
    m_width = width;
    m_imageType = type;
    m_height = height;
    m_bin = bin;
    m_startX = (m_model.sensorWidth - width * bin) / 2;
    m_startY = (m_model.sensorHeight - height * bin) / 2;
    SetStartPos(m_startX, m_startY);
    SetOutput16Bits(Is16Bit(type));
    SetOutputSize(ReadoutSize());
    SetCMOSClk();
    SetFPSPerc(m_bandwidth, m_bandwidthAuto);
    WriteFrameLength();
    return true;
}

/// The whole region as it is set, after which clock and timing follow.
void Usb2Driver::Cam_SetResolution()
{
    OutputDbgPrint("SetResolution!\n");
    Write(usb2::kReg3032, 0);
    WriteFrameLength();
    WriteWindowEnd();
    Write(usb2::kReg306E, usb2::kReg306EInit);
    SetOutputSize(ReadoutSize());
    SetCMOSClk();
}

bool Usb2Driver::SetStartPos(int x, int y)
{
    constexpr int kColumnStep = 2;
    return MoveRegion(x, y, kColumnStep, [this] { WriteWindow(); });
}

void Usb2Driver::WriteWindow()
{
    const bool streams = Capturing();
    if (streams)
        Write(usb2::kStreaming, usb2::kStreamOff);
    Write(usb2::kWindowTop, m_startY + usb2::kTopMargin);
    Write(usb2::kWindowLeft, m_startX);
    WriteWindowEnd();
    if (streams) // a worker that ends meanwhile stops it again after this
        Write(usb2::kStreaming, usb2::kStreamOn);
}

void Usb2Driver::WriteWindowEnd()
{
    const Size region = ReadoutSize();
    Write(usb2::kWindowBottom, m_startY + usb2::kTopMargin - 1 + region.height);
    Write(usb2::kWindowRight, m_startX - 1 + region.width);
}

void Usb2Driver::WriteFrameLength()
{
    m_state.timing.frameLines = ReadoutSize().height + usb2::kFrameOverhead;
    PublishTiming();
    Write(usb2::kFrameLength, m_state.timing.frameLines);
}

bool Usb2Driver::SetGain(int gain, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    const Usb2Gain g = Usb2GainFor(gain, m_model.gain, m_state.timing.clockMHz);
    m_gain = g.stored;
    m_gainAuto = bAuto;
    Write(usb2::kCoarseGain, g.coarse);
    Write(usb2::kFineGain, g.fine);
    return true;
}

void Usb2Driver::SetOutput16Bits(bool on)
{
    m_output16Bits = on;
    SelectBitDepth(on);
}

bool Usb2Driver::SetHighSpeedMode(bool on)
{
    const std::lock_guard lock(m_settingsSection);
    if (m_exposureUs >= kUsb2SlowFromUs)
        return false;
    m_highSpeed = on;
    SetCMOSClk();
    return true;
}

/// The clock that suits the region and the bit depth, unless a slow exposure has its own. A sensor
/// that is still timed by the host gets it when it takes over again: until then clock, line and
/// integration belong together as they are.
void Usb2Driver::SetCMOSClk()
{
    if (m_exposureUs >= kUsb2SlowFromUs || m_longExposure)
        return;
    SetCMOSClk(Usb2ClockMHz(ReadoutSize().width, m_output16Bits));
    SetFPSPerc(m_bandwidth, m_bandwidthAuto);
    SetExp();
}

/// The slow clock is that of the board; the others the PLL makes of the board's fast one, or of its
/// only one. How it makes them is this library's reading of its registers, not verified on
/// hardware.
void Usb2Driver::SetCMOSClk(int clockMHz)
{
    const int inputMHz = clockMHz == kUsb2SlowClockMHz ? kUsb2SlowClockMHz : kUsb2FastInputMHz;
    if (inputMHz != m_state.inputMHz && SelectInputClock(inputMHz))
        m_state.inputMHz = inputMHz;
    Write(usb2::kPllDivider, m_state.inputMHz);
    Write(usb2::kPllMultiplier, clockMHz);
    m_state.timing.clockMHz = clockMHz;
    WriteFrameLength();
}

bool Usb2Driver::SetFPSPerc(int percent, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    const bool switchesToAuto = bAuto && !m_bandwidthAuto;
    m_bandwidth = std::clamp(switchesToAuto ? m_traits.bandwidth.automatic : percent,
                             m_model.bandwidth.min, m_model.bandwidth.max);
    m_bandwidthAuto = bAuto;
    // Quirk, kept: at exactly the slow clock's first exposure the line still follows the bandwidth.
    if (m_exposureUs > kUsb2SlowFromUs || m_longExposure)
        return false;
    Usb2Timing &timing = m_state.timing;
    timing.frameLines = ReadoutSize().height + usb2::kFrameOverhead;
    StoreLineLength(LineOfBandwidth(timing.clockMHz));
    const double fps = timing.FramesPerS();
    // Quirk, kept: the line length is printed as "pkg".
    OutputDbgPrint("clk:%d fps:%2.2f size:%2.2f  value:%d pkg:%x \n", timing.clockMHz, fps,
                   ReadoutBytes() * fps / 1e6, static_cast<int>(m_bandwidth),
                   static_cast<unsigned int>(timing.lineLength));
    WriteLines(std::min<int64_t>(timing.Lines(m_exposureUs), UINT16_MAX));
    return true;
}

int Usb2Driver::LineOfBandwidth(int clockMHz)
{
    const int megabytesPerS =
        m_usb3Host ? m_traits.megabytesPerS.usb3Host : m_traits.megabytesPerS.usb2Host;
    const auto &scale = m_traits.bandwidth;
    const int share = scale.percentAtZero + scale.percentPerStep * m_bandwidth;
    return Usb2LineLength(clockMHz, ReadoutBytes(), megabytesPerS, share,
                          ReadoutSize().height + usb2::kFrameOverhead);
}

/// What the library chooses itself on such a link.
int Usb2Driver::ChosenBandwidth() const
{
    return m_usb3Host && !m_bandwidthAuto ? m_model.bandwidth.max : m_traits.bandwidth.automatic;
}

void Usb2Driver::StoreLineLength(int clocks)
{
    m_state.timing.lineLength = clocks;
    PublishTiming();
    Write(usb2::kLineLength, clocks);
}

/// For the worker, which takes no lock.
void Usb2Driver::PublishTiming()
{
    StoreFrameTime(m_state.timing.FrameTimeUs());
    m_state.ownIntegrationUs = m_state.timing.OwnIntegrationUs();
}

bool Usb2Driver::SetExp(unsigned long long microseconds, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    m_exposureAuto = bAuto;
    StoreExposure(microseconds);
    if (m_longExposure) {
        if (!WorkerFollowsExposure())
            FollowExposure();
        return true;
    }
    const bool slow = m_exposureUs >= kUsb2SlowFromUs;
    const bool slowClock = m_state.timing.clockMHz == kUsb2SlowClockMHz;
    if (slow && !slowClock) {
        OutputDbgPrint("exp > %dms Set slowest speed\n", kPrintedLimitMs);
        SetCMOSClk(kUsb2SlowClockMHz);
    } else if (!slow && slowClock) {
        OutputDbgPrint("exp < %dms recover speed\n", kPrintedLimitMs);
        SetCMOSClk();
    }
    const int64_t lines = m_state.timing.Lines(m_exposureUs);
    m_exposureLines = static_cast<uint32_t>(lines);
    OutputDbgPrint("set exp:0x%x mode:%d timeus:%d clk:%d\n", static_cast<unsigned int>(lines),
                   m_longExposure ? 1 : 0, static_cast<int>(m_exposureUs), m_state.timing.clockMHz);
    if (Usb2NeedsHostTiming(m_exposureUs, lines))
        EnterLongExposure();
    else
        WriteLines(lines);
    return true;
}

void Usb2Driver::WriteLines(int64_t lines)
{
    m_exposureLines = static_cast<uint32_t>(lines);
    Write(usb2::kIntegration, static_cast<int>(lines));
}

void Usb2Driver::EnterLongExposure()
{
    Write(usb2::kIntegration, usb2::kLongestOwnIntegration);
    m_longExposure = true;
    OutputDbgPrint("-----Enter long exp mode\n");
    BeginHostTiming();
}

void Usb2Driver::FollowExposure()
{
    const std::lock_guard lock(m_settingsSection);
    if (!m_longExposure)
        return;
    const auto lines = Usb2LinesWithoutHost(m_exposureUs, m_state.timing.lineLength);
    if (!lines)
        return;
    OutputDbgPrint("-----Exit long exp mode\n");
    EndHostTiming();
    m_longExposure = false;
    if (m_exposureUs < kUsb2SlowFromUs) {
        OutputDbgPrint("exp < %dms recover speed\n", kPrintedLimitMs);
        SetCMOSClk(); // and the lines at that clock
    } else {
        OutputDbgPrint("exp > %dms Set slowest speed\n", kPrintedLimitMs);
        WriteLines(*lines);
    }
}

void Usb2Driver::SlowDown()
{
    const std::lock_guard lock(m_settingsSection);
    Write(usb2::kLineLength, m_state.timing.lineLength + kExtraLine);
}

float Usb2Driver::GetSensorTemp()
{
    Calibration &calibration = CalibrationOf(m_model);
    const auto readOnce = [this](Shared<uint16_t> &mark, uint16_t address) {
        uint16_t value = 0;
        if (mark == 0 && ReadCameraRegister(address, &value))
            mark = value;
    };
    readOnce(calibration.at70, usb2::kTemperatureHotMark);
    readOnce(calibration.at55, usb2::kTemperatureColdMark);
    uint16_t reading = 0;
    (void)ReadCameraRegister(usb2::kTemperature, &reading); // 0 when it fails
    if (reading == 0)
        return calibration.lastC;
    const float celsius = Usb2Temperature(reading, calibration.at70, calibration.at55);
    StoreTemperature(celsius);
    calibration.lastC = celsius;
    return celsius;
}

bool Usb2Driver::GetBLOffset(bool *flag, signed char *ee, signed char *oo, signed char *eo,
                             signed char *oe)
{
    if (!m_traits.tellsBlackLevel)
        return false;
    const struct {
        uint16_t address;
        const char *complaint;
        signed char *offset;
    } readings[] = {{usb2::kBlackLevelEvenEven, "read ee error!", ee},
                    {usb2::kBlackLevelOddOdd, "read oo error!", oo},
                    {usb2::kBlackLevelEvenOdd, "read eo error!", eo},
                    {usb2::kBlackLevelOddEven, "read oe error!", oe}};
    const std::lock_guard lock(m_settingsSection);
    bool all = true;
    int8_t *stored = m_state.blackLevel;
    for (const auto &[address, complaint, offset] : readings) {
        uint16_t value = 0;
        if (ReadCameraRegister(address, &value)) {
            *stored = static_cast<int8_t>(value);
        } else {
            OutputDbgPrint("%s", complaint);
            all = false;
        }
        *offset = *stored++;
    }
    m_state.blackLevelKnown = m_state.blackLevelKnown || all;
    *flag = m_state.blackLevelKnown;
    return all;
}

void Usb2Driver::PrintBlackLevel()
{
    bool known = false;
    signed char ee = 0;
    signed char oo = 0;
    signed char eo = 0;
    signed char oe = 0;
    if (!m_traits.tellsBlackLevel)
        return;
    (void)GetBLOffset(&known, &ee, &oo, &eo, &oe); // says itself what failed
    OutputDbgPrint("Get BL EE:%d OO:%d EO %d OE:%d\n", ee, oo, eo, oe);
}

void Usb2Driver::StartSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection);
    if (m_output16Bits)
        SelectBitDepth(true);
    Write(usb2::kStreaming, usb2::kStreamOn);
}

void Usb2Driver::StopSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // who switches it on holds this as well
    Write(usb2::kStreaming, usb2::kStreamOff);
}

void Usb2Driver::Write(uint16_t address, int value)
{
    (void)WriteCameraRegister(address, static_cast<uint16_t>(value)); // the stream shows failures
}

} // namespace vsccam
