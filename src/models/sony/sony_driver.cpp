#include "models/sony/sony_driver.h"

#include "base/debug_print.h"
#include "models/register_holds.h"
#include "models/sony/sony_registers.h"
#include "models/usb3_capture_worker.h"
#include "usb/requests.h"

#include <algorithm>
#include <mutex>

namespace vsccam {

using namespace std::chrono_literals;

namespace {

// Codes of the FPGA's mode register.
constexpr uint16_t kFpgaRun = 0x21;
constexpr uint16_t kFpgaStop = 0x31;
constexpr uint16_t kFpgaLongExposure = 0xC0; // added to both

constexpr int kLongExposureFromUs = 1'000'000;
constexpr int kFpsFiguresBelowUs = 100'000;
constexpr auto kStandbyPause = 20ms;

constexpr uint8_t Byte(int value, int index)
{
    return static_cast<uint8_t>(value >> (8 * index));
}

// Aligned and inside the sensor, for a region of `extent` pixels.
int RegionStart(int wanted, int alignment, int extent, int sensor)
{
    const int aligned = std::max(wanted, 0) / alignment * alignment;
    return std::min(aligned, sensor - extent);
}

} // namespace

template <class Base>
SonyDriver<Base>::SonyDriver(const CameraModel &model, const SonySensor &sensor)
    : Base(model), m_sensor(sensor)
{
    OutputDbgPrint("CCAMERA::CCAMERA()\n");
    m_state.line = sensor.initialLine;
    m_state.shortestLine = sensor.initialLine.length;
    (void)SonyDriver::SetRGBBalance(model.whiteBalance.red, model.whiteBalance.blue, false);
}

template <class Base> bool SonyDriver<Base>::InitCamera()
{
    if (!this->IsOpened())
        return false;
    {
        const std::lock_guard lock(m_settingsSection);
        PowerUp();
        if (m_usb3Host)
            m_bandwidth = m_sensor.bandwidthOnUsb3Host;
        this->SetGamma(m_gamma);
        this->SetRGBBalance(m_red, m_blue, m_whiteBalanceAuto);
        this->SetBrightness(m_brightness);
        if (m_bandwidthAuto)
            m_bandwidth = AutoBandwidth();
        SetCMOSClk();
        this->SetGain(m_gain, m_gainAuto);
        this->SetExp(m_exposureUs, m_exposureAuto);
    }
    this->OnInitialised();
    return true;
}

/// Everything of InitCamera that does not depend on what the host has set.
template <class Base> void SonyDriver<Base>::PowerUp()
{
    DetectHost();
    this->SetHPCStates(true);
    uint8_t version = 0;
    uint8_t sub[4] = {};
    (void)this->GetFirmwareVer(&version); // for the debug output only
    (void)this->GetFPGAVer(&version, sub);
    SendRegisterList(m_sensor.powerUp);
    SetUpClockAndFpga();
}

template <class Base> void SonyDriver<Base>::DetectHost()
{
    m_usb3Host = this->IsUSB3Host();
    OutputDbgPrint(m_usb3Host ? "***********USB3.0 Host***********\n"
                              : "***********USB2.0 Host***********\n");
}

template <class Base> void SonyDriver<Base>::SendRegisterList(RegisterList list)
{
    for (const auto [address, value] : list) {
        if (address == RegisterWrite::kPause)
            SleepFor(std::chrono::milliseconds(value));
        else
            WriteSONYREG(address, static_cast<uint8_t>(value));
    }
}

template <class Base> void SonyDriver<Base>::SetUpClockAndFpga()
{
    constexpr uint8_t kReg305C[] = {0x20, 0x00, 0x20, 0x00};
    uint16_t address = sony::kReg305C;
    for (const uint8_t value : kReg305C)
        WriteSONYREG(address++, value);
    WriteSONYREG(sony::kOutputBits, 0xF1);
    WriteSONYREG(sony::kAdcBits, 0x01);
    WriteSONYREG(sony::kReg303A, 0x08);
    WriteSONYREG(sony::kReg3007, 0x40);

    WriteFPGAREG(fpga::kMode, 0);
    SleepFor(kStandbyPause);
    SendCMD(request::kStartSensorClock);
    WriteSONYREG(sony::kReg3002, 0x01);
    WriteSONYREG(sony::kReg304B, 0x00);
    WriteFPGAREG(fpga::kMode, 0x30);
    WriteFPGAREG(fpga::kBitDepth, 0x01);
    const FpgaHold hold(*this);
    for (uint16_t reg = fpga::kReg12; reg <= fpga::kReg15; ++reg)
        WriteFPGAREG(reg, 0x80);
}

template <class Base> bool SonyDriver<Base>::RestoreSettings()
{
    if (!this->IsOpened())
        return false;
    const std::lock_guard lock(m_settingsSection);
    PowerUp();
    this->SetBrightness(m_brightness);
    this->SetGain(m_gain, m_gainAuto);
    SetOutput16Bits(m_output16Bits);
    Cam_SetResolution();
    this->SetStartPos(m_startX, m_startY);
    SetCMOSClk();
    this->SetFPSPerc(m_bandwidth, m_bandwidthAuto); // and the exposure with it
    this->OnReconnected();
    return true;
}

template <class Base>
bool SonyDriver<Base>::SetResolution(int width, int height, int bin, IMAGE_TYPE type)
{
    const Size sensor{m_model.sensorWidth, m_model.sensorHeight};
    if (!RegionFits(width, height, bin, sensor) || type < kByteImage || type > kRaw16)
        return false;
    const CapturePause pause(*this); // no frame mixes two sizes
    const std::lock_guard lock(m_settingsSection);
    m_width = width;
    m_imageType = type;
    m_bin = bin;
    m_height = height;
    m_startX = (sensor.width - width * bin) >> 1;
    m_startY = (sensor.height - height * bin) >> 1;
    this->SetStartPos(m_startX, m_startY);
    SetOutput16Bits(Is16Bit(type));
    Cam_SetResolution();
    SetCMOSClk();
    this->SetFPSPerc(m_bandwidth, m_bandwidthAuto);
    this->SetExp(m_exposureUs, m_exposureAuto);
    return true;
}

template <class Base> void SonyDriver<Base>::Cam_SetResolution()
{
    OutputDbgPrint("SetResolution!\n");
    const Size output = ReadoutSize();
    const FpgaHold hold(*this);
    WriteSONYREG(sony::kWindowMode, HardwareBin2x2() ? sony::kBin2x2 : uint8_t{0});
    WriteFPGAREG(fpga::kReg02, 0);
    WriteFPGAREG(fpga::kReg06, 9);
    WriteSony16(sony::kWindowWidth, m_width * m_bin);
    WriteSony16(sony::kWindowHeight, m_height * m_bin);
    WriteFpga16(fpga::kOutputHeight, output.height);
    WriteFpga16(fpga::kOutputWidth, output.width);
}

template <class Base> bool SonyDriver<Base>::SetStartPos(int x, int y)
{
    const std::lock_guard lock(m_settingsSection);
    m_startY = RegionStart(y, 2, m_height * m_bin, m_model.sensorHeight);
    const int stepX = m_bin == 3 ? m_sensor.startXStepAtBin3 : 4;
    m_startX = RegionStart(x, stepX, m_width * m_bin, m_model.sensorWidth);
    const sony::Hold hold(*this);
    WriteSony16(sony::kWindowLeft, m_startX);
    WriteSony16(sony::kWindowTop, m_startY);
    return true;
}

template <class Base> bool SonyDriver<Base>::SetGain(int gain, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    const SonyGain g = SonyGainFor(gain, m_model.gain);
    m_gain = g.stored;
    m_gainAuto = bAuto;
    const sony::Hold hold(*this);
    uint8_t mode = 0;
    if (ReadSONYREG(sony::kReadoutMode, &mode)) { // else its rate is not known, and stays
        mode = g.highConversion ? mode | sony::kHighConversionGain : mode & 0x0F;
        WriteSONYREG(sony::kReadoutMode, mode);
    }
    WriteSONYREG(sony::kGain, g.code);
    return true;
}

template <class Base> bool SonyDriver<Base>::SetBrightness(int brightness)
{
    const std::lock_guard lock(m_settingsSection);
    m_brightness = brightness;
    WriteSONYREG(sony::kBlackLevel + 1, Byte(brightness, 1));
    WriteSONYREG(sony::kBlackLevel, Byte(brightness, 0));
    return true;
}

template <class Base> void SonyDriver<Base>::SetOutput16Bits(bool on)
{
    m_output16Bits = on;
    if (TenBitReadout()) {
        WriteSONYREG(sony::kOutputBits, 0xF0);
        WriteSONYREG(sony::kAdcBits, 0x00);
        WriteFPGAREG(fpga::kBitDepth, 0x00);
        WriteSONYREG(sony::kReg3129, 0x1D);
        WriteSONYREG(sony::kReg317C, 0x12);
    } else {
        WriteSONYREG(sony::kOutputBits, 0xF1);
        WriteSONYREG(sony::kAdcBits, HardwareBin2x2() ? 0x00 : 0x01);
        WriteFPGAREG(fpga::kBitDepth, on ? 0x11 : 0x01);
        WriteSONYREG(sony::kReg3129, 0x00);
        WriteSONYREG(sony::kReg317C, 0x00);
        WriteSONYREG(sony::kReg31EC, 0x0E);
    }
    m_state.budget = m_usb3Host ? m_sensor.budget.usb3Host : m_sensor.budget.usb2Host;
}

template <class Base> bool SonyDriver<Base>::SetHighSpeedMode(bool on)
{
    const std::lock_guard lock(m_settingsSection);
    m_highSpeed = on;
    if (HardwareBin2x2())
        return true;
    SetOutput16Bits(m_output16Bits);
    SetCMOSClk();
    this->SetFPSPerc(m_bandwidth, m_bandwidthAuto);
    this->SetExp(m_exposureUs, m_exposureAuto);
    this->SetBrightness(m_brightness);
    return true;
}

template <class Base> bool SonyDriver<Base>::SetHardwareBin(bool on)
{
    if (!m_model.hasHardwareBin)
        return Base::SetHardwareBin(on);
    if (m_bin == 1) {
        m_hardwareBin = on;
        return true;
    }
    const CapturePause pause(*this);
    m_hardwareBin = on;
    const int x = m_startX; // the region is centred when its size is set
    const int y = m_startY;
    (void)SetResolution(m_width, m_height, m_bin, this->ImageType()); // accepted before
    return this->SetStartPos(x, y);
}

template <class Base> const SonyClock &SonyDriver<Base>::ReadoutClock()
{
    if (HardwareBin2x2())
        return m_sensor.hardwareBin;
    return TenBitReadout() ? m_sensor.highSpeed : m_sensor.normal;
}

template <class Base> bool SonyDriver<Base>::SetCMOSClk()
{
    return SetCMOSClk(ReadoutClock().kHz);
}

template <class Base> bool SonyDriver<Base>::SetCMOSClk(int clockKHz)
{
    if (!this->IsOpened())
        return false;
    OutputDbgPrint("set clk %d M!\n", clockKHz);
    // Read-outs may share a clock and differ in the shortest line.
    const SonyClock readout = ReadoutClock();
    const SonyClock clock = clockKHz == readout.kHz ? readout : m_sensor.other;
    const bool highConversion = SonyGainFor(m_gain, m_model.gain).highConversion;
    WriteSONYREG(
        sony::kReadoutMode,
        static_cast<uint8_t>(clock.rateCode | (highConversion ? sony::kHighConversionGain : 0)));
    m_state.shortestLine = clock.shortestLine;
    m_state.line.clockKHz = clockKHz;
    return true;
}

template <class Base> bool SonyDriver<Base>::SetFPSPerc(int percent, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    if (m_state.line.clockKHz < m_sensor.lowestClockKHz)
        return false;
    const bool switchesToAuto = bAuto && !m_bandwidthAuto;
    m_bandwidth = switchesToAuto
                      ? AutoBandwidth()
                      : std::clamp(percent, m_model.bandwidth.min, m_model.bandwidth.max);
    const Size window = ReadoutSize();
    const float fps = SonyFrameRate(m_state.budget, m_bandwidth, window, m_output16Bits);
    m_bandwidthAuto = bAuto;
    m_state.line.length = SonyLineLength(fps, m_state.line.clockKHz, window.height,
                                         m_state.shortestLine, m_sensor.offsets);
    {
        const FpgaHold hold(*this);
        WriteFpga16(fpga::kLineLength, m_state.line.length);
    }
    const double megabytes = static_cast<double>(window.width) * window.height *
                             (m_output16Bits ? 2 : 1) * static_cast<double>(fps) / 1e6;
    // Quirk, kept: the line length is printed as "pkg", and 0 in the place of "1H".
    OutputDbgPrint("clk:%d fps:%2.2f size:%2.2f 1H:%dp value:%d pkg:%d \n", m_state.line.clockKHz,
                   static_cast<double>(fps), megabytes, 0, static_cast<int>(m_bandwidth),
                   m_state.line.length);
    this->SetExp(m_exposureUs, m_exposureAuto);
    CalcMaxFPS();
    return true;
}

template <class Base> bool SonyDriver<Base>::GetFPSPerc(int *percent, bool *pbAuto)
{
    *percent = m_bandwidth;
    *pbAuto = m_bandwidthAuto;
    return true;
}

template <class Base> bool SonyDriver<Base>::SetRGBBalance(int red, int blue, bool bAuto)
{
    if (!m_model.colour)
        return true;
    const WhiteBalanceRange &range = m_model.whiteBalance;
    m_red = std::clamp(red, range.min, range.max);
    m_blue = std::clamp(blue, range.min, range.max);
    m_whiteBalanceAuto = bAuto;
    return true;
}

template <class Base> bool SonyDriver<Base>::SetExp(unsigned long long microseconds, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    m_exposureAuto = bAuto;
    m_exposureUs = static_cast<uint32_t>(std::clamp<unsigned long long>(
        microseconds, static_cast<unsigned long long>(m_model.exposureUs.min),
        static_cast<unsigned long long>(m_model.exposureUs.max)));
    SelectLongExposure(m_exposureUs >= kLongExposureFromUs);

    const SonyLine line = m_state.line;
    const SonyExposure exposure =
        SonyExposureFor(m_exposureUs, line, ReadoutSize().height, m_sensor.offsets);
    m_frameTimeUs = exposure.frameTimeUs;
    m_state.exposureLines = exposure.Lines();
    OutputDbgPrint("VMAX:0x%x SSH1:0X%x %2.2fus 1f:%d mode:%d timeus:%d\n", exposure.vmax,
                   exposure.ssh1, static_cast<double>(line.TimeUs()), exposure.frameTimeUs,
                   m_longExposure ? 1 : 0, static_cast<int>(m_exposureUs));

    const sony::Hold sensorHold(*this);
    {
        const FpgaHold fpgaHold(*this);
        for (uint16_t i = 0; i < 3; ++i)
            WriteFPGAREG(fpga::kFrameLength + i, Byte(static_cast<int>(exposure.vmax), i));
    }
    for (uint16_t i = 0; i < 3; ++i)
        WriteSONYREG(sony::kShutter + i, Byte(static_cast<int>(exposure.ssh1), i));
    return true;
}

template <class Base> void SonyDriver<Base>::SelectLongExposure(bool on)
{
    if (on == m_longExposure)
        return;
    if (on) {
        WriteFPGAREG(fpga::kMode, kFpgaRun | kFpgaLongExposure);
        m_longExposure = true;
        OutputDbgPrint("-----Enter long exp mode\n");
    } else {
        OutputDbgPrint("-----Exit long exp mode\n");
        WriteFPGAREG(fpga::kMode, kFpgaRun);
        SetCMOSClk();
        m_longExposure = false;
    }
}

template <class Base> void SonyDriver<Base>::CalcMaxFPS()
{
    if (m_exposureUs >= kFpsFiguresBelowUs || m_frameTimeUs <= 0)
        return;
    const Size window = ReadoutSize();
    const double fps = 1e6 / m_frameTimeUs;
    const double megabytesPerS = fps * window.width * window.height / 1e6;
    OutputDbgPrint("calc fps: clk:%d data:%2.1f fps:%2.1f pkg:%d \n", m_state.line.clockKHz,
                   megabytesPerS, fps, m_state.line.length);
}

template <class Base> float SonyDriver<Base>::GetSensorTemp()
{
    if (m_sensor.thermistor)
        return this->GetADTemp();
    uint8_t bytes[2] = {};
    const bool ok = SendCMD(request::kSensorTemperature, 0, 0, true, bytes, sizeof bytes);
    const float celsius = SonyTemperature(bytes[0], bytes[1]);
    if (ok && celsius != 0.0F) // 0 is what a sensor without an answer gives
        m_temperatureC = celsius;
    return m_temperatureC;
}

template <class Base> bool SonyDriver<Base>::StartCapture(bool bSingleExposure)
{
    return this->StartWorker(bSingleExposure, [this] { Usb3CaptureWorker(*this, *this).Run(); });
}

template <class Base> void SonyDriver<Base>::StartSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // an exposure may enter long mode meanwhile
    WriteSONYREG(sony::kStandby, 0);
    SleepFor(kStandbyPause);
    WriteFPGAREG(fpga::kMode, m_longExposure ? kFpgaRun | kFpgaLongExposure : kFpgaRun);
}

