#pragma once

#include "library/capture_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <iterator>

namespace vsccam {

/// A campaign tries every point of a session by night, and every so many-th in `./dev test`.
inline bool EveryPoint()
{
    return std::getenv("VSCCAM_EVERY_POINT") != nullptr; // NOLINT(concurrency-mt-unsafe)
}
inline uint64_t Stride(uint64_t byDay)
{
    return EveryPoint() ? 1 : byDay;
}

/// What takes many sessions is tried at fewer points where each takes long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
inline constexpr uint64_t kSlowness = 16;
#else
inline constexpr uint64_t kSlowness = 1;
#endif

/// Of a folder: say, of the descriptors or the threads of this process.
inline auto EntriesOf(const char *folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

/// A camera of each family, and of each controller.
inline constexpr const char *kFamilies[] = {"VSC470MM-Cool", "VSC2800MM", "VSC048MM", "VSC340MM",
                                            "VSC340MM-S"};

/// A program that does what programs usually do, step by step. It allocates no memory meanwhile.
struct HostSession {
    static constexpr int kWidth = 320;
    static constexpr int kHeight = 240;

    int waitMs = 1'000;             // for a frame of a video
    int broken = 0;                 // frames that were delivered and are no true copies of one
    const char *darkFile = nullptr; // a black one, if any
    Bytes frame = Bytes(size_t{kWidth} * kHeight);

    /// @return whether there was one
    bool Check(VSC_BOOL delivered)
    {
        const HiddenBytes marks = isUSB3Camera() ? kBothEnds : kHeadOnly;
        broken += delivered && !PatternNumber(frame, getWidth(), getStartX(), getStartY(), marks);
        return delivered;
    }
    bool Video()
    {
        return Check(getImageData(frame.data(), static_cast<int>(frame.size()), waitMs));
    }
    bool Exposure()
    {
        startExposure();
        while (getExpStatus() == VSC_EXP_WORKING)
            SleepFor(std::chrono::milliseconds(10));
        return Check(getImageAfterExp(frame.data(), static_cast<int>(frame.size())));
    }
};

inline constexpr _VSC_ID kIdentity{{1, 2, 3, 4, 5, 6, 7, 8}};

/// What it shows that a step succeeded.
enum class Proof { None, Programmed, VideoFrame }; // of a camera that is programmed, too

struct SessionStep {
    const char *name;
    bool (*run)(HostSession &); // whether the host got what it asked for
    uint32_t limitMs = 2'000;   // whatever is wrong with the camera
    Proof proof = Proof::None;
};

inline constexpr SessionStep kSession[] = {
    {"count", [](HostSession &) { return getNumberOfConnectedCameras() > 0; }},
    // After a failed one, the camera has to be closed, or the next does nothing.
    {"open", [](HostSession &) { return openCamera(0) || (closeCamera(), false); }},
    {"initialise", [](HostSession &) { return initCamera() != 0; }, 2'000, Proof::Programmed},
    {"format",
     [](HostSession &host) {
         return setImageFormat(host.kWidth, host.kHeight, 1, VSC_IMG_RAW8) != 0;
     }},
    {"start position", [](HostSession &) { return setStartPos(64, 32), true; }},
    {"exposure", [](HostSession &) { return setValue(CONTROL_EXPOSURE, 10'000, false), true; }},
    {"bandwidth", [](HostSession &) { return setValue(CONTROL_BANDWIDTH, 60, false), true; }},
    {"high speed", [](HostSession &) { return setValue(CONTROL_HIGH_SPEED, 1, false), true; }},
    {"target", [](HostSession &) { return setValue(CONTROL_TARGET_TEMP, -10, false), true; }},
    {"cooler", [](HostSession &) { return setValue(CONTROL_COOLER_ON, 1, false), true; }},
    {"temperature", [](HostSession &) { return getSensorTemp() < 100; }},
    {"new identity",
     [](HostSession &) { return SetID(kIdentity) || !isUSB3Camera(); }, // others have no flash
     60'000},
    {"identity",
     [](HostSession &) {
         _VSC_ID id{};
         return !isUSB3Camera() || (GetID(&id) && std::ranges::equal(id.id, kIdentity.id));
     }},
    {"guiding", [](HostSession &) { return pulseGuide(GUIDE_EAST, 5), true; }},
    {"dark frame",
     [](HostSession &host) { return !host.darkFile || EnableDarkSubtract(host.darkFile); }},
    {"video", [](HostSession &) { return startCapture(), true; }},
    {"first frame", [](HostSession &host) { return host.Video(); }, 2'000, Proof::VideoFrame},
    {"gain in video", [](HostSession &) { return setValue(CONTROL_GAIN, 10, false), true; }},
    {"brightness in video",
     [](HostSession &) { return setValue(CONTROL_BRIGHTNESS, 9, false), true; }},
    {"more frames",
     [](HostSession &host) {
         bool all = true; // up to five of them have the gain of before
         for (int i = 0; i < 8 && all; ++i)
             all = host.Video();
         return all;
     },
     9'000, Proof::VideoFrame},
    {"format in video",
     [](HostSession &host) {
         return setImageFormat(host.kWidth, host.kHeight, 1, VSC_IMG_RAW8) != 0;
     }},
    {"frame of the format", [](HostSession &host) { return host.Video(); }, 2'000,
     Proof::VideoFrame},
    {"stop", [](HostSession &) { return stopCapture(), true; }},
    {"short time", [](HostSession &) { return setValue(CONTROL_EXPOSURE, 100, false), true; }},
    {"short exposure", [](HostSession &host) { return host.Exposure(); }, 5'200},
    {"long time", [](HostSession &) { return setValue(CONTROL_EXPOSURE, 1'200'000, false), true; }},
    {"long exposure", [](HostSession &host) { return host.Exposure(); }, 6'400},
    {"aborted exposure",
     [](HostSession &) { return startExposure(), stopExposure(), getExpStatus() == VSC_EXP_IDLE; },
     4'000},
    {"close", [](HostSession &) { return closeCamera(), true; }},
};

/// A test of each of the families.
class EachFamily : public CaptureFixture, public testing::WithParamInterface<const char *> {
  protected:
    EachFamily()
        : CaptureFixture(GetParam(),
                         std::string_view(GetParam()) == "VSC340MM" ? kHeadOnly : kBothEnds)
    {
    }
};

} // namespace vsccam
