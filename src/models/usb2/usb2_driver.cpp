#include "models/usb2/usb2_driver.h"

#include "base/debug_print.h"
#include "base/per_model.h"
#include "models/usb2/usb2_registers.h"

#include <algorithm>

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
    return calibrations.Of(model.productId);
}

} // namespace

Usb2Driver::Usb2Driver(const CameraModel &ofModel, const Usb2Traits &traits)
    : CCameraBase(ofModel), m_traits(traits)
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
    if (!programming.Whole([this] { return SetUp(); }))
        return false;
    PrintUnverified(model);
    OnInitialised();
    return true;
}

bool Usb2Driver::SetUp()
{
    const Programming::Scope scope(programming);
    PowerUp();
    (void)GetSensorTemp(); // the first reading takes the calibration along
    settings.With([this](Settings &s) {
        if (s.usb3Host)
            s.bandwidth = model.bandwidth.max;
        if (s.bandwidthAuto)
            s.bandwidth = m_traits.bandwidth.automatic;
    });
    const Settings now = settings.Now();
    SetGamma(GetGamma());
    SetRGBBalance(now.red, now.blue, now.whiteBalanceAuto);
    SetBrightness(now.brightness);
    SetCMOSClk();
    SetFPSPerc(now.bandwidth, now.bandwidthAuto);
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
    programming.SetLongExposure(false);
}

bool Usb2Driver::RestoreSettings()
{
    if (!IsOpened())
        return false;
    const Programming::Scope scope(programming);
    int line = m_state.timing.lineLength;
    const int chosenBefore = ChosenBandwidth();
    const bool usb3HostBefore = settings.Now().usb3Host;
    PowerUp();
    FollowLink(chosenBefore, ChosenBandwidth());
    const Settings now = settings.Now();
    if (now.usb3Host != usb3HostBefore)
        line = LineOfBandwidth(Usb2ClockMHz(ReadoutNow().size.width, now.output16Bits));
    SelectBitDepth(now.output16Bits);
    SetStartPos(now.startX, now.startY);
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
    if (width <= 0 || height <= 0 || bin <= 0 || columns > model.sensorWidth ||
        rows > model.sensorHeight || columns * rows % m_traits.frameBlock != 0 ||
        type < kByteImage || type > kRaw16)
        return false;
    const FormatChange change(*this); // no frame mixes two sizes
    settings.With([=, this](Settings &s) {
        s.SetFormat({model.sensorWidth, model.sensorHeight}, {width, height}, bin, type);
    });
    const Settings now = settings.Now();
    SetStartPos(now.startX, now.startY);
    SetOutput16Bits(Is16Bit(type));
    SetOutputSize(ReadoutNow().size);
    SetCMOSClk();
    SetFPSPerc(now.bandwidth, now.bandwidthAuto);
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
    SetOutputSize(ReadoutNow().size);
    SetCMOSClk();
}

bool Usb2Driver::SetStartPos(int x, int y)
{
    constexpr int kColumnStep = 2;
    return MoveRegion(x, y, kColumnStep, [this] { WriteWindow(); });
}

void Usb2Driver::WriteWindow()
{
    const bool streams = capture.Running();
    if (streams)
        Write(usb2::kStreaming, usb2::kStreamOff);
    const Settings now = settings.Now();
    Write(usb2::kWindowTop, now.startY + usb2::kTopMargin);
    Write(usb2::kWindowLeft, now.startX);
    WriteWindowEnd();
    if (streams) // a worker that ends meanwhile stops it again after this
        Write(usb2::kStreaming, usb2::kStreamOn);
}

void Usb2Driver::WriteWindowEnd()
{
    const Settings now = settings.Now();
    const Size region = ReadoutOf(model, now).size;
    Write(usb2::kWindowBottom, now.startY + usb2::kTopMargin - 1 + region.height);
    Write(usb2::kWindowRight, now.startX - 1 + region.width);
}

