#include "models/python/camera_python.h"

#include "base/clock.h"
#include "base/debug_print.h"
#include "models/python/python_registers.h"
#include "models/register_holds.h"

#include <algorithm>

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

CCameraPython::CCameraPython(const CameraModel &ofModel) : Usb3Driver(ofModel, kTraits) {}

void CCameraPython::Send(python::Sequence sequence)
{
    for (const python::SensorWrite &write : sequence) {
        if (write.IsWhole())
            Write(write.address, write.value);
        else
            WriteBits(write.address, write.lowestBit, write.highestBit, write.value);
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
    Write(python::kTimerUnit, 72);
    WriteBits(python::kReg194, 2, 2, 1);
    WriteBits(python::kTemperatureSensor, 0, 0, 1);

    WriteFpga(fpga::kMode, fpga::kReset);
    SleepFor(kFpgaPause);
    WriteFpga(fpga::kMode, kFpgaWait);
    SetUpFpga();
}

/// The camera takes note of a write that got lost, and is then programmed again.
void CCameraPython::WriteBits(uint16_t address, int lowest, int highest, uint16_t value)
{
    (void)WriteCameraRegister_B(address, lowest, highest, value);
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
    SetHighSpeedMode(settings.Now().highSpeed);
}

bool CCameraPython::SetHighSpeedMode(bool on)
{
    const Programming::Scope scope(programming);
    settings.With([on](Settings &s) { s.highSpeed = on; });
    const Settings now = settings.Now();
    if (!now.usb3Host)
        return false;
    if (now.hardwareBin && now.bin == 2)
        return true;
    StopSensorStreaming();
    on ? InitializeCDSwithZROT() : InitializeCDSwithNROT();
    SetExp(now.exposureUs, now.exposureAuto);
    SetGain(now.gain, now.gainAuto);
    SetFPSPerc(now.bandwidth, now.bandwidthAuto);
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
    const Settings now = settings.Now();
    const int firstColumn = now.startX / kColumnStep;
    const int lastColumn = (now.startX + now.width * now.bin) / kColumnStep - 1;
    Write(python::kWindowColumns, lastColumn << 8 | firstColumn);
    Write(python::kWindowTop, now.startY);
    Write(python::kWindowBottom, now.startY + now.height * now.bin - 1);
}

void CCameraPython::Cam_SetResolution()
{
    OutputDbgPrint("SetResolution!\n");
    const FpgaHold hold(*this);
    WriteOutputSize(*this, ReadoutNow().size);
}

void CCameraPython::SetOutput16Bits(bool on)
{
    Usb3Driver::SetOutput16Bits(on);
    WriteFpga(fpga::kBitDepth, fpga::TwelveBitInput(on));
}

bool CCameraPython::SetGain(int gain, bool bAuto)
{
    const Programming::Scope scope(programming);
    const int clamped = std::clamp(gain, model.gain.min, model.gain.max);
    settings.With([=](Settings &s) {
        s.gain = clamped;
        s.gainAuto = bAuto;
    });
    Write(python::kDigitalGain, PythonGainCode(clamped, model.gain));
    return true;
}

bool CCameraPython::SetBrightness(int brightness)
{
    const Programming::Scope scope(programming);
    const int clamped = std::clamp(brightness, model.brightness.min, model.brightness.max);
    settings.With([clamped](Settings &s) { s.brightness = clamped; });
    WriteBits(python::kBlackLevel, 0, 7, static_cast<uint16_t>(clamped));
    return true;
}

void CCameraPython::ProgramExposure(const FrameExposure &exposure)
{
    WriteFrameLength(exposure);
    Write(python::kExposure, static_cast<int>(settings.Now().exposureUs));
}

void CCameraPython::StartPYTHONStreaming()
{
    WriteBits(python::kSequencer, 0, 0, 1);
}

void CCameraPython::StopPYTHONStreaming()
{
    WriteBits(python::kSequencer, 0, 0, 0);
}

void CCameraPython::StartSensorStreaming()
{
    const Programming::Scope scope(programming); // the sequencer may be loaded meanwhile
    StartPYTHONStreaming();
    WriteFpga(fpga::kMode, kFpgaRun);
}

void CCameraPython::StopSensorStreaming()
{
    const Programming::Scope scope(programming); // as above
    StopPYTHONStreaming();
    WriteFpga(fpga::kMode, kFpgaStop);
}

} // namespace vsccam
