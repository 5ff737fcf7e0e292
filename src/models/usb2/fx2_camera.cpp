#include "models/usb2/fx2_camera.h"

#include "base/debug_print.h"
#include "capture/usb2_capture_worker.h"
#include "usb/requests.h"

namespace vsccam {

using namespace std::chrono_literals;

bool Fx2Camera::OpenCamera(int n)
{
    if (IsOpened())
        return true;
    if (!Usb2Driver::OpenCamera(n))
        return false;
    // A worker that opens a lost camera again must end soon when it is stopped.
    return capture.Lost() || BringFirmwareUpToDate(n);
}

/// Where the files for it are not there, a camera with old firmware is used as it is.
bool Fx2Camera::BringFirmwareUpToDate(int n)
{
    if (!Traits().firmware.name)
        return true;
    const std::optional<uint8_t> version = FirmwareVersion();
    if (!version)
        return GiveUp();
    if (*version > Traits().lastOldFirmware)
        return true;
    const auto image = ReadFx2Image(Traits().firmware);
    const auto programmer = image ? ReadEepromProgrammer() : std::nullopt;
    return !programmer || RefreshFirmware(n, *image, *programmer);
}

/// Nothing when the camera gave no answer: that is no reason to rewrite the memory that its
/// controller starts from.
std::optional<uint8_t> Fx2Camera::FirmwareVersion()
{
    constexpr int kTries = 3;
    std::optional<uint8_t> version;
    for (int i = 0; i < kTries && !version; ++i)
        version = AskFirmwareVersion();
    return version;
}

/// The controller leaves the bus and comes back with what was written.
bool Fx2Camera::RefreshFirmware(int n, std::span<const uint8_t> image,
                                const EepromProgrammer &programmer)
{
    if (!UpdateFW(image, programmer))
        return GiveUp();
    (void)ResetDevice(); // says that it failed when the device has gone already
    CloseDevice();
    SleepFor(1s);
    return OpenDevice(model.productId, n) || GiveUp();
}

bool Fx2Camera::GiveUp()
{
    CloseDevice();
    OutputDbgPrint("open camera fail\n");
    return false;
}

bool Fx2Camera::SelectInputClock(int clockMHz)
{
    return SendCMD(clockMHz == kUsb2FastInputMHz ? request::kSensorClock48MHz
                                                 : request::kSensorClock24MHz);
}

/// The camera takes note of a command that got lost, and is then programmed again.
void Fx2Camera::Command(uint8_t command)
{
    (void)SendCMD(command);
}

void Fx2Camera::PowerUpBoard()
{
    Command(request::kOutput8Bits);
    Command(request::kStopDataPath);
}

void Fx2Camera::SelectBitDepth(bool is16)
{
    Command(is16 ? request::kOutput16Bits : request::kOutput8Bits);
}

void Fx2Camera::EndHostTiming()
{
    (void)StartSensorCLK();
}

bool Fx2Camera::StartCapture(bool bSingleExposure)
{
    return capture.Start(bSingleExposure, [this] { Usb2CaptureWorker(capture, *this).Run(); });
}

LongExposurePlan Fx2Camera::PlanLongExposure(uint32_t exposureUs) const
{
    return Usb2LongExposurePlan(exposureUs, OwnIntegrationUs());
}

// While its clock stands still, the sensor goes on integrating and reads nothing out.
void Fx2Camera::OpenExposureGate()
{
    (void)StopSensorCLK();
}

void Fx2Camera::CloseExposureGate()
{
    (void)StartSensorCLK();
}

} // namespace vsccam
