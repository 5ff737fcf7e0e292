#include "models/sony/sony_driver.h"

#include "base/debug_print.h"
#include "capture/usb3_capture_worker.h"
#include "models/register_holds.h"
#include "models/sony/sony_gain.h"
#include "models/sony/sony_registers.h"
#include "usb/requests.h"

#include <mutex>

namespace vsccam {

using namespace std::chrono_literals;

namespace {
constexpr auto kStandbyPause = 20ms;
} // namespace

template <class Base>
SonyDriver<Base>::SonyDriver(const CameraModel &model, const SonySensor &sensor)
    : Driver(model, sensor.common), m_sensor(sensor)
{
}

template <class Base> void SonyDriver<Base>::PowerUp()
{
    SendRegisterList(m_sensor.powerUp, [this](uint16_t address, uint16_t value) {
        WriteSONYREG(address, static_cast<uint8_t>(value));
    });
    constexpr uint8_t kReg305C[] = {0x20, 0x00, 0x20, 0x00};
    uint16_t address = sony::kReg305C;
    for (const uint8_t value : kReg305C)
        WriteSONYREG(address++, value);
    WriteSONYREG(sony::kOutputBits, 0xF1);
    WriteSONYREG(sony::kAdcBits, 0x01);
    WriteSONYREG(sony::kReg303A, 0x08);
    WriteSONYREG(sony::kReg3007, 0x40);

    WriteFPGAREG(fpga::kMode, fpga::kReset);
    SleepFor(kStandbyPause);
    SendCMD(request::kStartSensorClock);
    WriteSONYREG(sony::kReg3002, 0x01);
    WriteSONYREG(sony::kReg304B, 0x00);
    WriteFPGAREG(fpga::kMode, fpga::kIdle);
    this->SetUpFpga();
}

template <class Base> void SonyDriver<Base>::Cam_SetResolution()
{
    OutputDbgPrint("SetResolution!\n");
    const Size output = ReadoutSize();
    const FpgaHold hold(*this);
    WriteSONYREG(sony::kWindowMode, HardwareBin2x2() ? sony::kBin2x2 : uint8_t{0});
    WriteFPGAREG(fpga::kFirstColumn, 0);
    WriteFPGAREG(fpga::kReg06, 9);
    WriteSony16(sony::kWindowWidth, m_width * m_bin);
    WriteSony16(sony::kWindowHeight, m_height * m_bin);
    WriteOutputSize(*this, output);
}

template <class Base> bool SonyDriver<Base>::SetStartPos(int x, int y)
{
    return this->MoveRegion(x, y, [this] {
        const sony::Hold hold(*this);
        WriteSony16(sony::kWindowLeft, m_startX);
        WriteSony16(sony::kWindowTop, m_startY);
    });
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
    WriteSONYREG(sony::kBlackLevel + 1, ByteOf(brightness, 1));
    WriteSONYREG(sony::kBlackLevel, ByteOf(brightness, 0));
    return true;
}

template <class Base> void SonyDriver<Base>::SetOutput16Bits(bool on)
{
    Driver::SetOutput16Bits(on);
    if (TenBitReadout()) {
        WriteSONYREG(sony::kOutputBits, 0xF0);
        WriteSONYREG(sony::kAdcBits, 0x00);
        WriteFPGAREG(fpga::kBitDepth, 0x00);
        WriteSONYREG(sony::kReg3129, 0x1D);
        WriteSONYREG(sony::kReg317C, 0x12);
    } else {
        WriteSONYREG(sony::kOutputBits, 0xF1);
        WriteSONYREG(sony::kAdcBits, HardwareBin2x2() ? 0x00 : 0x01);
        WriteFPGAREG(fpga::kBitDepth, fpga::TwelveBitInput(on));
        WriteSONYREG(sony::kReg3129, 0x00);
        WriteSONYREG(sony::kReg317C, 0x00);
        WriteSONYREG(sony::kReg31EC, 0x0E);
    }
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

template <class Base> const SonyClock &SonyDriver<Base>::ReadoutClock()
{
    if (HardwareBin2x2())
        return m_sensor.hardwareBin;
    return TenBitReadout() ? m_sensor.highSpeed : m_sensor.normal;
}

template <class Base> void SonyDriver<Base>::SelectClock()
{
    const SonyClock &clock = ReadoutClock();
    const bool highConversion = SonyGainFor(m_gain, m_model.gain).highConversion;
    WriteSONYREG(
        sony::kReadoutMode,
        static_cast<uint8_t>(clock.rateCode | (highConversion ? sony::kHighConversionGain : 0)));
    m_timing.shortestLine = clock.shortestLine;
}

template <class Base> void SonyDriver<Base>::ProgramExposure(const FrameExposure &exposure)
{
    const sony::Hold hold(*this);
    this->WriteFrameLength(exposure);
    for (uint16_t i = 0; i < 3; ++i)
        WriteSONYREG(sony::kShutter + i, ByteOf(static_cast<int>(exposure.ssh1), i));
}

template <class Base> void SonyDriver<Base>::StartSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // an exposure may enter long mode meanwhile
    WriteSONYREG(sony::kStandby, 0);
    SleepFor(kStandbyPause);
    this->RunFpga();
}

template <class Base> void SonyDriver<Base>::StopSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // as above
    this->StopFpga();
    WriteSONYREG(sony::kStandby, 1);
}

template <class Base> void SonyDriver<Base>::WriteSony16(uint16_t address, int value)
{
    WriteSONYREG(address, ByteOf(value, 0));
    WriteSONYREG(address + 1, ByteOf(value, 1));
}

template class SonyDriver<CCameraBase>;
template class SonyDriver<CCameraCool>;

} // namespace vsccam
