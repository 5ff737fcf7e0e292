#pragma once

#include "library/host_fixture.h"

#include <functional>
#include <map>

namespace vsccam {

inline constexpr uint64_t kForEver = UINT64_MAX;

inline uint32_t ElapsedMs(uint32_t since)
{
    return GetTickCount() - since;
}

/// Milliseconds that a call takes.
template <class Body> uint32_t Took(Body body)
{
    const uint32_t start = GetTickCount();
    (void)body();
    return ElapsedMs(start);
}

/// What is programmed: the registers of the sensor that are not 0, by address, and behind them
/// those of the FPGA.
inline std::map<int, int> Registers(int device)
{
    return vscsim::Bus::Instance().With(device, [](vscsim::Camera &camera) {
        std::map<int, int> registers;
        for (int address = 0; address <= UINT16_MAX; ++address) {
            if (const int value = camera.SensorRegister(static_cast<uint16_t>(address)))
                registers[address] = value;
        }
        for (uint8_t number = 0; number < 32; ++number)
            registers[UINT16_MAX + 1 + number] = camera.FpgaRegister(number);
        // Of passing states: what putting a sensor to sleep leaves, and the gate of long exposures.
        for (const int passing : {0x5F, 0x60, 0x61, UINT16_MAX + 1 + 11})
            registers.erase(passing);
        return registers;
    });
}

/// A host that captures from a monochrome camera with a small region, so that frames are cheap to
/// make and to check.
class CaptureFixture : public HostTest {
  protected:
    explicit CaptureFixture(const char *model, HiddenBytes marks) : m_model(model), m_marks(marks)
    {
    }

    int OpenSmall(vscsim::CameraOptions options = {}, int exposureUs = 10'000)
    {
        const int device = OpenOne(m_model, std::move(options));
        EXPECT_TRUE(setImageFormat(kWidth, 240, 1, VSC_IMG_RAW8));
        setStartPos(kStartX, kStartY);
        setValue(CONTROL_EXPOSURE, exposureUs, false);
        (void)Bus().TakeTraffic(device);
        return device;
    }

    /// Of the frame, nothing when there is none or no whole one.
    std::optional<int> Number(const Bytes &frame) const
    {
        return PatternNumber(frame, kWidth, kStartX, kStartY, m_marks);
    }

    void ExpectWholeFrames(int count, int waitMs = 5000) const
    {
        for (int i = 0; i < count; ++i)
            EXPECT_TRUE(Number(NextFrame(waitMs))) << i;
    }

    struct Tally {
        uint64_t delivered = 0;
        int dropped = 0;
        bool allWhole = true;
        bool noneTwice = true;
    };
    /// Takes frames until no more come.
    Tally TakeAll(const std::function<void(uint64_t)> &afterEach = [](uint64_t) {}) const
    {
        Tally tally;
        std::optional<int> previous;
        for (Bytes frame = NextFrame(2000); !frame.empty(); frame = NextFrame(2000)) {
            const std::optional<int> number = Number(frame);
            tally.allWhole = tally.allWhole && number;
            tally.noneTwice = tally.noneTwice && number != previous;
            tally.dropped = getDroppedFrames();
            previous = number;
            afterEach(++tally.delivered);
        }
        return tally;
    }

    /// @return how it ended
    static int Expose()
    {
        startExposure();
        return WaitWhileWorking();
    }
    static int WaitWhileWorking()
    {
        while (getExpStatus() == VSC_EXP_WORKING)
            SleepFor(std::chrono::milliseconds(1));
        return getExpStatus();
    }

    /// Empties the bus for the next case of a test: what it knows of misuse is gone then.
    static void NextCase()
    {
        EXPECT_EQ(Bus().TakeMisuse(), std::vector<std::string>());
        Bus().Reset();
    }

  private:
    static constexpr int kWidth = 320;
    static constexpr int kStartX = 64;
    static constexpr int kStartY = 32;

    const char *m_model;
    HiddenBytes m_marks;
};

} // namespace vsccam
