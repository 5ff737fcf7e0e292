// A host program for the guest. Cameras show the test pattern; every byte of every frame is looked
// at, but for the measurement of speed.
#include "camera/pattern.h"

#include <sys/resource.h>
#include <vsccam.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <future>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

void Check(bool right, const char *what, int line)
{
    if (right)
        return;
    std::fprintf(stderr, "line %d: not so: %s\n", line, what);
    std::_Exit(EXIT_FAILURE);
}
#define CHECK(condition) Check((condition), #condition, __LINE__)

double SecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// Scripts of the guest, which has one camera meanwhile.
void Cable(const char *script)
{
    CHECK(std::system(script) == 0); // NOLINT: nobody else has a say in the guest
}

struct Order {
    int type;
    int exposureUs;
    int count;
    int dropped; // frames at least, when something goes wrong on purpose
};

/// Frames of the first camera in a raw format without binning. From one to the next, all their low
/// bytes change alike, and all their high ones: eight bytes are compared at a time, as interpreted
/// processors are slow.
class Frames {
  public:
    explicit Frames(const Order &order)
    {
        CHECK(getNumberOfConnectedCameras() > 0 && openCamera(0));
        // A machine with much else to do may be too slow for the time-outs of requests.
        int tries = 20;
        while (!(initCamera() && setImageFormat(getMaxWidth(), getMaxHeight(), 1, order.type)))
            CHECK(--tries > 0);
        setValue(CONTROL_EXPOSURE, order.exposureUs, 0);
        m_sampleBytes = order.type == VSC_IMG_RAW16 ? 2 : 1;
        m_rowBytes = static_cast<size_t>(getWidth()) * m_sampleBytes;
        m_first.resize(m_rowBytes * static_cast<size_t>(getHeight()));
        m_frame.resize(m_first.size());
        uint8_t *to = m_first.data();
        for (int y = 0; y < getHeight(); ++y) {
            for (int x = 0; x < getWidth(); ++x) {
                const uint16_t sample = vscsim::PatternSample(0, x, y);
                if (m_sampleBytes == 2)
                    *to++ = static_cast<uint8_t>(sample & 0xFF);
                *to++ = static_cast<uint8_t>(sample >> 8);
            }
        }
        // The camera's marks are hidden by the rows next to them.
        const size_t tail = isUSB3Camera() ? 4 : 0;
        std::memcpy(m_first.data(), m_first.data() + m_rowBytes, isUSB3Camera() ? 4 : 8);
        std::memcpy(to - tail, to - tail - m_rowBytes, tail);
    }
    ~Frames() { closeCamera(); }

    uint8_t *Data() { return m_frame.data(); }
    int Size() const { return static_cast<int>(m_frame.size()); }
    bool Next(int waitMs) { return getImageData(Data(), Size(), waitMs) != 0; }

    /// Number of the frame that was read last, modulo 256, as one of its pixels tells it.
    uint32_t Number() const
    {
        constexpr uint32_t kInverse = 53; // of 29, modulo 256
        const size_t place = m_rowBytes + m_sampleBytes - 1;
        return (m_frame[place] - m_first[place]) * kInverse & 0xFFU;
    }

    /// Whether all of it is that frame.
    bool ShowsPattern() const
    {
        constexpr uint64_t kTop = 0x8080808080808080;
        const uint64_t high = Number() * 29U & 0xFFU;
        const uint64_t low = m_sampleBytes == 2 ? Number() * 3U & 0xFFU : high;
        const uint64_t change = (high << 8 | low) * 0x0001000100010001;
        for (size_t at = 0; at + sizeof(uint64_t) <= m_frame.size(); at += sizeof(uint64_t)) {
            uint64_t first, frame;
            std::memcpy(&first, m_first.data() + at, sizeof first);
            std::memcpy(&frame, m_frame.data() + at, sizeof frame);
            if (frame != (((first & ~kTop) + (change & ~kTop)) ^ ((first ^ change) & kTop)))
                return false;
        }
        return true;
    }

  private:
    size_t m_sampleBytes = 0;
    size_t m_rowBytes = 0;
    std::vector<uint8_t> m_first; // the pattern of frame 0
    std::vector<uint8_t> m_frame;
};

long MostResidentKiB()
{
    rusage usage{};
    CHECK(getrusage(RUSAGE_SELF, &usage) == 0);
    return usage.ru_maxrss;
}

constexpr int kWaitMs = 60'000; // a machine that does nothing else needs none of it

