#include <vsccam.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <thread>
#include <vector>

// How late frames come while another thread makes 1,000 calls a second that ask something of the
// camera, and without: in turns in one run, at 30 frames a second, on the first camera there is.
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;
using namespace std::chrono_literals;

constexpr int kRounds = 4;
constexpr int kFrames = 250; // of a round
constexpr double kAllowedMs = 10;

/// Calls of another thread, at a fixed rate for as long as it lives; what came late is made up for.
class Storm {
  public:
    ~Storm()
    {
        m_ends = true;
        m_thread.join();
    }
    int Calls() const { return m_calls; }

  private:
    void Run()
    {
        for (auto next = Clock::now(); !m_ends; next += 1ms) {
            std::this_thread::sleep_until(next);
            const int call = m_calls++;
            if (call % 8 != 0)
                (void)getSensorTemp(); // one request to the camera
            else
                setValue(CONTROL_GAIN, call % 100, false); // five of them
        }
    }

    std::atomic<bool> m_ends{false};
    std::atomic<int> m_calls{0};
    std::thread m_thread{[this] { Run(); }};
};

struct Deliveries {
    std::vector<double> intervalsMs;
    int dropped = 0;
};

/// @return false when a frame did not come
bool TakeFrames(std::vector<unsigned char> &frame, Deliveries &deliveries)
{
    const int droppedBefore = getDroppedFrames();
    auto last = Clock::time_point::min();
    for (int i = 0; i <= kFrames; ++i) {
        if (!getImageData(frame.data(), static_cast<int>(frame.size()), 5000))
            return false;
        const auto now = Clock::now();
        if (i > 0)
            deliveries.intervalsMs.push_back(Milliseconds(now - last).count());
        last = now;
    }
    deliveries.dropped += getDroppedFrames() - droppedBefore;
    return true;
}

double Percentile(const std::vector<double> &sorted, double percent)
{
    const auto place = static_cast<size_t>(percent / 100 * static_cast<double>(sorted.size()));
    return sorted[std::min(place, sorted.size() - 1)];
}

void Print(const char *name, Deliveries deliveries, double frameMs)
{
    std::vector<double> &sorted = deliveries.intervalsMs;
    std::ranges::sort(sorted);
    const auto inTime = std::ranges::upper_bound(sorted, frameMs + kAllowedMs) - sorted.begin();
    std::printf("%-12s %8.1f %8.1f %8.1f %8.1f %9.2f %8d\n", name, Percentile(sorted, 50),
                Percentile(sorted, 99), Percentile(sorted, 99.9), sorted.back(),
                100.0 * static_cast<double>(inTime) / static_cast<double>(sorted.size()),
                deliveries.dropped);
}

} // namespace

int main()
{
    if (getNumberOfConnectedCameras() < 1 || !openCamera(0) || !initCamera())
        return 1;
    std::vector<unsigned char> frame(static_cast<size_t>(getWidth()) *
                                     static_cast<size_t>(getHeight()));
    setValue(CONTROL_EXPOSURE, 33000, false);
    startCapture();
    Deliveries quiet;
    Deliveries stormy;
    int calls = 0;
    Milliseconds stormTime{};
    for (int round = 0; round < kRounds; ++round) {
        if (!TakeFrames(frame, quiet))
            return 1;
        const Storm storm;
        const auto start = Clock::now();
        if (!TakeFrames(frame, stormy))
            return 1;
        stormTime += Clock::now() - start;
        calls += storm.Calls();
    }
    stopCapture();
    closeCamera();

    auto sorted = quiet.intervalsMs;
    std::ranges::sort(sorted);
    const double frameMs = Percentile(sorted, 50);
    std::printf("milliseconds from frame to frame, %d frames each; a frame takes %.1f ms\n",
                kRounds * kFrames, frameMs);
    std::printf("%-12s %8s %8s %8s %8s %9s %8s\n", "", "median", "99 %", "99.9 %", "longest",
                "in time %", "dropped");
    Print("quiet", quiet, frameMs);
    Print("storm", stormy, frameMs);
    std::printf("%.0f calls a second; in time: not above a frame + %.0f ms\n",
                calls / (stormTime.count() / 1000), kAllowedMs);
    return 0;
}
