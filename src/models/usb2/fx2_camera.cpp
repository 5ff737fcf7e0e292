#include "models/usb2/fx2_camera.h"

#include "base/debug_print.h"
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
    return Lost() || FirmwareIsCurrent() || RefreshFirmware(n);
}

bool Fx2Camera::FirmwareIsCurrent()
{
    if (Traits().firmware.empty())
        return true;
    // A controller without firmware gives no version. One failed request is not enough to rewrite
    // the memory that it starts from.
    constexpr int kTries = 3;
    uint8_t version = 0;
    for (int i = 0; i < kTries && !GetFirmwareVer(&version); ++i) {
    }
    return version > Traits().lastOldFirmware;
}

/// The controller leaves the bus and comes back with what was written.
bool Fx2Camera::RefreshFirmware(int n)
{
    const bool written = UpdateFW(Traits().firmware);
    if (written)
        (void)ResetDevice(); // says that it failed when the device has gone already
    CloseDevice();
    if (written) {
        SleepFor(1s);
        if (OpenDevice(Model().productId, n))
            return true;
    }
    OutputDbgPrint("open camera fail\n");
    return false;
}

bool Fx2Camera::SelectInputClock(int clockMHz)
{
    return SendCMD(clockMHz == kUsb2FastInputMHz ? request::kSensorClock48MHz
                                                 : request::kSensorClock24MHz);
}

void Fx2Camera::PowerUpBoard()
{
    SendCMD(request::kOutput8Bits);
    SendCMD(request::kStopDataPath);
}

void Fx2Camera::SelectBitDepth(bool is16)
{
    SendCMD(is16 ? request::kOutput16Bits : request::kOutput8Bits);
}

void Fx2Camera::EndHostTiming()
{
    StartSensorCLK();
}

bool Fx2Camera::StartCapture(bool bSingleExposure)
{
    return StartWorker(bSingleExposure, [this] { Usb2CaptureWorker(*this, *this).Run(); });
}

LongExposurePlan Fx2Camera::PlanLongExposure(uint32_t exposureUs) const
{
    return Usb2LongExposurePlan(exposureUs, OwnIntegrationUs());
}

// While its clock stands still, the sensor goes on integrating and reads nothing out.
void Fx2Camera::OpenExposureGate()
{
    StopSensorCLK();
}

void Fx2Camera::CloseExposureGate()
{
    StartSensorCLK();
}

} // namespace vsccam
