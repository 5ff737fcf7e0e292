#pragma once

#include <cstdint>
#include <optional>

namespace vsccam {

/// State of a single exposure, as hosts see it.
enum ExposureStatus { kExpIdle = 0, kExpWorking = 1, kExpSuccess = 2, kExpFailed = 3 };

enum class CapturePhase : uint8_t {
    Idle,
    Video,
    Exposing, // a single exposure is under way,
    Ready,    // its frame is there,
    Failed,   // or it ended without one
    Lost,     // the device went away, and was not programmed again since
};

/// What changes the state, named after who makes the change: the worker, or the call of a host.
enum class CaptureChange : uint8_t {
    HostStartsVideo,
    HostStartsExposure,
    HostHasNoThread, // for what it has just started
    HostStops,
    HostTakesFrame,
    HostReformats, // frames of the format before are thrown away
    HostCloses,
    WorkerSucceeds,
    WorkerFails,
    WorkerLosesDevice,
    WorkerHasDeviceBack,
};

/// State of a capture, small enough to be changed as a whole without a lock. Not every compiler
/// does so without a library of its own, unless the whole is aligned to its size.
struct alignas(uint32_t) CaptureState {
    CapturePhase phase = CapturePhase::Idle;
    CapturePhase beneath = CapturePhase::Idle; // what is under way, while the device is lost
    bool single = false;                       // what was started last
    // Quirk, kept: hosts see "working" from any start until an exposure ends or a frame is asked
    // for. The end of a video does not take it back.
    bool showsWorking = false;

    bool Lost() const { return phase == CapturePhase::Lost; }
    CapturePhase UnderWay() const { return Lost() ? beneath : phase; }
    /// From a start until the end is asked for or comes by itself.
    bool Running() const
    {
        return UnderWay() == CapturePhase::Video || UnderWay() == CapturePhase::Exposing;
    }
    ExposureStatus Status() const;
};

/// The state after a change; nothing when the change is not legal.
std::optional<CaptureState> After(CaptureState state, CaptureChange change);

} // namespace vsccam
