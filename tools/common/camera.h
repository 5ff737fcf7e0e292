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
#include <map>
#include <memory>
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

/// The open camera; there is one per process. It is closed with the last object of this class,
/// which ends exposure and cooling, too. All functions throw Failure.
class Camera {
  public:
    /// Opens the camera, or takes the one that is kept open; see KeptCamera.
    explicit Camera(const CameraChoice &choice);

    const CameraEntry &Entry() const { return m_open->entry; }

    /// Whether it stays open when this object goes, and keeps its temperature.
    bool IsKept() const { return m_open == s_kept; }

    void SetFraming(const Framing &framing);
    /// Sets the exposure, and tells when it will be another one: models clamp, and the library
    /// times long ones in whole steps.
    void SetExposure(Microseconds time, Console &console);

    /// Takes one picture of the set exposure. A frame must arrive within `patience` after it.
    Exposure Take(Microseconds patience, ProgressBar &bar);

    /// What of this model was never tried on hardware, in the library's words; empty: nothing.
    const std::string &NotVerified() const { return m_open->notVerified; }

    /// Opens the camera anew, after it was lost, wherever it is plugged in by now. It is as a
    /// camera that was just opened. Throws Failure, kNoCamera while it is not there.
    void OpenAgain();

    bool IsPresent() const;
    /// Throws when the camera is gone.
    void CheckPresence() const;
    /// Throws what there is to say when a frame does not come: that it is gone, or `what`.
    [[noreturn]] void ThrowNoFrame(const std::string &what);

    /// What the library has said since the last call; keeps what is asked for later.
    std::vector<LibraryLine> Listen();

    /// Phase of the delivered picture; nothing when it has no mosaic.
    std::optional<Mosaic> PictureMosaic() const;

    /// What a control was when the camera was opened, before anything was set; nothing when it is
    /// only read.
    std::optional<int> DefaultOf(const NamedControl &control) const;

  private:
    friend class KeptCamera;

    /// What is known of the camera for as long as it is open.
    struct Open {
        Open() = default;
        ~Open() { closeCamera(); } // on every way out
        Open(const Open &) = delete;
        Open &operator=(const Open &) = delete;

        CameraEntry entry;
        std::map<const NamedControl *, int> defaults;
        std::string notVerified;
        std::string memoryAdvice; // once the kernel refused the library memory for transfers
    };

    void OpenAnew(const std::string &selector);
    void OpenFound();
    void AwaitFrame(Exposure &exposure, Microseconds patience, ProgressBar &bar);

    std::shared_ptr<Open> m_open;
    Microseconds m_asked{};

    // Of KeptCamera. The main thread alone opens cameras.
    static inline bool s_keeps = false;
    static inline std::shared_ptr<Open> s_kept;
};

/// While this object lives, the camera that is opened first stays open, so that it keeps its
/// settings and its temperature from one command to the next. There is one object at a time.
class KeptCamera {
  public:
    KeptCamera();
    ~KeptCamera();
    KeptCamera(const KeptCamera &) = delete;
    KeptCamera &operator=(const KeptCamera &) = delete;

    bool IsOpen() const;
    /// Ends what a command may have left behind: capture, dark frame, flips. Controls and cooling
    /// stay as they are.
    void Rest() const;
    /// Closes the camera; the next command opens it anew.
    void LetGo();
};

/// Phase of the sensor's mosaic by its code, and what flips make of it.
Mosaic MosaicOf(int bayerCode, bool flipX, bool flipY);

/// "RGGB" and its like.
const char *BayerPattern(Mosaic mosaic);

} // namespace vsctool
