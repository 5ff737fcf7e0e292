#pragma once

#include "base/clock.h"
#include "base/debug_print.h"
#include "camera/pattern.h"
#include "standin/bus.h"
#include "support/simulated_bus.h"

#include <libusb.h>
#include <vsccam.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace vsccam {

using Bytes = std::vector<uint8_t>;

/// What the library prints meanwhile, without its tags.
template <class Act> std::string Printed(Act act)
{
    constexpr std::string_view kTag = "<VSC SDK> ";
    testing::internal::CaptureStdout();
    SetDebugPrint(true);
    act();
    SetDebugPrint(false);
    std::string text = testing::internal::GetCapturedStdout();
    for (size_t at = 0; (at = text.find(kTag, at)) != std::string::npos;)
        text.erase(at, kTag.size());
    return text;
}

/// A host program: the exported functions on a simulated bus.
class HostTest : public SimulatedBus {
  protected:
    void TearDown() override
    {
        closeCamera();
        SimulatedBus::TearDown();
    }

    static vscsim::Bus &Bus() { return vscsim::Bus::Instance(); }

    /// Lets the next calls of a libusb function fail.
    static void FailNext(std::string_view function, uint64_t count, int code)
    {
        Bus().FailCalls(Bus().Calls(function), count, code, function);
    }

    /// Plugs in one camera, opens and initialises it, and forgets the traffic.
    int OpenOne(std::string_view model, vscsim::CameraOptions options = {})
    {
        const int device = Bus().Plug(model, std::move(options));
        EXPECT_EQ(getNumberOfConnectedCameras(), 1);
        EXPECT_TRUE(openCamera(0));
        EXPECT_TRUE(initCamera());
        (void)Bus().TakeTraffic(device);
        return device;
    }

    /// Closes the camera and takes it off the bus.
    static void Remove(int device)
    {
        closeCamera();
        Bus().Unplug(device);
    }

    static uint64_t FramesProduced(int device)
    {
        return Bus().With(device, [](auto &camera) { return camera.FramesProduced(); });
    }

    static size_t FrameBytes()
    {
        constexpr size_t kBytesPerPixel[] = {1, 3, 2, 1};
        return static_cast<size_t>(getWidth()) * static_cast<size_t>(getHeight()) *
               kBytesPerPixel[getImgType()];
    }

    /// The next video frame, empty when none came.
    static Bytes NextFrame(int waitMs)
    {
        Bytes frame(FrameBytes());
        if (!getImageData(frame.data(), static_cast<int>(frame.size()), waitMs))
            frame.clear();
        return frame;
    }

    /// The frame of a finished exposure, empty when there was none.
    static Bytes ExposedFrame()
    {
        Bytes frame(FrameBytes());
        if (!getImageAfterExp(frame.data(), static_cast<int>(frame.size())))
            frame.clear();
        return frame;
    }
};

/// Bytes at the ends of a frame that the camera writes its marks over; the library gives them the
/// values of the rows next to them.
struct HiddenBytes {
    int head;
    int tail;
};
inline constexpr HiddenBytes kBothEnds = {4, 4}; // USB 3.0
inline constexpr HiddenBytes kHeadOnly = {8, 0}; // USB 2.0

/// Number of the pattern frame, modulo 256, that an 8-bit raw frame without binning and flips is a
/// whole and true copy of; nothing when it is none.
inline std::optional<int> PatternNumber(std::span<const uint8_t> frame, int width, int startX,
                                        int startY, HiddenBytes marks = kBothEnds)
{
    const auto value = [=](uint32_t number, int x, int y) {
        return static_cast<uint8_t>(vscsim::PatternSample(number, startX + x, startY + y) >> 8);
    };
    if (frame.empty())
        return std::nullopt;
    const int height = static_cast<int>(frame.size()) / width;
    uint32_t number = 0;
    const uint8_t probe = frame[static_cast<size_t>(width)]; // first pixel of the second row
    while (number < 256 && value(number, 0, 1) != probe)
        ++number;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool head = y == 0 && x < marks.head;
            const bool tail = y == height - 1 && x >= width - marks.tail;
            const int row = head ? 1 : tail ? height - 2 : y;
            if (frame[static_cast<size_t>(y) * static_cast<size_t>(width) +
                      static_cast<size_t>(x)] != value(number, x, row))
                return std::nullopt;
        }
    }
    return static_cast<int>(number);
}

} // namespace vsccam
