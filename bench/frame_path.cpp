#include "standin/bus.h"

#include <vsccam.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

// How fast frames go from the bulk endpoint to the host, against the least that this must cost: two
// copies of their bytes, on the same machine in the same run.
namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<unsigned char>;

constexpr int kWidth = 1936;
constexpr int kHeight = 1096;
constexpr int kFrames = 300;
constexpr int kRounds = 7;
constexpr size_t kSources = 4; // frames that are sent in turn

double FramesPerSecond(Clock::time_point start)
{
    return kFrames / std::chrono::duration<double>(Clock::now() - start).count();
}

/// Worker, frame buffer and getImageData; 0 when a frame did not come.
double DeliveredRate(Bytes &host)
{
    const auto start = Clock::now();
    for (int i = 0; i < kFrames; ++i) {
        if (!getImageData(host.data(), static_cast<int>(host.size()), 5000))
            return 0;
    }
    return FramesPerSecond(start);
}

/// The same bytes through two plain copies.
double CopiedRate(const std::vector<Bytes> &sources, Bytes &slot, Bytes &host)
{
    const auto start = Clock::now();
    for (size_t i = 0; i < kFrames; ++i) {
        const Bytes &source = sources[i % sources.size()];
        std::memcpy(slot.data(), source.data(), source.size());
        std::memcpy(host.data(), slot.data(), slot.size());
    }
    return FramesPerSecond(start);
}

double Median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

} // namespace

int main()
{
    vscsim::Bus::Instance().Plug("VSC470MM", {.speed = 0, .framesMadeBeforehand = kSources});
    if (getNumberOfConnectedCameras() != 1 || !openCamera(0) || !initCamera())
        return 1;
    const size_t size = size_t{kWidth} * kHeight;
    Bytes host(size, 1);
    Bytes slot(size, 1);
    const std::vector<Bytes> sources(kSources, Bytes(size, 2));

    std::vector<double> ratios;
    std::printf("%dx%d, 8 bit: frames/s delivered, two copies, ratio\n", kWidth, kHeight);
    for (int round = 0; round < kRounds; ++round) {
        startCapture();
        (void)DeliveredRate(host); // warm up
        const double delivered = DeliveredRate(host);
        const int dropped = getDroppedFrames();
        stopCapture(); // so that the copies have the machine for themselves
        const double copied = CopiedRate(sources, slot, host);
        if (delivered == 0)
            return 1;
        ratios.push_back(delivered / copied);
        std::printf("%10.0f %10.0f %6.2f  (%d dropped)\n", delivered, copied, ratios.back(),
                    dropped);
    }
    std::printf("median ratio %.2f, goal 0.8\n", Median(ratios));
    closeCamera();
    return 0;
}
