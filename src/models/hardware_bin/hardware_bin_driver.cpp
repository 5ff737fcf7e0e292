#include "models/hardware_bin/hardware_bin_driver.h"

#include "base/debug_print.h"
#include "models/hardware_bin/binning_registers.h"
#include "models/hardware_bin/long_exposure.h"
#include "models/register_holds.h"

#include <algorithm>

namespace vsccam {

using namespace std::chrono_literals;
using namespace binning;

namespace {

constexpr auto kFpgaResetPause = 20ms;
constexpr auto kGatePause = 10ms;

// What the rows of a region count before and behind it.
constexpr int kRowsBefore = 32;
constexpr int kRowsAround = 36;

// The power states. What the single writes do is not known.
constexpr RegisterWrite kWakeUp[] = {
    {kReg1C, 0x0000}, {kReg00, 0x0053}, {kReg05, 0x1000}, {kReg11, 0x3C43},
    Pause(10ms),      {kReg1C, 0x0008}, {kReg06, 0x7C00}, {kReg00, 0x0173},
};
constexpr RegisterWrite kSleep[] = {
    {kReg5F, 0x0007}, {kReg61, 0x0877}, {kReg05, 0x0000}, {kReg00, 0x0000},
    {kReg06, 0x73FF}, {kReg11, 0x3C42}, {kReg1C, 0x0001},
};
constexpr RegisterWrite kWakeLongExp[] = {
    {kReg1C, 0x0000}, {kReg00, 0x0053}, {kReg05, 0x1000}, {kReg11, 0x3C43}, Pause(1ms),
    {kReg5F, 0x000D}, {kReg61, 0x0000}, {kReg1C, 0x0008}, {kReg06, 0x7C00}, {kReg00, 0x0173},
};
constexpr RegisterWrite kSleepLongExp[] = {{kReg11, 0x3C40}, {kReg00, 0x0000}};

} // namespace

template <class Base>
HardwareBinDriver<Base>::HardwareBinDriver(const CameraModel &ofModel, const BinningSensor &sensor)
    : Driver(ofModel, sensor.common), m_sensor(sensor)
{
}

template <class Base> void HardwareBinDriver<Base>::PowerUp()
{
    WriteFpga(fpga::kExposureGate, 0x80); // what bit 7 of the gate does is not known
    SleepFor(kFpgaResetPause);
    WriteFpga(fpga::kExposureGate, 0);
    Send(m_sensor.powerUp);
    WriteFpga(fpga::kMode, fpga::kReset);
    SleepFor(kFpgaResetPause);
    WriteFpga(fpga::kMode, fpga::kIdle);
    WriteFpga(fpga::kBitDepth, fpga::kInput12Bits);
}

template <class Base> void HardwareBinDriver<Base>::InitSensorBinning(int bin)
{
    const FpgaHold hold(*this);
    settings.With([bin](Settings &s) { s.bin = bin; });
    const SensorMode *mode = ModeFor(bin);
    if (!mode)
        return;
    Send(mode->sensor);
    for (const auto [reg, value] : mode->fpga) {
        const bool wide = reg == fpga::kBitDepth && settings.Now().output16Bits;
        WriteFpga(reg, wide ? value | fpga::kOutput16Bits : value);
    }
    m_timing.shortestLine = mode->shortestLine;
    OutputDbgPrint("%s", mode->message);
}

/// Nothing for binnings that the sensor has not.
template <class Base> const SensorMode *HardwareBinDriver<Base>::ModeFor(int bin) const
{
    const Settings now = settings.Now();
    if (!now.hardwareBin || bin == 1)
        return now.highSpeed && !now.output16Bits ? &m_sensor.bits10 : &m_sensor.bits12;
    if (bin == 2 || bin == 4)
        return &m_sensor.bin2;
    return bin == 3 ? &m_sensor.bin3 : nullptr;
}

template <class Base> void HardwareBinDriver<Base>::PrepareFormat(int bin, IMAGE_TYPE type)
{
    WakeUpSensor();
    this->SetOutput16Bits(Is16Bit(type));
    const Settings before = settings.Now();
    if ((before.hardwareBin && bin != before.bin) || type != before.imageType)
        InitSensorBinning(bin);
}

template <class Base> void HardwareBinDriver<Base>::Cam_SetResolution()
{
    const Settings now = settings.Now();
    OutputDbgPrint("SetResolution! start pos x:%d y:%d iHeight:%d iWidth:%d \n", now.startX,
                   now.startY, now.height, now.width);
    const int rows = now.height * now.bin;
    const FpgaHold hold(*this);
    // Quirk, kept: the start is multiplied by the binning here, but not in SetStartPos.
    Write(kFirstRow, now.startY * now.bin + kRowsBefore);
    Write(kRowsEnd, now.startY * now.bin + rows + kRowsAround);
    Write(kReg118, rows + 47);
    Write(kReg11E, rows + 47);
    Write(kReg11C, rows + 48);
    Write(kReg109, rows + 199);
    WriteOutputSize(*this, ReadoutNow().size);
}

template <class Base> bool HardwareBinDriver<Base>::SetStartPos(int x, int y)
{
    return this->MoveRegion(x, y, [this]() VSC_REQUIRES(programming) { WriteStartPos(); });
}

template <class Base> void HardwareBinDriver<Base>::WriteStartPos()
{
    const Settings now = settings.Now();
    OutputDbgPrint("startPos: (%d, %d)\n", now.startX, now.startY);
    {
        const FpgaHold hold(*this);
        const int sensorBin = now.bin / ReadoutNow().softwareBin;
        this->WriteFpga16(fpga::kFirstColumn, now.startX / sensorBin + kBlankColumns);
    }
    const bool capturing = this->capture.Running();
    if (capturing)
        StopFpga();
    Write(kFirstRow, now.startY + kRowsBefore);
    Write(kRowsEnd, now.startY + kRowsAround + now.bin * now.height);
    if (capturing)
        RunFpga();
}

template <class Base> bool HardwareBinDriver<Base>::SetGain(int gain, bool bAuto)
{
    const Programming::Scope scope(programming);
    const int clamped = std::clamp(gain, model.gain.min, model.gain.max);
    settings.With([=](Settings &s) {
        s.gain = clamped;
        s.gainAuto = bAuto;
    });
    Write(kGain, clamped);
    return true;
}

template <class Base> bool HardwareBinDriver<Base>::SetBrightness(int brightness)
{
    const Programming::Scope scope(programming);
    const int clamped = std::clamp(brightness, model.brightness.min, model.brightness.max);
    settings.With([clamped](Settings &s) { s.brightness = clamped; });
    Write(kBlackLevel, clamped);
    return true;
}

template <class Base> bool HardwareBinDriver<Base>::SetHighSpeedMode(bool on)
{
    {
        const Programming::Scope scope(programming);
        settings.With([on](Settings &s) { s.highSpeed = on; });
    }
    if (this->IsHardBinRun() || settings.Now().output16Bits)
        return true;
    const FormatChange change(*this);
    const Settings now = settings.Now();
    InitSensorBinning(now.bin);
    this->WriteSize();
    SetStartPos(now.startX, now.startY);
    this->SetExp(now.exposureUs, now.exposureAuto);
    SetGain(now.gain, now.gainAuto);
    this->SetFPSPerc(now.bandwidth, now.bandwidthAuto);
    return true;
}

template <class Base> void HardwareBinDriver<Base>::ProgramExposure(const FrameExposure &exposure)
{
    this->WriteFrameLength(exposure);
    Write(kShutter, static_cast<int>(exposure.ssh1));
}

template <class Base> uint16_t HardwareBinDriver<Base>::FpgaRunCode()
{
    return this->IsHardBinRun() ? fpga::kRun | fpga::kSensorBins : fpga::kRun;
}

template <class Base> void HardwareBinDriver<Base>::StartSensorStreaming()
{
    const Programming::Scope scope(programming); // an exposure may enter long mode meanwhile
    WakeUpSensor();
    RunFpga();
}

template <class Base> void HardwareBinDriver<Base>::StopSensorStreaming()
{
    const Programming::Scope scope(programming); // as above
    StopFpga();
    SleepSensor();
}

template <class Base>
LongExposurePlan HardwareBinDriver<Base>::PlanLongExposure(uint32_t exposureUs) const
{
    return SleepingExposurePlan(exposureUs, settings.Now().inForce.frameTimeUs);
}

template <class Base> void HardwareBinDriver<Base>::OpenExposureGate()
{
    Write(kReg60, 0x11);
    Driver::OpenExposureGate();
    (void)this->capture.SleepFor(kGatePause);
    SleepSensorLongExp();
}

template <class Base> void HardwareBinDriver<Base>::CloseExposureGate()
{
    WakeSensorLongExp();
    (void)this->capture.SleepFor(kGatePause);
    Driver::CloseExposureGate();
}

template <class Base> void HardwareBinDriver<Base>::WakeUpSensor()
{
    Send(kWakeUp);
}

template <class Base> void HardwareBinDriver<Base>::SleepSensor()
{
    Send(kSleep);
}

template <class Base> void HardwareBinDriver<Base>::WakeSensorLongExp()
{
    Send(kWakeLongExp);
}

template <class Base> void HardwareBinDriver<Base>::SleepSensorLongExp()
{
    Send(kSleepLongExp);
}

template <class Base> void HardwareBinDriver<Base>::Send(RegisterList list)
{
    SendRegisterList(list, [this](uint16_t address, uint16_t value) { Write(address, value); });
}

template class HardwareBinDriver<CCameraBase>;
template class HardwareBinDriver<CCameraCool>;

} // namespace vsccam
