#include "models/hardware_bin/hardware_bin_driver.h"

#include "base/debug_print.h"
#include "models/hardware_bin/binning_registers.h"
#include "models/hardware_bin/long_exposure.h"
#include "models/register_holds.h"

#include <algorithm>
#include <mutex>

namespace vsccam {

using namespace std::chrono_literals;
using namespace binning;

namespace {

constexpr auto kFpgaResetPause = 20ms;
constexpr auto kGatePause = 10ms;

// What the rows of a region count before and behind it.
constexpr int kRowsBefore = 32;
constexpr int kRowsAround = 36;

// The power states.
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
HardwareBinDriver<Base>::HardwareBinDriver(const CameraModel &model, const BinningSensor &sensor)
    : Driver(model, sensor.common), m_sensor(sensor)
{
}

template <class Base> void HardwareBinDriver<Base>::PowerUp()
{
    WriteFPGAREG(fpga::kExposureGate, 0x80);
    SleepFor(kFpgaResetPause);
    WriteFPGAREG(fpga::kExposureGate, 0);
    Send(m_sensor.powerUp);
    WriteFPGAREG(fpga::kMode, fpga::kReset);
    SleepFor(kFpgaResetPause);
    WriteFPGAREG(fpga::kMode, fpga::kIdle);
    WriteFPGAREG(fpga::kBitDepth, fpga::kInput12Bits);
}

template <class Base> void HardwareBinDriver<Base>::InitSensorBinning(int bin)
{
    const FpgaHold hold(*this);
    m_bin = bin;
    const SensorMode *mode = ModeFor(bin);
    if (!mode)
        return;
    Send(mode->sensor);
    for (const auto [reg, value] : mode->fpga) {
        const bool wide = reg == fpga::kBitDepth && m_output16Bits;
        WriteFPGAREG(reg, wide ? value | fpga::kOutput16Bits : value);
    }
    m_timing.shortestLine = mode->shortestLine;
    OutputDbgPrint("%s", mode->message);
}

/// Nothing for binnings that the sensor has not.
template <class Base> const SensorMode *HardwareBinDriver<Base>::ModeFor(int bin) const
{
    if (!m_hardwareBin || bin == 1)
        return m_highSpeed && !m_output16Bits ? &m_sensor.bits10 : &m_sensor.bits12;
    if (bin == 2 || bin == 4)
        return &m_sensor.bin2;
    return bin == 3 ? &m_sensor.bin3 : nullptr;
}

template <class Base> void HardwareBinDriver<Base>::PrepareFormat(int bin, IMAGE_TYPE type)
{
    WakeUpSensor();
    this->SetOutput16Bits(Is16Bit(type));
    if ((m_hardwareBin && bin != m_bin) || type != this->ImageType())
        InitSensorBinning(bin);
}

template <class Base> void HardwareBinDriver<Base>::Cam_SetResolution()
{
    OutputDbgPrint("SetResolution! start pos x:%d y:%d iHeight:%d iWidth:%d \n",
                   static_cast<int>(m_startX), static_cast<int>(m_startY),
                   static_cast<int>(m_height), static_cast<int>(m_width));
    const Size output = ReadoutSize();
    const int rows = m_height * m_bin;
    const auto write = [this](uint16_t address, int value) {
        WriteCameraRegister(address, static_cast<uint16_t>(value));
    };
    const FpgaHold hold(*this);
    // Quirk, kept: the start is multiplied by the binning here, but not in SetStartPos.
    write(kFirstRow, m_startY * m_bin + kRowsBefore);
    write(kRowsEnd, m_startY * m_bin + rows + kRowsAround);
    write(kReg118, rows + 47);
    write(kReg11E, rows + 47);
    write(kReg11C, rows + 48);
    write(kReg109, rows + 199);
    WriteOutputSize(*this, output);
}

template <class Base> bool HardwareBinDriver<Base>::SetStartPos(int x, int y)
{
    return this->MoveRegion(x, y, [this] { WriteStartPos(); });
}

template <class Base> void HardwareBinDriver<Base>::WriteStartPos()
{
    OutputDbgPrint("startPos: (%d, %d)\n", static_cast<int>(m_startX), static_cast<int>(m_startY));
    {
        const FpgaHold hold(*this);
        const int sensorBin = m_bin / this->SoftwareBin();
        WriteFpga16(fpga::kFirstColumn, m_startX / sensorBin + kBlankColumns);
    }
    const bool capturing = this->capture.Running();
    if (capturing)
        StopFpga();
    WriteCameraRegister(kFirstRow, static_cast<uint16_t>(m_startY + kRowsBefore));
    WriteCameraRegister(kRowsEnd, static_cast<uint16_t>(m_startY + kRowsAround + m_bin * m_height));
    if (capturing)
        RunFpga();
}

template <class Base> bool HardwareBinDriver<Base>::SetGain(int gain, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    m_gain = std::clamp(gain, m_model.gain.min, m_model.gain.max);
    m_gainAuto = bAuto;
    WriteCameraRegister(kGain, static_cast<uint16_t>(m_gain));
    return true;
}

template <class Base> bool HardwareBinDriver<Base>::SetBrightness(int brightness)
{
    const std::lock_guard lock(m_settingsSection);
    m_brightness = std::clamp(brightness, m_model.brightness.min, m_model.brightness.max);
    WriteCameraRegister(kBlackLevel, static_cast<uint16_t>(m_brightness));
    return true;
}

template <class Base> bool HardwareBinDriver<Base>::SetHighSpeedMode(bool on)
{
    {
        const std::lock_guard lock(m_settingsSection);
        m_highSpeed = on;
    }
    if (this->IsHardBinRun() || m_output16Bits)
        return true;
    const CapturePause pause(*this);
    const std::lock_guard lock(m_settingsSection);
    InitSensorBinning(m_bin);
    this->WriteSize();
    SetStartPos(m_startX, m_startY);
    this->SetExp(m_exposureUs, m_exposureAuto);
    SetGain(m_gain, m_gainAuto);
    this->SetFPSPerc(m_bandwidth, m_bandwidthAuto);
    return true;
}

template <class Base> void HardwareBinDriver<Base>::ProgramExposure(const FrameExposure &exposure)
{
    this->WriteFrameLength(exposure);
    WriteCameraRegister(kShutter, static_cast<uint16_t>(exposure.ssh1));
}

template <class Base> uint16_t HardwareBinDriver<Base>::FpgaRunCode()
{
    return this->IsHardBinRun() ? fpga::kRun | fpga::kSensorBins : fpga::kRun;
}

template <class Base> void HardwareBinDriver<Base>::StartSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // an exposure may enter long mode meanwhile
    WakeUpSensor();
    RunFpga();
}

template <class Base> void HardwareBinDriver<Base>::StopSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // as above
    StopFpga();
    SleepSensor();
}

template <class Base>
LongExposurePlan HardwareBinDriver<Base>::PlanLongExposure(uint32_t exposureUs) const
{
    return SleepingExposurePlan(exposureUs, m_frameTimeUs);
}

template <class Base> void HardwareBinDriver<Base>::OpenExposureGate()
{
    WriteCameraRegister(kReg60, 0x11);
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
    SendRegisterList(
        list, [this](uint16_t address, uint16_t value) { WriteCameraRegister(address, value); });
}

template class HardwareBinDriver<CCameraBase>;
template class HardwareBinDriver<CCameraCool>;

} // namespace vsccam
