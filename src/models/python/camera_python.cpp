#include "models/python/camera_python.h"

#include "base/clock.h"
#include "base/debug_print.h"
#include "models/python/python_registers.h"
#include "models/register_holds.h"

#include <algorithm>
#include <mutex>

namespace vsccam {

using namespace std::chrono_literals;

namespace {

// Codes of the FPGA's mode register.
constexpr uint16_t kFpgaWait = 16;
constexpr uint16_t kFpgaRun = 1;
constexpr uint16_t kFpgaStop = 17;

constexpr auto kResetPause = 10ms;
constexpr auto kFpgaPause = 20ms;

// Clocks of a row of 640 pixels; not verified on hardware.
constexpr int kNormalRow = 720;
constexpr int kRowWithoutOverhead = 648;

// The budget of USB 3.0 hosts carries the fastest read-out at 16 bits. Not verified on hardware.
constexpr Usb3Traits kTraits = {
    .budget = {.usb2Host = 43'272, .usb3Host = 140'000},
    .lowestClockKHz = 72'000,
    .initialLine = {.clockKHz = 72'000, .length = kNormalRow},
    .startXStep = 16,
};

} // namespace

uint16_t PythonGainCode(int gain, ControlRange range)
{
    constexpr int kOne = 128; // of the register: no gain
    constexpr int kDoublings = 4;
    const int position = (std::clamp(gain, range.min, range.max) - range.min) * kDoublings;
    const int span = range.max - range.min;
    const int doublings = position / span;
    return static_cast<uint16_t>((kOne << doublings) * (span + position % span) / span);
}

CCameraPython::CCameraPython(const CameraModel &model) : Usb3Driver(model, kTraits) {}

void CCameraPython::Send(python::Sequence sequence)
{
    for (const python::SensorWrite &write : sequence) {
        if (write.IsWhole())
            WriteCameraRegister(write.address, write.value);
        else
            WriteCameraRegister_B(write.address, write.lowestBit, write.highestBit, write.value);
    }
}

void CCameraPython::PowerUp()
{
    SoftReset();
    SleepFor(kResetPause);
    EnableClockMngmnt1();
    EnableClockMngmnt2();
    RequiredUploads();
    SoftPowerUp();
    InitializeCDSwithNROT();
    WriteCameraRegister(python::kTimerUnit, 72);
    WriteCameraRegister_B(python::kReg194, 2, 2, 1);
    WriteCameraRegister_B(python::kTemperatureSensor, 0, 0, 1);

    WriteFPGAREG(fpga::kMode, fpga::kReset);
    SleepFor(kFpgaPause);
    WriteFPGAREG(fpga::kMode, kFpgaWait);
    SetUpFpga();
}

void CCameraPython::InitializeCDSwithNROT()
{
    Send(python::kNormalRowOverhead);
    m_timing.shortestLine = kNormalRow;
}

void CCameraPython::InitializeCDSwithZROT()
{
    Send(python::kZeroRowOverhead);
    m_timing.shortestLine = kRowWithoutOverhead;
}

void CCameraPython::LoadReadoutMode()
{
    SetHighSpeedMode(m_highSpeed);
}

bool CCameraPython::SetHighSpeedMode(bool on)
{
    const std::lock_guard lock(m_settingsSection);
    m_highSpeed = on;
    if (!m_usb3Host)
        return false;
    if (m_hardwareBin && m_bin == 2)
        return true;
    StopSensorStreaming();
    on ? InitializeCDSwithZROT() : InitializeCDSwithNROT();
    SetExp(m_exposureUs, m_exposureAuto);
    SetGain(m_gain, m_gainAuto);
    SetFPSPerc(m_bandwidth, m_bandwidthAuto);
    StartSensorStreaming();
    return true;
}

bool CCameraPython::SetStartPos(int x, int y)
{
    return MoveRegion(x, y, [this] {
        const bool reads = capture.Running();
        if (reads) // no frame mixes two windows
            StopPYTHONStreaming();
        WriteWindow();
        if (reads)
            StartPYTHONStreaming();
    });
}

void CCameraPython::WriteWindow()
{
    constexpr int kColumnStep = 8;
    const int firstColumn = m_startX / kColumnStep;
    const int lastColumn = (m_startX + m_width * m_bin) / kColumnStep - 1;
    WriteCameraRegister(python::kWindowColumns,
                        static_cast<uint16_t>(lastColumn << 8 | firstColumn));
    WriteCameraRegister(python::kWindowTop, static_cast<uint16_t>(m_startY));
    WriteCameraRegister(python::kWindowBottom,
                        static_cast<uint16_t>(m_startY + m_height * m_bin - 1));
}

void CCameraPython::Cam_SetResolution()
{
    OutputDbgPrint("SetResolution!\n");
    const Size output = ReadoutSize();
    const FpgaHold hold(*this);
    WriteOutputSize(*this, output);
}

void CCameraPython::SetOutput16Bits(bool on)
{
    Usb3Driver::SetOutput16Bits(on);
    WriteFPGAREG(fpga::kBitDepth, fpga::TwelveBitInput(on));
}

bool CCameraPython::SetGain(int gain, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    m_gain = std::clamp(gain, m_model.gain.min, m_model.gain.max);
    m_gainAuto = bAuto;
    WriteCameraRegister(python::kDigitalGain, PythonGainCode(m_gain, m_model.gain));
    return true;
}

bool CCameraPython::SetBrightness(int brightness)
{
    const std::lock_guard lock(m_settingsSection);
    m_brightness = std::clamp(brightness, m_model.brightness.min, m_model.brightness.max);
    WriteCameraRegister_B(python::kBlackLevel, 0, 7, static_cast<uint16_t>(m_brightness));
    return true;
}

void CCameraPython::ProgramExposure(const FrameExposure &exposure)
{
    WriteFrameLength(exposure);
    WriteCameraRegister(python::kExposure, static_cast<uint16_t>(m_exposureUs));
}

void CCameraPython::StartPYTHONStreaming()
{
    WriteCameraRegister_B(python::kSequencer, 0, 0, 1);
}

void CCameraPython::StopPYTHONStreaming()
{
    WriteCameraRegister_B(python::kSequencer, 0, 0, 0);
}

void CCameraPython::StartSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // the sequencer may be loaded meanwhile
    StartPYTHONStreaming();
    WriteFPGAREG(fpga::kMode, kFpgaRun);
}

void CCameraPython::StopSensorStreaming()
{
    const std::lock_guard lock(m_settingsSection); // as above
    StopPYTHONStreaming();
    WriteFPGAREG(fpga::kMode, kFpgaStop);
}

} // namespace vsccam
