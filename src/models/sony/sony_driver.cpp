#include "models/sony/sony_driver.h"

#include "base/debug_print.h"
#include "models/register_holds.h"
#include "models/sony/sony_gain.h"
#include "models/sony/sony_registers.h"

namespace vsccam {

using namespace std::chrono_literals;

namespace {
constexpr auto kStandbyPause = 20ms;
} // namespace

template <class Base>
SonyDriver<Base>::SonyDriver(const CameraModel &ofModel, const SonySensor &sensor)
    : Driver(ofModel, sensor.common), m_sensor(sensor)
{
}

template <class Base> void SonyDriver<Base>::PowerUp()
{
    SendRegisterList(m_sensor.powerUp,
                     [this](uint16_t address, uint16_t value) { Write(address, value); });
    // Converter and output have 12 bits. It is not known what the registers that carry their
    // address do, nor why they get these values.
    constexpr uint8_t kReg305C[] = {0x20, 0x00, 0x20, 0x00};
    uint16_t address = sony::kReg305C;
    for (const uint8_t value : kReg305C)
        Write(address++, value);
    Write(sony::kOutputBits, 0xF1);
    Write(sony::kAdcBits, 0x01);
    Write(sony::kReg303A, 0x08);
    Write(sony::kReg3007, 0x40);

    WriteFpga(fpga::kMode, fpga::kReset);
    SleepFor(kStandbyPause);
    (void)this->StartSensorCLK(); // the stream shows whether it runs
    Write(sony::kReg3002, 0x01);
    Write(sony::kReg304B, 0x00);
    WriteFpga(fpga::kMode, fpga::kIdle);
    this->SetUpFpga();
}

template <class Base> void SonyDriver<Base>::Cam_SetResolution()
{
    OutputDbgPrint("SetResolution!\n");
    const Settings now = settings.Now();
    const FpgaHold hold(*this);
    Write(sony::kWindowMode, HardwareBin2x2() ? sony::kBin2x2 : uint8_t{0});
    WriteFpga(fpga::kFirstColumn, 0);
    WriteFpga(fpga::kReg06, 9);
    Write16(sony::kWindowWidth, now.width * now.bin);
    Write16(sony::kWindowHeight, now.height * now.bin);
    WriteOutputSize(*this, ReadoutNow().size);
}

template <class Base> bool SonyDriver<Base>::SetStartPos(int x, int y)
{
    return this->MoveRegion(x, y, [this] {
        const sony::Hold hold(*this);
        const Settings now = settings.Now();
        Write16(sony::kWindowLeft, now.startX);
        Write16(sony::kWindowTop, now.startY);
    });
}

template <class Base> bool SonyDriver<Base>::SetGain(int gain, bool bAuto)
{
    const Programming::Scope scope(programming);
    const SonyGain g = SonyGainFor(gain, model.gain);
    settings.With([&](Settings &s) {
        s.gain = g.stored;
        s.gainAuto = bAuto;
    });
    const sony::Hold hold(*this);
    uint8_t mode = 0;
    if (this->ReadSONYREG(sony::kReadoutMode, &mode)) { // else its rate is not known, and stays
        mode = g.highConversion ? mode | sony::kHighConversionGain : mode & 0x0F;
        Write(sony::kReadoutMode, mode);
    }
    Write(sony::kGain, g.code);
    return true;
}

template <class Base> bool SonyDriver<Base>::SetBrightness(int brightness)
{
    const Programming::Scope scope(programming);
    settings.With([brightness](Settings &s) { s.brightness = brightness; });
    Write(sony::kBlackLevel + 1, ByteOf(brightness, 1));
    Write(sony::kBlackLevel, ByteOf(brightness, 0));
    return true;
}

template <class Base> void SonyDriver<Base>::SetOutput16Bits(bool on)
{
    Driver::SetOutput16Bits(on);
    if (TenBitReadout()) {
        Write(sony::kOutputBits, 0xF0);
        Write(sony::kAdcBits, 0x00);
        WriteFpga(fpga::kBitDepth, 0x00);
        Write(sony::kReg3129, 0x1D);
        Write(sony::kReg317C, 0x12);
    } else {
        Write(sony::kOutputBits, 0xF1);
        Write(sony::kAdcBits, HardwareBin2x2() ? 0x00 : 0x01);
        WriteFpga(fpga::kBitDepth, fpga::TwelveBitInput(on));
        Write(sony::kReg3129, 0x00);
        Write(sony::kReg317C, 0x00);
        Write(sony::kReg31EC, 0x0E);
    }
}

template <class Base> bool SonyDriver<Base>::SetHighSpeedMode(bool on)
{
    const Programming::Scope scope(programming);
    settings.With([on](Settings &s) { s.highSpeed = on; });
    if (HardwareBin2x2())
        return true;
    const Settings now = settings.Now();
    SetOutput16Bits(now.output16Bits);
    SetCMOSClk();
    this->SetFPSPerc(now.bandwidth, now.bandwidthAuto);
    this->SetExp(now.exposureUs, now.exposureAuto);
    this->SetBrightness(now.brightness);
    return true;
}

template <class Base> bool SonyDriver<Base>::HardwareBin2x2()
{
    const Settings now = settings.Now();
    return now.hardwareBin && now.bin == 2;
}

template <class Base> bool SonyDriver<Base>::TenBitReadout()
{
    const Settings now = settings.Now();
    return now.highSpeed && !now.output16Bits && !HardwareBin2x2();
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
    const bool highConversion = SonyGainFor(settings.Now().gain, model.gain).highConversion;
    Write(sony::kReadoutMode, clock.rateCode | (highConversion ? sony::kHighConversionGain : 0));
    m_timing.shortestLine = clock.shortestLine;
}

template <class Base> void SonyDriver<Base>::ProgramExposure(const FrameExposure &exposure)
{
    const sony::Hold hold(*this);
    this->WriteFrameLength(exposure);
    for (uint16_t i = 0; i < 3; ++i)
        Write(sony::kShutter + i, ByteOf(static_cast<int>(exposure.ssh1), i));
}

template <class Base> void SonyDriver<Base>::StartSensorStreaming()
{
    const Programming::Scope scope(programming); // an exposure may enter long mode meanwhile
    Write(sony::kStandby, 0);
    SleepFor(kStandbyPause);
    this->RunFpga();
}

template <class Base> void SonyDriver<Base>::StopSensorStreaming()
{
    const Programming::Scope scope(programming); // as above
    this->StopFpga();
    Write(sony::kStandby, 1);
}

template <class Base> void SonyDriver<Base>::Write16(uint16_t address, int value)
{
    Write(address, ByteOf(value, 0));
    Write(address + 1, ByteOf(value, 1));
}

template class SonyDriver<CCameraBase>;
template class SonyDriver<CCameraCool>;

} // namespace vsccam