template <class Base> void SonyDriver<Base>::StopSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // as above
    WriteFPGAREG(fpga::kMode, m_longExposure ? kFpgaStop | kFpgaLongExposure : kFpgaStop);
    WriteSONYREG(sony::kStandby, 1);
}

template <class Base> LongExposurePlan SonyDriver<Base>::PlanLongExposure(uint32_t exposureUs) const
{
    return SonyLongExposurePlan(exposureUs);
}

template <class Base> void SonyDriver<Base>::OpenExposureGate()
{
    WriteFPGAREG(fpga::kExposureGate, 1);
}

template <class Base> void SonyDriver<Base>::CloseExposureGate()
{
    WriteFPGAREG(fpga::kExposureGate, 0);
}

template <class Base> void SonyDriver<Base>::WriteSony16(uint16_t address, int value)
{
    WriteSONYREG(address, Byte(value, 0));
    WriteSONYREG(address + 1, Byte(value, 1));
}

template <class Base> void SonyDriver<Base>::WriteFpga16(uint16_t reg, int value)
{
    WriteFPGAREG(reg, Byte(value, 0));
    WriteFPGAREG(reg + 1, Byte(value, 1));
}

template class SonyDriver<CCameraBase>;
template class SonyDriver<CCameraCool>;

} // namespace vsccam
