#pragma once

#include "camera.h"
#include "controls.h"
#include "fits_header.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// The cameras on INDI. What passes between the thread of the camera and the threads of INDI are
/// the values in here; neither sees anything else of the other.
namespace vscindi {

using vsctool::Framing;
using vsctool::Microseconds;
using vsctool::PixelFormat;
using vsctool::Region;

/// What the open camera is and can do.
struct CameraFacts {
    std::string model;
    std::string port;        // "1-2.3", empty where the system does not show it
    std::string identity;    // in hex, empty when it holds none
    std::string notVerified; // of this model, in the library's words
    int maxWidth = 0;
    int maxHeight = 0;
    double pixelUm = 0;
    bool colour = false;
    int bayerCode = 0;
    bool cooled = false;
    bool thermometer = false;
    std::vector<int> bins;
    std::vector<PixelFormat> formats;
    Microseconds longestExposure{};
    std::map<Control_TYPE, vsctool::ControlState> controls;
};

/// What a control is to be, or is.
struct ControlValue {
    int value = 0;
    bool automatic = false;
    bool operator==(const ControlValue &) const = default;
};
using Controls = std::map<Control_TYPE, ControlValue>;

/// A frame, and what was in force when it was exposed.
struct FrameFacts {
    uint64_t exposure = 0; // its number
    int width = 0;
    int height = 0;
    PixelFormat format = PixelFormat::kRaw16;
    int bin = 1;
    Region region; // in binned pixels
    vsctool::PictureFacts header;
    Microseconds uncertainty{}; // of the start
};

/// Since the driver was started.
struct Statistics {
    int64_t frames = 0;    // handed over
    int64_t dropped = 0;   // by the library, in total
    int64_t discarded = 0; // by this driver: aborted, or nobody took them in time
    int reconnects = 0;
    Microseconds worstGap{}; // between two frames of a video
};

enum class State { Closed, Idle, Exposing, Reading, Uploading, Video, Recovering };
const char *NameOf(State state);

enum class Axis { NorthSouth, EastWest };

// What the thread of the camera tells.
struct Opened {
    CameraFacts facts;
    Framing framing;
};
struct NotOpened {
    std::string why;
};
struct Closed {};
/// Its frame lies in the buffer.
struct FrameReady {
    FrameFacts facts;
};
/// No frame comes of it.
struct ExposureFailed {
    uint64_t exposure = 0;
    std::string why;
};
/// What is in force, and why not what was asked for.
struct Framed {
    Framing framing;
    std::string refused;
};
struct PulseEnded {
    Axis axis{};
    bool whole = false;
};
struct Lost {};
/// All settings are in force again, but for those that are named.
struct Recovered {
    std::string differences;
};
struct Trouble {
    std::string what;
};
struct Report {
    State state = State::Closed;
    std::optional<double> temperatureC;
    int coolerPerCent = 0;
    std::optional<double> setPointC; // of a cooler that regulates
    bool warming = false;
    Controls controls;
    Statistics statistics;
};
using Event = std::variant<Opened, NotOpened, Closed, FrameReady, ExposureFailed, Framed,
                           PulseEnded, Lost, Recovered, Trouble, Report>;

} // namespace vscindi
