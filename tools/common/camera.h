#pragma once

#include "controls.h"
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
    Microseconds measured{};
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
    /// Sets the exposure and returns what it is now: models round and clamp.
    Microseconds SetExposure(Microseconds time);

    /// Takes one picture of the set exposure. A frame must arrive within `patience` after it.
    Exposure Take(Microseconds asked, Microseconds patience, ProgressBar &bar);

    /// Throws when the camera is gone.
    void CheckPresence() const;

    /// Phase of the delivered picture; nothing when it has no mosaic.
    std::optional<Mosaic> PictureMosaic() const;

  private:
    struct CloseAtEnd {
        ~CloseAtEnd() { closeCamera(); }
    };

    [[noreturn]] void ThrowNoFrame(const std::string &what) const;
    Microseconds ExposedTime(Microseconds asked, Microseconds untilFrame) const;

    CameraEntry m_entry;
    CloseAtEnd m_closeAtEnd; // stops exposure and cooling too, on every way out
};

/// Phase of the sensor's mosaic by its code, and what flips make of it.
Mosaic MosaicOf(int bayerCode, bool flipX, bool flipY);

/// "RGGB" and its like.
const char *BayerPattern(Mosaic mosaic);

} // namespace vsctool
