#pragma once

#include "console.h"
#include "controls.h"
#include "exposure_plan.h"
#include "picture.h"
#include "progress.h"
#include "units.h"
#include "usb_devices.h"

#include <vsccam.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace vsctool {

/// A taken picture and what was seen while it was taken.
struct Exposure {
    Picture picture;
    UtcTime start;
    Microseconds asked{};
    Microseconds planned{};
    std::optional<Microseconds> measured; // only where the library times the exposure
    int droppedFrames = 0;
};

/// Size, binning and format to set; without a region, all of the sensor.
struct Framing {
    int bin = 1;
    PixelFormat format = PixelFormat::kRaw16;
    std::optional<Region> region;
};

/// Which camera, and what is set as soon as it is open.
struct CameraChoice {
    std::string selector; // see SelectCamera
    std::vector<Setting> settings;
};

/// The open camera; there is one per process. All functions throw Failure.
class Camera {
  public:
    explicit Camera(const CameraChoice &choice);

    const CameraEntry &Entry() const { return m_entry; }

    void SetFraming(const Framing &framing);
    /// Sets the exposure, and tells when it will be another one: models clamp, and the library
    /// times long ones in whole steps.
    void SetExposure(Microseconds time, Console &console);

    /// Takes one picture of the set exposure. A frame must arrive within `patience` after it.
    Exposure Take(Microseconds patience, ProgressBar &bar);

    /// What of this model was never tried on hardware, in the library's words; empty: nothing.
    const std::string &NotVerified() const { return m_notVerified; }

    /// Throws when the camera is gone.
    void CheckPresence() const;

    /// Phase of the delivered picture; nothing when it has no mosaic.
    std::optional<Mosaic> PictureMosaic() const;

  private:
    struct CloseAtEnd {
        ~CloseAtEnd() { closeCamera(); }
    };

    [[noreturn]] void ThrowNoFrame(const std::string &what);
    std::vector<LibraryLine> Listen();
    void AwaitFrame(Exposure &exposure, Microseconds patience, ProgressBar &bar);
    void TellTimes(Exposure &exposure, std::chrono::steady_clock::time_point begin);

    CameraEntry m_entry;
    std::string m_notVerified;
    std::string m_memoryAdvice; // once the kernel refused the library memory for transfers
    Microseconds m_asked{};
    CloseAtEnd m_closeAtEnd; // stops exposure and cooling too, on every way out
};

/// Phase of the sensor's mosaic by its code, and what flips make of it.
Mosaic MosaicOf(int bayerCode, bool flipX, bool flipY);

/// "RGGB" and its like.
const char *BayerPattern(Mosaic mosaic);

} // namespace vsctool