void Usb2Driver::WriteFrameLength()
{
    m_state.timing.frameLines = ReadoutNow().size.height + usb2::kFrameOverhead;
    PublishTiming();
    Write(usb2::kFrameLength, m_state.timing.frameLines);
}

bool Usb2Driver::SetGain(int gain, bool bAuto)
{
    const Programming::Scope scope(programming);
    const Usb2Gain g = Usb2GainFor(gain, model.gain, m_state.timing.clockMHz);
    settings.With([&](Settings &s) {
        s.gain = g.stored;
        s.gainAuto = bAuto;
    });
    Write(usb2::kCoarseGain, g.coarse);
    Write(usb2::kFineGain, g.fine);
    return true;
}

void Usb2Driver::SetOutput16Bits(bool on)
{
    settings.With([on](Settings &s) { s.output16Bits = on; });
    SelectBitDepth(on);
}

bool Usb2Driver::SetHighSpeedMode(bool on)
{
    const Programming::Scope scope(programming);
    if (settings.Now().exposureUs >= kUsb2SlowFromUs)
        return false;
    settings.With([on](Settings &s) { s.highSpeed = on; });
    SetCMOSClk();
    return true;
}

/// The clock that suits the region and the bit depth, unless a slow exposure has its own. A sensor
/// that is still timed by the host gets it when it takes over again: until then clock, line and
/// integration belong together as they are.
void Usb2Driver::SetCMOSClk()
{
    const Settings now = settings.Now();
    if (now.exposureUs >= kUsb2SlowFromUs || programming.LongExposure())
        return;
    SetCMOSClk(Usb2ClockMHz(ReadoutOf(model, now).size.width, now.output16Bits));
    SetFPSPerc(now.bandwidth, now.bandwidthAuto);
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
    const Programming::Scope scope(programming);
    settings.With([=, this](Settings &s) {
        const bool switchesToAuto = bAuto && !s.bandwidthAuto;
        s.bandwidth = std::clamp(switchesToAuto ? m_traits.bandwidth.automatic : percent,
                                 model.bandwidth.min, model.bandwidth.max);
        s.bandwidthAuto = bAuto;
    });
    const Settings now = settings.Now();
    // Quirk, kept: at exactly the slow clock's first exposure the line still follows the bandwidth.
    if (now.exposureUs > kUsb2SlowFromUs || programming.LongExposure())
        return false;
    Usb2Timing &timing = m_state.timing;
    timing.frameLines = ReadoutNow().size.height + usb2::kFrameOverhead;
    StoreLineLength(LineOfBandwidth(timing.clockMHz));
    const double fps = timing.FramesPerS();
    // Quirk, kept: the line length is printed as "pkg".
    OutputDbgPrint("clk:%d fps:%2.2f size:%2.2f  value:%d pkg:%x \n", timing.clockMHz, fps,
                   ReadoutNow().Bytes() * fps / 1e6, now.bandwidth,
                   static_cast<unsigned int>(timing.lineLength));
    WriteLines(std::min<int64_t>(timing.Lines(now.exposureUs), UINT16_MAX));
    return true;
}

int Usb2Driver::LineOfBandwidth(int clockMHz)
{
    const Settings now = settings.Now();
    const Readout readout = ReadoutOf(model, now);
    const int megabytesPerS =
        now.usb3Host ? m_traits.megabytesPerS.usb3Host : m_traits.megabytesPerS.usb2Host;
    const auto &scale = m_traits.bandwidth;
    const int share = scale.percentAtZero + scale.percentPerStep * now.bandwidth;
    return Usb2LineLength(clockMHz, readout.Bytes(), megabytesPerS, share,
                          readout.size.height + usb2::kFrameOverhead);
}

/// What the library chooses itself on such a link.
int Usb2Driver::ChosenBandwidth() const
{
    const Settings now = settings.Now();
    return now.usb3Host && !now.bandwidthAuto ? model.bandwidth.max : m_traits.bandwidth.automatic;
}