/// @param check  each picture; else they repeat after 16
void Stream(const Order &order, bool check)
{
    Frames frames(order);
    setDebugPrint(order.dropped > 0);
    startCapture();
    CHECK(frames.Next(kWaitMs) && frames.Next(kWaitMs));
    const auto begin = Clock::now();
    const std::clock_t beginCpu = std::clock();
    const long resident = MostResidentKiB();
    uint32_t missed = 0;
    for (int i = 0; i < order.count; ++i) {
        const uint32_t last = frames.Number();
        CHECK(frames.Next(kWaitMs));
        CHECK(!check || (frames.ShowsPattern() && frames.Number() != last));
        missed += (frames.Number() - last - 1) % (check ? 256 : 16);
    }
    const double rate = order.count / SecondsSince(begin);
    const double cpuMs = static_cast<double>(std::clock() - beginCpu) * 1e3 / CLOCKS_PER_SEC;
    const long grownKiB = MostResidentKiB() - resident;
    std::printf("%.1f frames/s, %.1f MB/s, %u missed, %.2f ms of processor each, %+ld KiB, "
                "%d dropped\n",
                rate, rate * frames.Size() * 1e-6, missed, cpuMs / order.count, grownKiB,
                getDroppedFrames());
    (void)std::fflush(stdout);
    CHECK(grownKiB <= 4L * frames.Size() / 1024); // buffers that are used for the first time
    CHECK(getDroppedFrames() >= order.dropped);
}

int Expose(Frames &frames)
{
    startExposure();
    while (getExpStatus() == VSC_EXP_WORKING)
        std::this_thread::sleep_for(10ms);
    const int status = getExpStatus();
    CHECK(status != VSC_EXP_SUCCESS ||
          (getImageAfterExp(frames.Data(), frames.Size()) && frames.ShowsPattern()));
    return status;
}

void Single(const Order &order)
{
    Frames frames(order);
    for (int i = 0; i < order.count; ++i)
        CHECK(Expose(frames) == VSC_EXP_SUCCESS);
}

/// Plugs the camera in, and tells how long it takes until `succeeds`.
template <class Attempt> void PlugIn(Attempt succeeds)
{
    Cable("plug");
    const auto plugged = Clock::now();
    bool recovered = false;
    while (!recovered && SecondsSince(plugged) < 180)
        recovered = succeeds();
    CHECK(recovered);
    std::printf("a picture %.1f s after it was plugged in; ", SecondsSince(plugged));
}

void Replug(const Order &order)
{
    Frames frames(order);
    startCapture();
    for (int i = 0; i < order.count; ++i) {
        CHECK(frames.Next(kWaitMs) && frames.ShowsPattern());
        Cable("unplug");
        while (frames.Next(-1)) // those that came before
            CHECK(frames.ShowsPattern());
        PlugIn([&] { return frames.Next(1000) && frames.ShowsPattern(); });
    }
}

/// A lost exposure fails; later ones succeed as soon as the camera is found.
void ReplugExposure(const Order &order)
{
    Frames frames(order);
    for (int i = 0; i < order.count; ++i) {
        const auto pulled = std::async(std::launch::async, [] {
            std::this_thread::sleep_for(500ms);
            Cable("unplug");
        });
        setValue(CONTROL_EXPOSURE, 60'000'000, 0);
        CHECK(Expose(frames) == VSC_EXP_FAILED);
        pulled.wait();
        setValue(CONTROL_EXPOSURE, order.exposureUs, 0);
        PlugIn([&] { return Expose(frames) == VSC_EXP_SUCCESS; });
    }
}

constexpr struct {
    std::string_view name;
    void (*run)(const Order &order);
} kCommands[] = {
    {"video", [](const Order &order) { Stream(order, true); }},
    {"speed", [](const Order &order) { Stream(order, false); }},
    {"single", Single},
    {"replug", Replug},
    {"replug-exposure", ReplugExposure},
};

} // namespace

/// guest_host COMMAND raw8|raw16 EXPOSURE_US COUNT [DROPPED]
int main(int argc, char **argv)
{
    CHECK(argc == 5 || argc == 6);
    const bool twoBytes = std::string_view(argv[2]) == "raw16";
    const Order order = {.type = twoBytes ? VSC_IMG_RAW16 : VSC_IMG_RAW8,
                         .exposureUs = std::atoi(argv[3]),
                         .count = std::atoi(argv[4]),
                         .dropped = argc > 5 ? std::atoi(argv[5]) : 0};
    for (const auto &command : kCommands) {
        if (command.name == argv[1])
            return command.run(order), EXIT_SUCCESS;
    }
    return EXIT_FAILURE;
}
