#include "standin/bus.h"
#include "watched_calls.h"

#include <vsccam.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

// How fast frames go from the bulk endpoint to the host, against two plain copies of their bytes on
// the same machine in the same run: of the fastest rounds of both, and in the median round. How
// often they are copied, and how long the bus waits between two frames.
namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<unsigned char>;

constexpr int kWidth = 1936;
constexpr int kHeight = 1096;
constexpr size_t kFrameBytes = size_t{kWidth} * kHeight;
constexpr int kFrames = 60;
constexpr int kRounds = 40;    // short ones: in some, nobody else uses the machine
constexpr size_t kSources = 2; // frames in turn, as many as buffers that the library fills

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

/// What comes of captures, all rounds together.
struct Deliveries {
    std::vector<double> rates;
    int dropped = 0;
    watched::Copies copies;
    std::vector<double> gaps;
};

/// A round of a capture; false when a frame did not come.
bool Deliver(Bytes &host, bool busCopies, Deliveries &deliveries)
{
    watched::LeaveOutCopiesOfBus(!busCopies);
    startCapture();
    for (size_t i = 0; i < 2 * kSources; ++i) // warm up
        (void)getImageData(host.data(), static_cast<int>(host.size()), 5000);
    (void)watched::TakeCopies();
    (void)watched::TakeGaps();
    const int droppedBefore = getDroppedFrames();
    deliveries.rates.push_back(DeliveredRate(host));
    const watched::Copies copies = watched::TakeCopies();
    deliveries.copies.toHost += copies.toHost;
    deliveries.copies.further += copies.further;
    std::ranges::copy(watched::TakeGaps(), std::back_inserter(deliveries.gaps));
    deliveries.dropped += getDroppedFrames() - droppedBefore;
    stopCapture(); // so that the plain copies have the machine for themselves
    return deliveries.rates.back() > 0;
}

void Print(const char *name, const Deliveries &deliveries, const std::vector<double> &twoCopies)
{
    std::vector<double> ratios;
    for (size_t i = 0; i < twoCopies.size(); ++i)
        ratios.push_back(deliveries.rates[i] / twoCopies[i]);
    const double fastest =
        std::ranges::max(deliveries.rates) / std::ranges::max(twoCopies); // of all rounds
    std::printf("%-24s %8.0f %8.2f %8.2f %8d\n", name, std::ranges::max(deliveries.rates), fastest,
                Median(ratios), deliveries.dropped);
}

} // namespace

int main()
{
    vscsim::Bus::Instance().Plug("VSC470MM", {.speed = 0, .framesMadeBeforehand = kSources});
    if (getNumberOfConnectedCameras() != 1 || !openCamera(0) || !initCamera())
        return 1;
    Bytes host(kFrameBytes, 1);
    Bytes slot(kFrameBytes, 1);
    const std::vector<Bytes> sources(kSources, Bytes(kFrameBytes, 2));
    watched::SetHostBuffer(host);

    Deliveries withBus;
    Deliveries withoutBus;
    std::vector<double> twoCopies;
    for (int round = 0; round < kRounds; ++round) {
        if (!Deliver(host, true, withBus) || !Deliver(host, false, withoutBus))
            return 1;
        twoCopies.push_back(CopiedRate(sources, slot, host));
    }
    std::printf("%dx%d, 8 bit, %d rounds of %d frames\n", kWidth, kHeight, kRounds, kFrames);
    std::printf("%-24s %8s %8s %8s %8s\n", "", "frames/s", "ratio", "median", "dropped");
    std::printf("%-24s %8.0f\n", "two plain copies", std::ranges::max(twoCopies));
    Print("delivered", withBus, twoCopies);
    Print("without the bus's copies", withoutBus, twoCopies);
    std::printf("goal of the last ratio: 1.4\n");
    constexpr double kBytes = double{kFrames} * kRounds * kFrameBytes;
    std::printf("copies of a delivered frame: %.2f into the host's buffer, %.2f further ones\n",
                static_cast<double>(withoutBus.copies.toHost) / kBytes,
                static_cast<double>(withoutBus.copies.further) / kBytes);
    std::printf("between two frames: median %.1f us of %zu\n", Median(withoutBus.gaps),
                withoutBus.gaps.size());
    closeCamera();
    return 0;
}
