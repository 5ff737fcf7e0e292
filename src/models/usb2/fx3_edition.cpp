#include "models/usb2/fx3_edition.h"

#include "capture/usb3_capture_worker.h"
#include "models/fpga.h"
#include "models/fpga_registers.h"
#include "models/frame_timing.h"
#include "models/quiet_sensor.h"
#include "models/register_holds.h"

namespace vsccam {

using namespace std::chrono_literals;

namespace {

constexpr auto kResetPause = 20ms;

} // namespace

Fx3Edition::Fx3Edition(const CameraModel &ofModel, const Usb2Traits &traits)
    : Usb2Driver(ofModel, traits)
{
    UseQuieting(QuietSensor);
}

void Fx3Edition::PowerUpBoard()
{
    IdentifyUsb3Camera();
    WriteFpga(*this, fpga::kMode, fpga::kReset);
    SleepFor(kResetPause);
    (void)StartSensorCLK(); // the stream shows whether it runs
    WriteFpga(*this, fpga::kMode, fpga::kIdle);
    SetUpFpga(*this);
}

void Fx3Edition::SelectBitDepth(bool is16)
{
    WriteFpga(*this, fpga::kBitDepth, fpga::TwelveBitInput(is16));
}

void Fx3Edition::SetOutputSize(Size size)
{
    const FpgaHold hold(*this);
    WriteOutputSize(*this, size);
}

void Fx3Edition::BeginHostTiming()
{
    SetFpgaMode(*this, fpga::kRun, true);
}

void Fx3Edition::EndHostTiming()
{
    SetFpgaMode(*this, fpga::kRun, false);
}

bool Fx3Edition::StartCapture(bool bSingleExposure)
{
    return capture.Start(bSingleExposure, [this] { Usb3CaptureWorker(capture, *this).Run(); });
}

void Fx3Edition::StartSensorStreaming()
{
    const Programming::Scope scope(programming); // an exposure may enter long mode meanwhile
    Usb2Driver::StartSensorStreaming();
    SetFpgaMode(*this, fpga::kRun, programming.LongExposure());
}

void Fx3Edition::StopSensorStreaming()
{
    const Programming::Scope scope(programming); // as above
    SetFpgaMode(*this, fpga::kStop, programming.LongExposure());
    Usb2Driver::StopSensorStreaming();
}

LongExposurePlan Fx3Edition::PlanLongExposure(uint32_t exposureUs) const
{
    return GatedExposurePlan(exposureUs, settings.Now().inForce.frameTimeUs);
}

void Fx3Edition::OpenExposureGate()
{
    SetExposureGate(*this, true);
}

void Fx3Edition::CloseExposureGate()
{
    SetExposureGate(*this, false);
}

} // namespace vsccam