void Usb2Driver::StoreLineLength(int clocks)
{
    m_state.timing.lineLength = clocks;
    PublishTiming();
    Write(usb2::kLineLength, clocks);
}

void Usb2Driver::PublishTiming()
{
    programming.SetFrameTime(m_state.timing.FrameTimeUs());
    m_ownIntegrationUs = m_state.timing.OwnIntegrationUs();
}

bool Usb2Driver::SetExp(unsigned long long microseconds, bool bAuto)
{
    const Programming::Scope scope(programming);
    const uint32_t us = StoreExposure(microseconds, bAuto);
    if (programming.LongExposure()) {
        if (!WorkerFollowsExposure())
            FollowExposure();
        return true;
    }
    const bool slow = us >= kUsb2SlowFromUs;
    const bool slowClock = m_state.timing.clockMHz == kUsb2SlowClockMHz;
    if (slow && !slowClock) {
        OutputDbgPrint("exp > %dms Set slowest speed\n", kPrintedLimitMs);
        SetCMOSClk(kUsb2SlowClockMHz);
    } else if (!slow && slowClock) {
        OutputDbgPrint("exp < %dms recover speed\n", kPrintedLimitMs);
        SetCMOSClk();
    }
    const int64_t lines = m_state.timing.Lines(us);
    settings.With([lines](Settings &s) { s.exposureLines = static_cast<uint32_t>(lines); });
    OutputDbgPrint("set exp:0x%x mode:%d timeus:%d clk:%d\n", static_cast<unsigned int>(lines),
                   programming.LongExposure() ? 1 : 0, static_cast<int>(us),
                   m_state.timing.clockMHz);
    if (Usb2NeedsHostTiming(us, lines))
        EnterLongExposure();
    else
        WriteLines(lines);
    return true;
}

void Usb2Driver::WriteLines(int64_t lines)
{
    settings.With([lines](Settings &s) { s.exposureLines = static_cast<uint32_t>(lines); });
    Write(usb2::kIntegration, static_cast<int>(lines));
}

void Usb2Driver::EnterLongExposure()
{
    Write(usb2::kIntegration, usb2::kLongestOwnIntegration);
    programming.SetLongExposure(true);
    OutputDbgPrint("-----Enter long exp mode\n");
    BeginHostTiming();
}

void Usb2Driver::FollowExposure()
{
    const Programming::Scope scope(programming);
    if (!programming.LongExposure())
        return;
    const uint32_t us = settings.Now().exposureUs;
    const auto lines = Usb2LinesWithoutHost(us, m_state.timing.lineLength);
    if (!lines)
        return;
    OutputDbgPrint("-----Exit long exp mode\n");
    EndHostTiming();
    programming.SetLongExposure(false);
    if (us < kUsb2SlowFromUs) {
        OutputDbgPrint("exp < %dms recover speed\n", kPrintedLimitMs);
        SetCMOSClk(); // and the lines at that clock
    } else {
        OutputDbgPrint("exp > %dms Set slowest speed\n", kPrintedLimitMs);
        WriteLines(*lines);
    }
}

void Usb2Driver::SlowDown()
{
    const Programming::Scope scope(programming);
    Write(usb2::kLineLength, m_state.timing.lineLength + kExtraLine);
}

float Usb2Driver::GetSensorTemp()
{
    Calibration &calibration = CalibrationOf(model);
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
    temperature.Store(celsius);
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
    const Programming::Scope scope(programming);
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
    const Programming::Scope scope(programming);
    if (settings.Now().output16Bits)
        SelectBitDepth(true);
    Write(usb2::kStreaming, usb2::kStreamOn);
}

void Usb2Driver::StopSensorStreaming()
{
    const Programming::Scope scope(programming); // who switches it on holds this as well
    Write(usb2::kStreaming, usb2::kStreamOff);
}

} // namespace vsccam
