// The share of the driver for INDI in an exposure: from when the library has a frame until it lies
// in the buffer of the base class, against a copy of as many bytes. Under vscsim, as any program.
#include "camera_session.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

class Taker : public vscindi::ExposureTaker, public vscindi::VideoTaker {
  public:
    uint8_t *TryBegin(size_t bytes) override
    {
        m_buffer.resize(bytes);
        m_begun = Clock::now();
        return m_buffer.data();
    }
    void End(const vscindi::FrameFacts *) override
    {
        shares.push_back(Milliseconds(Clock::now() - m_begun).count());
        copies.push_back(Copy());
    }
    void End(bool) override {}

    std::vector<double> shares; // ms
    std::vector<double> copies;

  private:
    double Copy()
    {
        m_copy.resize(m_buffer.size());
        const auto begun = Clock::now();
        std::memcpy(m_copy.data(), m_buffer.data(), m_buffer.size());
        return Milliseconds(Clock::now() - begun).count();
    }

    std::vector<uint8_t> m_buffer;
    std::vector<uint8_t> m_copy;
    Clock::time_point m_begun;
};

double Median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main()
{
    constexpr uint64_t kExposures = 40;
    Taker taker;
    vscindi::CameraSession session(taker, taker, [] {});
    std::thread host([&] {
        session.Open("");
        uint64_t number = 0;
        while (number < kExposures) {
            session.Expose(++number, 10ms);
            bool ended = false;
            while (!ended) {
                while (const auto event = session.Next())
                    ended |= std::holds_alternative<vscindi::FrameReady>(*event) ||
                             std::holds_alternative<vscindi::ExposureFailed>(*event);
                std::this_thread::sleep_for(1ms);
            }
        }
        session.End(0);
    });
    session.Run(false);
    host.join();
    const double share = Median(taker.shares);
    const double copy = Median(taker.copies);
    std::printf("%zu exposures: share %.2f ms, memcpy %.2f ms: %.2f\n", taker.shares.size(), share,
                copy, share / copy);
    return taker.shares.size() == kExposures ? 0 : 1;
}
