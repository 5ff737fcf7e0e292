#pragma once

#include "library/capture_fixture.h"

#include <cstdlib>

namespace vsccam {

/// A campaign tries every point of a session by night, and every so many-th in `./dev test`.
inline uint64_t Stride(uint64_t byDay)
{
    return std::getenv("VSCCAM_EVERY_POINT") ? 1 : byDay; // NOLINT(concurrency-mt-unsafe)
}

/// A camera of each family, and of each controller.
inline constexpr const char *kFamilies[] = {"VSC470MM-Cool", "VSC2800MM", "VSC048MM", "VSC340MM",
                                            "VSC340MM-S"};

/// A program that does what programs usually do, step by step. It allocates no memory meanwhile.
struct HostSession {
    static constexpr int kWidth = 320;
    static constexpr int kHeight = 240;

    int waitMs = 1'000; // for a frame of a video
    int broken = 0;     // frames that were delivered and are no true copies of one
    Bytes frame = Bytes(size_t{kWidth} * kHeight);

    /// @return whether there was one
    bool Check(VSC_BOOL delivered)
    {
        const HiddenBytes marks = isUSB3Camera() ? kBothEnds : kHeadOnly;
        broken += delivered && !PatternNumber(frame, kWidth, getStartX(), getStartY(), marks);
        return delivered;
    }
    bool Video()
    {
        return Check(getImageData(frame.data(), static_cast<int>(frame.size()), waitMs));
    }
    bool Exposure(int us)
    {
        setValue(CONTROL_EXPOSURE, us, false);
        startExposure();
        while (getExpStatus() == VSC_EXP_WORKING)
            SleepFor(std::chrono::milliseconds(1));
        return Check(getImageAfterExp(frame.data(), static_cast<int>(frame.size())));
    }
};

struct SessionStep {
    const char *name;
    bool (*run)(HostSession &); // whether the host got what it asked for
    uint32_t limitMs = 2'000;   // whatever is wrong with the camera
};

inline constexpr SessionStep kSession[] = {
    {"count", [](HostSession &) { return getNumberOfConnectedCameras() > 0; }},
    {"open", [](HostSession &) { return openCamera(0) != 0; }},
    {"initialise", [](HostSession &) { return initCamera() != 0; }},
    {"format",
     [](HostSession &host) {
         return setImageFormat(host.kWidth, host.kHeight, 1, VSC_IMG_RAW8) != 0;
     }},
    {"start position", [](HostSession &) { return setStartPos(64, 32), true; }},
    {"exposure", [](HostSession &) { return setValue(CONTROL_EXPOSURE, 10'000, false), true; }},
    {"bandwidth", [](HostSession &) { return setValue(CONTROL_BANDWIDTH, 60, true), true; }},
    {"high speed", [](HostSession &) { return setValue(CONTROL_HIGH_SPEED, 1, false), true; }},
    {"target", [](HostSession &) { return setValue(CONTROL_TARGET_TEMP, -10, false), true; }},
    {"cooler", [](HostSession &) { return setValue(CONTROL_COOLER_ON, 1, false), true; }},
    {"temperature", [](HostSession &) { return getSensorTemp() < 100; }},
    {"identity",
     [](HostSession &) {
         _VSC_ID id{};
         return GetID(&id) + 1 > 0; // false when none was ever stored
     }},
    {"guiding", [](HostSession &) { return pulseGuide(GUIDE_EAST, 5), true; }},
    {"video", [](HostSession &) { return startCapture(), true; }},
    {"first frame", [](HostSession &host) { return host.Video(); }},
    {"gain in video", [](HostSession &) { return setValue(CONTROL_GAIN, 10, false), true; }},
    {"second frame", [](HostSession &host) { return host.Video(); }},
    {"format in video",
     [](HostSession &host) {
         return setImageFormat(host.kWidth, host.kHeight, 1, VSC_IMG_RAW8) != 0;
     }},
    {"third frame", [](HostSession &host) { return host.Video(); }},
    {"stop", [](HostSession &) { return stopCapture(), true; }},
    {"short exposure", [](HostSession &host) { return host.Exposure(100); }, 5'200},
    {"long exposure", [](HostSession &host) { return host.Exposure(1'200'000); }, 6'400},
    {"aborted exposure",
     [](HostSession &) { return startExposure(), stopExposure(), getExpStatus() == VSC_EXP_IDLE; }},
    {"close", [](HostSession &) { return closeCamera(), true; }},
};

} // namespace vsccam
